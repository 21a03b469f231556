#pragma once

#include <concepts>
#include <cstdint>
#include <memory>

#include "sigweave/foundation/TCArray.h"
#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"
#include "sigweave/platform/Framework.h"
#include "sigweave/platform/ModuleHandle.h"
#include "sigweave/signal/TCIOStream.h"
#include "sigweave/signal/TCTypeInfo.h"

class TCBaseModule;

// Every operation that takes a PORTTYPE treats INPUT as the inputs and every other value as the outputs.
enum PORTTYPE : int { INPUT = 1, OUTPUT = 2 };

// What asks a module for its validation data.
enum CALLED_FROM : int { CALLED_FROM_EDIT = 0, CALLED_FROM_RUN = 1 };

// What went wrong last on a port; see TCPortHelper::GetErrorRecord. The texts are set where the code alone
// does not say enough: by a value of another type, by EndWriteMultitype, by port names. Other failures clear
// them.
struct TCPortError {
    int code = 0;                     // a negative result code; 0 while nothing went wrong
    const void* ownStream = nullptr;  // the port's stream; identifies the line, never to be dereferenced
    const void* otherStream = nullptr;
    TCString text1;
    TCString text2;
    int portIndex = -1;
    int otherIndex = -1;  // the other port of that kind, or on an output the receiver
    PORTTYPE kind = INPUT;
};

// Through its helper a module declares its ports, learns which are wired, tests what waits on its inputs, and
// reads and writes values with their metadata. A module owns exactly one helper and forwards the host's calls
// to it.
//
// Ports are addressed by PORTTYPE and index. The helper owns the ports, their types and their streams; it
// does not own its module. Nothing here takes a lock: declaring and wiring belong to the thread that edits
// the graph, Init, Fetch and all values to the one that runs it.
//
// Queries with an index out of range answer 0, false, null or the empty text. Value operations answer 0 when
// there is nothing to do (no such port, not that element kind, nothing wired), and negative codes for
// failures, which are also in the error record: -2 another type, -3 wiring, -4 a state conflict at a
// receiver when it meets the first block of the output in a run and -18 afterwards, -14 a block or segment
// that could not be made, or what was read not be kept, -5 -6 -12 -13 -15 inputs that do not belong together.
// Nothing throws and nothing is shown: the host prints GetErrorText when it stops because of a negative code.
//
// The sources, each beginning with TCPortHelper:
//
//   TCPortHelper.cpp   the run: Init, Fetch, Done, flags, the host's messages
//   ...Ports           declaring ports, names, trigger groups, ClearPorts
//   ...Types           the types of ports; one type is in PortDataType.cpp, the check of lines against it in
//                      TCValidateActualPortType.cpp
//   ...Wiring          lines and connections, obligatory and external ports, ComputeValidationData
//   ...Waiting         what waits on inputs: peeking, triggers, SynchronousDataAvail, packets
//   ...Metadata        the metadata of outputs
//   ...Values          one block of ints, doubles or texts, matrices, pointers
//   ...InternalData    buffers that ports own, and data of the port's own kind
//   ...Multitype, Bus  several named parts, or channels, in one block
//   ...Blocks          whole blocks: forwarding, copies, packed frames
//   ...Errors          the error record and its text
//
// The state is in TCPortHelperImpl.h, a port in PortRecord.h; PortValueOperations.h writes and reads blocks
// of any element type, of which PortValueTraits.h knows the differences.
class TC_API TCPortHelper {
 public:
    // The numeric data-type code of a port: one kind in the low 24 bits, flags in the high byte. The values
    // are stored in files and bus segment names (never change).
    using TYPE = std::uint32_t;
    static constexpr TYPE TYPE_SWORD = 0x00000001;
    static constexpr TYPE TYPE_SWORD1 = 0x00000002;
    static constexpr TYPE TYPE_SWORDARRAY = 0x00000004;
    static constexpr TYPE TYPE_SWORDMATRIX = 0x00000008;
    static constexpr TYPE TYPE_DOUBLE = 0x00000010;
    static constexpr TYPE TYPE_DOUBLE1 = 0x00000020;
    static constexpr TYPE TYPE_DOUBLEARRAY = 0x00000040;
    static constexpr TYPE TYPE_DOUBLEMATRIX = 0x00000080;
    static constexpr TYPE TYPE_TEXT = 0x00000100;
    static constexpr TYPE TYPE_TEXTARRAY = 0x00000200;
    static constexpr TYPE TYPE_MULTI = 0x01000000;
    static constexpr TYPE TYPE_ADOPT = 0x02000000;
    static constexpr TYPE TYPE_TYPEINFO = 0x04000000;
    static constexpr TYPE TYPE_POINTER = 0x10000000;
    static constexpr TYPE TYPE_POINTERARRAY = 0x20000000;
    static constexpr TYPE TYPE_UNKNOWN = 0x40000000;

