#pragma once

#include <array>
#include <new>
#include <optional>
#include <vector>

#include "sigweave/module/TCPortHelper.h"

// The state of a port helper; see TCPortHelper for the rules. Public for its nested class DATATYPE
// (PortDataType.h); the rest is for the library's own sources.
class TCPortHelper::TCPortHelperImpl {
 public:
    class DATATYPE;

    struct PORT;  // see PortRecord.h

    // The kinds of elements, and those of which a block holds one value.
    static constexpr TYPE INT_KINDS = TYPE_SWORD | TYPE_SWORD1 | TYPE_SWORDARRAY;
    static constexpr TYPE DOUBLE_KINDS = TYPE_DOUBLE | TYPE_DOUBLE1 | TYPE_DOUBLEARRAY;
    static constexpr TYPE TEXT_KINDS = TYPE_TEXT | TYPE_TEXTARRAY;
    static constexpr TYPE SINGLE_VALUES = TYPE_SWORD | TYPE_SWORD1 | TYPE_DOUBLE | TYPE_DOUBLE1 | TYPE_TEXT;

    // The type that a port had when it was last stored; empty until then.
    struct BACKUPPORT {
        TCString typeString;
        int count = 0;
    };

    explicit TCPortHelperImpl(TCBaseModule* owner);
    ~TCPortHelperImpl();
    TCPortHelperImpl(const TCPortHelperImpl&) = delete;
    TCPortHelperImpl& operator=(const TCPortHelperImpl&) = delete;

    std::vector<PORT>& Ports(PORTTYPE kind) { return kind == INPUT ? inputs : outputs; }
    const std::vector<PORT>& Ports(PORTTYPE kind) const { return kind == INPUT ? inputs : outputs; }
    // Null out of range. In PortRecord.h.
    inline PORT* Port(PORTTYPE kind, unsigned index);
    inline const PORT* Port(PORTTYPE kind, unsigned index) const;
    // The port's entry in the type table; null out of range and for a port that is not attached.
    DATATYPE* Type(PORTTYPE kind, unsigned index);
    const DATATYPE* Type(PORTTYPE kind, unsigned index) const;

    // Records a wiring error at a port and answers it.
    int NotWired(PORTTYPE kind, unsigned index);
    // Records a failed value operation and answers its code: with the text, and with the receiver that
    // refused the block, where it is known.
    int Fail(const PORT& port, int code, const TCString& text = TCString());

    // An output of one of the kinds (0: of any kind) with a receiver. Else null.
    PORT* WritablePort(unsigned output, TYPE kinds);
    // An input of one of the kinds (0: of any kind). Else null.
    PORT* ReadablePort(unsigned input, TYPE kinds);

    // The input that the output's metadata is copied from; null for none.
    const PORT* LinkedInput(const PORT& output) const;
    // Sets the metadata of the port's next block from the linked input and by the automatic rules. An
    // automatic state goes on with each call.
    void PrepareTypeInfo(PORT& port);
    // Repairs the metadata and gives it to the block being written; 0, or a negative code that is recorded.
    int HandOverTypeInfo(PORT& port);
    // Both, for a port that carries metadata.
    int WriteTypeInfo(PORT& port);
    // Begins or goes on with a block of several parts, afresh after one that was refused; 1, 0 without a
    // receiver, or a negative code that is recorded.
    int StartParts(PORT& port);
    // The result of handing metadata to the receivers: distinguishes the first state conflict from later
    // ones.
    int RecordConflict(PORT& port, int result);
    // Ends what was given for the block just written. 0, or the negative result, recorded.
    int FinishBlock(PORT& port, int result);

    // Takes the input's next block; false when none waits.
    bool Take(PORT& port, bool firstElements);
    // After a block was taken of which `wanted` values were to be read: keeps its metadata and answers the
    // result. Values that could not be read are of another type.
    int FinishRead(PORT& port, int wanted, int result);
    int WrongData(const PORT& port);
    // The result of `read`, or -14, recorded, when there is no memory for what it reads.
    template <class Read>
    int Guarded(const PORT& port, Read read) {
        try {
            return read();
        } catch (const std::bad_alloc&) {
            return Fail(port, NOT_CREATED);
        }
    }

    double SyncTime();
    // A text that distinguishes the bus blocks of this module from those of others, made at the first use.
    const TCString& SymbolName();
    // The external-parameter input in use, if any.
    std::optional<unsigned> SelectedExtPort() const {
        if (!hasExtPorts || extSelector < 1 || extSelector > 2) return std::nullopt;
        return extPorts[static_cast<std::size_t>(extSelector) - 1];
    }

    std::vector<PORT> inputs;
    std::vector<PORT> outputs;
    TCArray<DATATYPE> typeTable;
    std::vector<BACKUPPORT> inputBackups;
    std::vector<BACKUPPORT> outputBackups;
    std::vector<std::vector<unsigned>> triggerGroups;
    int moduleType = 0;  // 1 is a source
    TCBaseModule* module;
    TCPortError error;
    bool firstInCycle = false;
    bool ready = false;
    bool checkObligatory = true;
    bool validated = false;
    bool running = false;
    double syncTime = 0.0;
    HINSTANCE instanceHandle = nullptr;
    SourceBehaviour sourceBehaviour = SOURCE_NONE;
    DynPortCallback dynPorts = nullptr;
    long dynPortsUser = 0;
    bool hasExtPorts = false;
    std::array<unsigned, 2> extPorts{};
    int extSelector = 0;
    TCString symbolName;
};
