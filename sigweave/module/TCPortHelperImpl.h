#pragma once

#include <array>
#include <vector>

#include "sigweave/module/TCPortHelper.h"

// What stands behind a port helper. For the library's own sources only; see TCPortHelper for the rules.
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
    // Null out of range.
    PORT* Port(PORTTYPE kind, unsigned index);
    const PORT* Port(PORTTYPE kind, unsigned index) const;
    // The port's entry in the type table; null out of range and for a port that is not attached.
    DATATYPE* Type(PORTTYPE kind, unsigned index);
    const DATATYPE* Type(PORTTYPE kind, unsigned index) const;

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
};