    enum CHECK_DT : int { CHECK_ANY = 0, CHECK_ALL = 1, CHECK_EXACT = 2 };
    enum CHECK_PT : int { CHECK_AT_LEAST_ONE = 0, CHECK_EVERY = 1 };
    // Lines drawn by the user; connections of the stream; whichever of the two counts now.
    enum LINETYPE : int { LINES_DRAWN = 0, STREAM_CONNECTED = 1, LINES_OR_STREAM = 2 };
    // How a source is driven; only Fetch asks. UNTIL_READY_CLEARED: it has work while its ready flag is set.
    // REPORT_END: the same, and Fetch answers 2 once when the flag is cleared. Others never have work without
    // waiting blocks.
    enum SourceBehaviour : int { SOURCE_NONE = 0, SOURCE_UNTIL_READY_CLEARED = 1, SOURCE_REPORT_END = 2 };

    // Negative results, everywhere the same (never change, only append).
    enum RESULT : int {
        ANOTHER_TYPE = -2,
        NOT_WIRED = -3,
        STATE_CONFLICT = -4,
        VALUE_COUNTS_DIFFER = -5,
        UNITS_DIFFER = -6,
        BLOCK_COUNTS_DIFFER = -12,
        STATES_DIFFER = -13,
        NOT_CREATED = -14,
        SAMPLERATES_DIFFER = -15,
        STATE_CONFLICT_AGAIN = -18
    };
    // What SynchronousDataAvail compares, as bits.
    enum CHECK_SYNC : unsigned {
        CHECK_STATES = 1,
        CHECK_BLOCK_COUNTS = 2,
        CHECK_VALUE_COUNTS = 4,
        CHECK_SAMPLERATES = 8,
        CHECK_UNITS = 16
    };

    using PortNameFunction = TCString (*)(PORTTYPE kind, unsigned index);
    using DynPortCallback = int (*)(long user, int count);

    class TC_LOCAL TCPortHelperImpl;

    explicit TCPortHelper(TCBaseModule* module);
    virtual ~TCPortHelper();
    TCPortHelper(const TCPortHelper&) = delete;
    TCPortHelper& operator=(const TCPortHelper&) = delete;

    // --- Declaring ports (from the module's constructor) --------------------------------------------------

    // One port of the type token{declarator}; a null or empty declarator means the token's usual one. Answers
    // the index of the new type entry. A port that exists keeps its first type (the entry is then unused).
    // Ports below the index that are not declared exist without name and type, as gaps to be declared later.
    // There are at most 65,536 ports of a kind; what lies beyond is ignored.
    unsigned SetPort(PORTTYPE kind, unsigned index, const char* name, const char* token,
                     const char* declarator, bool withTypeInfo);
    unsigned SetPort(PORTTYPE kind, unsigned index, const char* name, TYPE code);
    // A run of ports that share one type entry; `name` is asked for the name of each.
    unsigned SetPortRange(PORTTYPE kind, unsigned first, unsigned count, PortNameFunction name,
                          const char* token, const char* declarator, bool withTypeInfo);
    unsigned SetPortRange(PORTTYPE kind, unsigned first, unsigned count, PortNameFunction name, TYPE code);
    // The same with a type entry that exists; an index beyond the table only makes room for the ports.
    void AttachPort(PORTTYPE kind, unsigned index, const char* name, unsigned typeIndex);
    void AttachPortRange(PORTTYPE kind, unsigned first, unsigned count, PortNameFunction name,
                         unsigned typeIndex);
    int GetPortCnt(PORTTYPE kind) const;
    const TCString& GetPortName(PORTTYPE kind, unsigned index) const;
    // Inputs that must be wired before a run.
    void SetObligatoryInput(unsigned index);
    void SetObligatoryInputs(const unsigned* indexes, unsigned count);
    bool IsObligatoryInput(unsigned index) const;
    // Inputs that must all hold a block (as far as they are wired) before the module has work. Each call adds
    // a group.
    void SetTriggerInputs(const unsigned* indexes, unsigned count);
    void SetTriggerInputs(unsigned a, unsigned b);
    // So that a number 0 of any type is an input and not a null list.
    void SetTriggerInputs(std::integral auto a, std::integral auto b) {
        SetTriggerInputs(static_cast<unsigned>(a), static_cast<unsigned>(b));
    }
    void ClearTriggerInputs();
    void BehaviourAsSource(SourceBehaviour behaviour);
    // For modules whose number of ports depends on the graph. The host asks for `count` inputs through
    // MESSAGE_DYN_PORTS; the callback gets `user` and that count, declares the ports and answers how many
    // inputs there are now.
    void UseDynPorts(DynPortCallback callback, long user);

    // --- Port types ---------------------------------------------------------------------------------------

    // The port's code, and the index of its type entry.
    TYPE DataType(PORTTYPE kind, unsigned index, unsigned* typeIndex = nullptr) const;
    // The code of a type string of `count` items; of several items only the flags. Never fails: TYPE_UNKNOWN
    // for a token that is none, TYPE_ADOPT without brackets.
    static TYPE Datatype(int count, const char* typeString);
    // CHECK_ANY: some bit of the mask, or no mask; CHECK_ALL: every bit; CHECK_EXACT: just these bits.
    bool DoesDataTypeMatch(PORTTYPE kind, unsigned index, TYPE mask, CHECK_DT mode = CHECK_ANY) const;
    // Compares tokens only; mismatches are reported to the host under `name`, or not at all when it is null.
    static bool DoesDataTypeMatch(const char* declared, int declaredCount, const char* actual,
                                  int actualCount, const char* name);
    // Null while the port has no type of its own. Valid until the port's type changes.
    const char* GetPortType(PORTTYPE kind, unsigned index, int* count) const;
    // Checks, or for a port without own type adopts, the type that arrives on a line; differences go to the
    // host.
    bool ValidatePortType(PORTTYPE kind, unsigned index, const char* typeString, int count);
    // Declares the port's type entry anew, for all ports that share it; as for SetPort.
    void ChangeType(PORTTYPE kind, unsigned index, const char* token, const char* declarator,
                    bool withTypeInfo);
    // One more item of a multitype entry; other entries, and an index beyond the table, are left as they are.
    void AddMultitype(unsigned typeIndex, const char* token, const char* declarator);
    // Bytes per element.
    int ElemSize(PORTTYPE kind, unsigned index) const;
    // Whether the port's kind is a scalar held in one element ("[1]"); plain SWORD and DOUBLE deliberately
    // are not.
    bool IsScalarDataType(PORTTYPE kind, unsigned index) const;
    // Keeps the type that the port has now, for `ComputeValidationData` to compare with.
    void StoreValidation(PORTTYPE kind, unsigned index);
    // How many wired ports have another type than the one that was stored (a port whose type was never stored
    // counts as unchanged); wired are those with lines, or from a run those with a connected stream. `store`
    // keeps the types of today afterwards. The helper is validated when the answer is 0.
    int ComputeValidationData(CALLED_FROM from, bool store);

    // --- Wiring -------------------------------------------------------------------------------------------

    // A line was drawn to the port, or removed; both count it at the port and at its type.
    void AddLine(PORTTYPE kind, unsigned index);
    void DelLine(PORTTYPE kind, unsigned index);
    // By default while running whether the stream is connected, else whether there are lines.
    bool IsWired(PORTTYPE kind, unsigned index, LINETYPE lineType = LINES_OR_STREAM) const;
    // Kind 3 means inputs and outputs.
    bool AnyPortWired(int kind) const;
    // Connections of inputs that need each other: 0, or -3 at the input that is missing. With A connected, B
    // must be; one or every one of the list must be (when none is, the first is missing; an index out of
    // range ends the check with 0); A and B both are or both are not.
    int CheckWired(unsigned inputA, unsigned inputB);
    int CheckWired(unsigned inputA, const unsigned* inputs, unsigned count, CHECK_PT mode);
    int CheckAllOrNoneWired(unsigned inputA, unsigned inputB);
    // 0 when the names of all ports of that kind are there and differ, else -3 with the port, and as
    // `otherIndex` the other one of that name, in the error record.
    int CheckPortNames(PORTTYPE kind);
    // `name`, or followed by " 2", " 3" ... when another port of that kind has that name already.
    TCString MakePortNameUnique(PORTTYPE kind, unsigned index, const char* name) const;

    // --- External-parameter ports: inputs whose values stand in for settings ------------------------------

    // Two inputs that may carry external parameters, of which at most one is in use. They are ordinary inputs
    // besides that: a block on the one in use is work for the module whatever the trigger groups say, and a
    // run needs that one to be connected.
    void SetExtPorts(unsigned first, unsigned second);
    // The selector: 1 the first port is in use, 2 the second, any other number none. Answers the selector
    // before.
    int UseExtPar(int selector);
    // False (and -3 in the error record) when the port in use is not connected. Both tests are true while the
    // host has switched off the check of obligatory inputs.
    bool IsExtWiredOK();
    bool AreObligatoryInputsWired();

    // --- Run ----------------------------------------------------------------------------------------------

    // Clears all buffers. 0, or -3 when an obligatory input is not connected.
    int Init();
    // 0 there is work, 1 there is none, 2 (once) a source has ended.
    int Fetch();
    // Clears all buffers and answers 0.
    int Done();
    // Whether a cycle has begun since the flag was cleared; `clear` clears it.
    bool FirstInCycle(bool clear);
    // The ready flag: set by Init; a source clears it at the end of its signals.
    bool ReadyToExecute() const;
    void SetReadyFlag(bool ready);
    // As the host said last: see MESSAGE_RUNNING and MESSAGE_VALIDATED.
    bool IsRunning() const;
    bool IsValidated() const;
    // Milliseconds since 1970; taken at the first call and kept for the run.
    double SyncTime();
    // The handle of the module's library as the host gave it; null before.
    HINSTANCE GetInstanceHandle() const;
    // The module's name, or "No module".
    const char* GetModuleName() const;
    // Messages from the host, forwarded by TCBaseModule::GetMessageA. The other numbers that are forwarded
    // have no meaning here and answer 0, as do these unless they say otherwise.
    enum MESSAGE : unsigned {
        MESSAGE_RUNNING = 4,    // param 1: a run begins (the synchronisation time is taken anew); 0: it ended
        MESSAGE_VALIDATED = 7,  // param: the validated flag
        MESSAGE_FIRST_IN_CYCLE = 16,    // a cycle begins: sets the first-in-cycle flag (param: 0)
        MESSAGE_INSTANCE_HANDLE = 18,   // param: the handle of the module's library
        MESSAGE_CHECK_OBLIGATORY = 19,  // param 0: obligatory inputs are not checked; 1: they are
        MESSAGE_DYN_PORTS = 44,  // param: the number of inputs wanted; answers the number there is, -1 fixed
    };
    long GetMessageA(unsigned id, long param);

    // --- Streams ------------------------------------------------------------------------------------------

    // The port's own stream, made an input; for the host to feed. `precision` is the number of digits in its
    // text forms. The helper keeps the stream.
    TCIOStream* SetInputStream(unsigned index, int unused, int precision);
    // One more receiver of the output, not owned; ignored unless it is an input.
    void AddOutputStream(unsigned index, TCIOStream* receiver);
    // Takes all connections and blocks from the streams of all ports, which can then be wired anew.
    void DeleteStreams();
    // An input drops its waiting blocks and forgets the metadata that it read. An output forgets a block that
    // was begun and its place in its signal; what its receivers hold stays, and so do settings and
    // metadata given for blocks to come.
    void ClearBuffer(PORTTYPE kind, unsigned index);
    void ClearBuffers();
    // Removes all ports with their streams, all types, trigger groups and the dynamic-port callback. Stored
    // types stay, deliberately: `ComputeValidationData` compares the ports that are declared next with them.
    // `release` first empties the queues of the inputs, and those that the outputs feed, for their blocks go
    // with the ports. The host removes the lines before and wires the new ports anew.
    void ClearPorts(bool release);

    // --- Waiting blocks -----------------------------------------------------------------------------------

    // Whether a block waits, how many do, and state, number of values and bytes per element of the first; -1
    // and zeros when none does. A port for single values has one value.
    bool DataAvail(unsigned input, TCBLOCKSTATUS& state, int& blocks, int& values, int& elementSize) const;
    bool AnyDataAvail() const;
    // The blocks that wait on an input, or at that receiver of an output which has the most.
    int BlocksOnStream(PORTTYPE kind, unsigned index) const;
    // Bytes of the values of all waiting blocks, where a text counts as one byte; 0 for buses and pointers.
    std::int64_t GetBufferSize(unsigned input) const;
    // The state, and into `ti` (may be null) all metadata, of the last block read and of the first one
    // waiting. Peeking changes nothing at the port; a waiting block without metadata resets `ti`. -1 when
    // there is none, also when the type carries none (deliberately only peeking goes by the adopt flag as
    // well: the metadata of an adopted line can be looked at before its type is known).
    TCBLOCKSTATUS GetTypeInfo(unsigned input, TCTypeInfo* ti) const;
    TCBLOCKSTATUS PeekTypeInfo(unsigned input, TCTypeInfo* ti) const;
    // The same metadata without a copy, null when there is none. Valid until the next read of that input.
    const TCTypeInfo* LastTypeInfo(unsigned input) const;
    // The state of the next block, or with `combine` of all that wait; `blocks` (may be null) gets their
    // number.
    TCBLOCKSTATUS PeekStatus(unsigned input, bool combine, int* blocks) const;
    // Whether blocks wait that are work by the trigger groups; an input in no group is work by itself.
    bool TriggerDataAvail() const;
    // How many blocks can be read from all connected inputs of the list, or the code of the first check
    // (CHECK_SYNC bits) that fails between the first of them and another. 0 as soon as one of them has no
    // block or no metadata.
    int SynchronousDataAvail(const unsigned* inputs, unsigned count, unsigned checks);
    int SynchronousDataAvail(unsigned a, unsigned b, unsigned checks);
    int SynchronousDataAvail(std::integral auto a, std::integral auto b, unsigned checks) {
        return SynchronousDataAvail(static_cast<unsigned>(a), static_cast<unsigned>(b), checks);
    }
    // Whether the last block read (with `peek`: the next one) begins a signal, by its own state or because
    // the one before it ended one; and whether the last block read ends one.
    bool IsPacketStart(unsigned input, bool peek) const;
    bool IsPacketStop(unsigned input) const;
    // The state of a piece when a block is cut into `parts` pieces and the piece covers `count` of them from
    // `index`.
    static TCBLOCKSTATUS ConvBlockState(TCBLOCKSTATUS state, unsigned parts, unsigned index, unsigned count);
    // Drops the next waiting block, or all, unread; answers how many. The last one dropped becomes the block
    // read last, for `Access...Data` and LastTypeInfo alike.
    int RemoveContents(unsigned input, bool all);

    // --- Output metadata ----------------------------------------------------------------------------------

    // The metadata of a block come from four sources, field by field: given for this block (SetTI_... and
    // SetTypeInfo), made automatically, copied from the linked input, or left as they were. What is given
    // holds until a block with it was written, with two exceptions: a name holds until another is given, and
    // a timestamp or state of an automatic field is used up when the metadata are next prepared, which every
    // write does first, also one without values or one that fails, and WriteTypeInfo. What is written is
    // repaired first: an invalid state becomes COMPLETE, a timestamp that is none the time now, a samplerate
    // or unit factor that is none 1, and the range is put in order and made finite.

    // Fields that the library makes itself: the timestamp is the time of the run's start, the states make one
    // signal (the first block of a port is COMPLETE; after START comes BUSY, after STOP a new START; each
    // preparation is a step, whether or not a block follows from it), the
    // name is that of the port; range, samplerate and unit are only kept from being copied.
    void UseAutoTypeInfo(unsigned output, bool timestamp, bool state, bool name, bool range, bool unit,
                         bool samplerate);
    // All other fields are copied from the last block read on the linked input. When that input's type
    // carries no metadata, nothing is copied and nothing made (deliberately: the module then gives
    // everything).
    void UseTypeInfoFromInput(unsigned output, unsigned input);
    // Of the list, the first input that is connected when the block is written is the linked one. An empty
    // list links none.
    void UseTypeInfoFromInputs(unsigned output, const unsigned* inputs, unsigned count);
    // Ignored while the output has no receiver, or its type carries no metadata.
    void SetTI_Timestamp(unsigned output, double milliseconds);
    void SetTI_SignalName(unsigned output, const char* name);
    void SetTI_Samplerate(unsigned output, double perSecond);
    void SetTI_Range(unsigned output, double minimum, double maximum);
    void SetTI_Unit(unsigned output, const TCSI_Unit& unit);
    // Symbols as "m s^-2"; a text that is no unit is ignored.
    void SetTI_Unit(unsigned output, const char* symbols, double factor);
    // Several fields at once, also before there is a receiver. The state INVALID is given by nobody: it takes
    // back a state given before, and the rules above then make the state. A record without a name takes back
    // a name in the same way.
    void SetTypeInfo(unsigned output, const TCTypeInfo& ti);
    // `range` points at minimum and maximum; null pointers are skipped.
    void SetTypeInfo(unsigned output, const double* timestamp, const TCBLOCKSTATUS* state, const char* name,
                     const double* range, const double* samplerate, const TCSI_Unit* unit);
    // Prepares the metadata and gives them to the block being written, before its values. Writing the values
    // does so anyway, and prepares once more. 0, or the negative code.
    int WriteTypeInfo(unsigned output);

    // --- Values: writers answer 0, readers 1 when values were read ----------------------------------------

    // Each write makes one block of the values, and copies them. A port for single values takes the last one.
    // No values, or no receiver: no block and 0.
    int WriteIntData(unsigned output, unsigned long count, const int* values);
    int WriteIntVal(unsigned output, int value);
    int WriteIntArray(unsigned output, const TCArray<int, int>& values);
    int WriteDblData(unsigned output, unsigned long count, const double* values);
    int WriteDblVal(unsigned output, double value);
    int WriteDblArray(unsigned output, const TCArray<double, double>& values);
    int WriteStringData(unsigned output, unsigned long count, const TCString* values);
    int WriteStringVal(unsigned output, const TCString& value);
    int WriteStringArray(unsigned output, const TCArray<TCString, const TCString&>& values);
    int WriteCStringData(unsigned output, unsigned long count, const CString* values);
    int WriteCStringVal(unsigned output, const CString& value);
    int WriteCStringArray(unsigned output, const CStringArray& values);
    // Zero-copy: the caller owns the memory, which must stay valid and unchanged until every reader is done
    // with the block.
    int WriteIntMatrix(unsigned output, int rows, int cols, const int* values);
    int WriteDblMatrix(unsigned output, int rows, int cols, const double* values);
    int WritePtr(unsigned output, const void* data, int count);

    // Each read takes one block and keeps its metadata. `count` is the capacity of the buffer, then the
    // number read; when the block is longer its last values are read. A count of 0 and a null buffer take the
    // block too and answer 0. -2 when the block's values are of another type than the port; the block is then
    // taken.
    // `...LastVal`: the last value of the next block, or with `all` of the last block that waits.
    int ReadIntData(unsigned input, unsigned long& count, int* buffer);
    int ReadIntLastVal(unsigned input, int& value, bool all);
    int ReadIntArray(unsigned input, TCArray<int, int>& values);
    int ReadDblData(unsigned input, unsigned long& count, double* buffer);
    int ReadDblLastVal(unsigned input, double& value, bool all);
    int ReadDblArray(unsigned input, TCArray<double, double>& values);
    int ReadStringData(unsigned input, unsigned long& count, TCString* buffer);
    int ReadStringLastVal(unsigned input, TCString& value, bool all);
    int ReadStringArray(unsigned input, TCArray<TCString, const TCString&>& values);
    int ReadCStringData(unsigned input, unsigned long& count, CString* buffer);
    int ReadCStringLastVal(unsigned input, CString& value, bool all);
    int ReadCStringArray(unsigned input, CStringArray& values);
    // Hand out the block's own data, as the writer left them. Valid until the next read of that input.
    int ReadIntMatrix(unsigned input, const int** values, int& rows, int& cols);
    int ReadDblMatrix(unsigned input, const double** values, int& rows, int& cols);
    int ReadPtr(unsigned input, void** data, int* count);

    // Takes the next block without copying its values; `Access...Data` then hands them out.
    int TakeBlock(unsigned input);
    // The values of the block read last; null when there is none of that kind. Valid until the next read.
    const int* AccessIntData(unsigned input, int& count) const;
    const double* AccessDblData(unsigned input, int& count) const;
    const TCString* AccessStringData(unsigned input, int& count) const;

    // A buffer owned by the port, valid until another shape is asked for; `WriteInternalData` writes a copy
    // of it. Null when the port is not of that kind, for no elements or more than 2^31 - 1, and without
    // memory.
    int* AllocIntData(unsigned output, unsigned long count);
    double* AllocDblData(unsigned output, unsigned long count);
    TCString* AllocStringData(unsigned output, unsigned long count);
    int* AllocIntMatrix(unsigned output, int rows, int cols);
    double* AllocDblMatrix(unsigned output, int rows, int cols);
    int WriteInternalData(unsigned output);
    // Reads the next block into a buffer that the input owns, so that a module can find out whether anything
    // changed: compares that buffer with an output's, shape and values, bit by bit. Two buffers that were
    // never filled are not the same.
    int ReadInternalData(unsigned input);
    bool CompareWithInternalData(unsigned input, unsigned output) const;

    // By the port's own kind: ints, doubles or TCStrings. A matrix is written zero-copy, as rows of `columns`
    // values (-14 when they do not come out even), and read whole (-14 when it does not fit, and it still
    // waits); `columns` (may be null) gets its columns, 0 for other kinds.
    int WritePolymorphicData(unsigned output, unsigned long count, const void* values, int columns);
    int ReadPolymorphicData(unsigned input, unsigned long& count, void* buffer, int* columns);

    // --- Multitype: several named parts in one block ------------------------------------------------------

    // The parts of one block, each name once (-14 else; the block can go on). Nothing is sent before
    // EndWriteMultitype, which answers -14 when nothing was written. When it fails, the block can be tried
    // again at once; the next part or channel that is written begins another one.
    int WriteMultitypeInt(unsigned output, const char* name, int value);
    int WriteMultitypeDbl(unsigned output, const char* name, double value);
    int WriteMultitypeString(unsigned output, const char* name, const TCString& value);
    int WriteMultitypeBlocks(unsigned output, const char* name, const TCArray<TCIOStream::Block*>& blocks);
    // Dispatches a multitype or bus block.
    int EndWriteMultitype(unsigned output);
    // Takes the next block of a multitype or bus input.
    int StartReadMultitype(unsigned input);
    // A part of the block taken, by its position or its name: 0 when there is none, -2 when it is of another
    // type. Nested blocks belong to the block taken and are valid as long as it is.
    int ReadMultitypeInt(unsigned input, int segment, int& value);
    int ReadMultitypeInt(unsigned input, const char* name, int& value);
    int ReadMultitypeDbl(unsigned input, int segment, double& value);
    int ReadMultitypeDbl(unsigned input, const char* name, double& value);
    int ReadMultitypeString(unsigned input, int segment, TCString& value);
    int ReadMultitypeString(unsigned input, const char* name, TCString& value);
    int ReadMultitypeBlocks(unsigned input, int segment, TCArray<TCIOStream::Block*>& blocks);
    int ReadMultitypeBlocks(unsigned input, const char* name, TCArray<TCIOStream::Block*>& blocks);

    // --- Bus blocks: several channels, each with its own metadata -----------------------------------------

    // Each write adds one block to the channel of that index and name, with that metadata (null: none). A
    // name with a line break ("\r\n") is -14. As
    // with multitype blocks EndWriteMultitype sends them all, StartReadMultitype takes them. `copy` false,
    // and a pointer, is zero-copy as above.
    int WriteIntBusBlock(unsigned output, int value, int channel, const char* name, const TCTypeInfo* ti);
    int WriteDblBusBlock(unsigned output, double value, int channel, const char* name, const TCTypeInfo* ti);
    int WriteStringBusBlock(unsigned output, const TCString& value, int channel, const char* name,
                            const TCTypeInfo* ti);
    int WriteIntDataBusBlock(unsigned output, int count, const int* values, int channel, const char* name,
                             const TCTypeInfo* ti);
    int WriteDblDataBusBlock(unsigned output, int count, const double* values, int channel, const char* name,
                             const TCTypeInfo* ti);
    int WriteStringDataBusBlock(unsigned output, int count, const TCString* values, int channel,
                                const char* name, const TCTypeInfo* ti);
    int WriteIntMatrixBusBlock(unsigned output, int rows, int cols, const int* values, bool copy, int channel,
                               const char* name, const TCTypeInfo* ti);
    int WriteDblMatrixBusBlock(unsigned output, int rows, int cols, const double* values, bool copy,
                               int channel, const char* name, const TCTypeInfo* ti);
    int WritePtrBusBlock(unsigned output, const void* data, int count, int channel, const char* name,
                         const TCTypeInfo* ti);
    // By channel name, and by channel index: 1; 0 when there is no such channel or it was read to its end; -2
    // when it holds another type. A channel of single values can be read as an array, and the last value of
    // an array as a single value. `ti` (may be null) gets the block's own metadata. What matrices and
    // pointers hand out is valid until the next read.
    int ReadIntBusBlock(unsigned input, const char* name, int& value, TCTypeInfo* ti);
    int ReadIntBusBlock(unsigned input, int channel, int& value, TCTypeInfo* ti);
    int ReadDblBusBlock(unsigned input, const char* name, double& value, TCTypeInfo* ti);
    int ReadDblBusBlock(unsigned input, int channel, double& value, TCTypeInfo* ti);
    int ReadStringBusBlock(unsigned input, const char* name, TCString& value, TCTypeInfo* ti);
    int ReadStringBusBlock(unsigned input, int channel, TCString& value, TCTypeInfo* ti);
    int ReadIntArrayBusBlock(unsigned input, const char* name, TCArray<int, int>& values, TCTypeInfo* ti);
    int ReadIntArrayBusBlock(unsigned input, int channel, TCArray<int, int>& values, TCTypeInfo* ti);
    int ReadDblArrayBusBlock(unsigned input, const char* name, TCArray<double, double>& values,
                             TCTypeInfo* ti);
    int ReadDblArrayBusBlock(unsigned input, int channel, TCArray<double, double>& values, TCTypeInfo* ti);
    int ReadStringArrayBusBlock(unsigned input, const char* name, TCArray<TCString, const TCString&>& values,
                                TCTypeInfo* ti);
    int ReadStringArrayBusBlock(unsigned input, int channel, TCArray<TCString, const TCString&>& values,
                                TCTypeInfo* ti);
    int ReadIntMatrixBusBlock(unsigned input, const char* name, const int** values, int& rows, int& cols,
                              TCTypeInfo* ti);
    int ReadIntMatrixBusBlock(unsigned input, int channel, const int** values, int& rows, int& cols,
                              TCTypeInfo* ti);
    int ReadDblMatrixBusBlock(unsigned input, const char* name, const double** values, int& rows, int& cols,
                              TCTypeInfo* ti);
    int ReadDblMatrixBusBlock(unsigned input, int channel, const double** values, int& rows, int& cols,
                              TCTypeInfo* ti);
    int ReadPtrBusBlock(unsigned input, const char* name, void** data, int* count, TCTypeInfo* ti);
    int ReadPtrBusBlock(unsigned input, int channel, void** data, int* count, TCTypeInfo* ti);
    // Blocks in a channel, read or not, and elements of the block that is read next.
    int GetBusBlockCnt(unsigned input, const char* name) const;
    int GetBusBlockCnt(unsigned input, int channel) const;
    int GetBusBlockElementCnt(unsigned input, const char* name) const;
    int GetBusBlockElementCnt(unsigned input, int channel) const;
    // With it, all blocks of a channel are read one after the other; without, the newest. Counts from the
    // next block taken on.
    void EnableMultipleBlocksInBusChannel(unsigned input, bool enable);

    // --- Whole blocks -------------------------------------------------------------------------------------

    // These carry a block's own metadata, past the rules above.

    // Hands the input's next block to every receiver of the output: the same block, not a copy. Without a
    // receiver the block is taken all the same. 1 when done, 0 when nothing waits. On a state conflict, or
    // when the two ports are of different kinds (-2), it stays where it is.
    int ForwardBlock(unsigned output, unsigned input);
    // Copies a block to the output, 0 when written; -2 when its data is not of the output's type. A block
    // with metadata only fits every output.
    int WriteCopy(unsigned output, const TCIOStream::Block* block);
    // Takes a block for the caller to hold beyond the next read and gives the one held before back; see
    // TCIOStream::ExchangeBinary.
    int ExchangeBinary(unsigned input, TCIOStream::Block** held, bool take);
    // Copies every waiting block of the input to the output, which must be of one kind (-2 else); the input
    // keeps them. Answers how many, or a negative code when one is refused (those before it are written).
    // Counts as a read for `Access...Data`.
    int CopyStreamContent(unsigned input, unsigned output);
    // The packed frame of the input's next block; a null buffer answers its size and takes nothing.
    int SerializeBlock(unsigned input, char* buffer);
    // Writes the block of a frame, 0 when written; -14 for a damaged frame, -2 for data of another type.
    int DeSerializeBlock(unsigned output, const TCString& frame);

    // --- Errors -------------------------------------------------------------------------------------------

    const TCPortError& GetErrorRecord() const;
    void ClearErrorRecord();
    // Fills the record and answers the code, for modules that report errors of their own. `otherIndex` -1: no
    // other port or receiver.
    int SetErrMsg(int code, PORTTYPE kind, unsigned index, int otherIndex, const char* text1,
                  const char* text2);
    int SetErrMsg(int code, PORTTYPE kind, unsigned index, int otherIndex);
    // The record as one line: the ports by name, what is wrong (the record's texts, or else what the code
    // means) and the code, as 'Input "Signal 1": the port is not wired (-3)'. Empty when there was no error.
    TCString GetErrorText() const;

 private:
    std::unique_ptr<TCPortHelperImpl> impl;
};
