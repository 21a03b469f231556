#pragma once

#include <cstdint>
#include <memory>

#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/foundation/TCArray.h"
#include "sigweave/foundation/TCList.h"
#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"
#include "sigweave/platform/Framework.h"
#include "sigweave/signal/TCTypeInfo.h"

class TCXML;

namespace tc {
class SegmentIndex;
}

// The pipe through which modules hand data to each other. A stream plays one of two roles:
//
//   writer   fills one block at a time and dispatches it, by pointer, to the queue of every stream in its
//            fan; it owns every block that it ever allocated, and reuses those that no queue holds any more
//   input    owns one queue of waiting blocks (`SetInputStream`), takes them off one at a time and reads them
//
// A block is a `TCTypeInfo` and an ordered set of named, typed segments. A reader's block stays readable
// until that reader's next take. A block goes back to the writer that allocated it (the block knows it, the
// queue does not), whichever queue holds it last, so memory stays flat when blocks are shared
// (`CopyBlockRefs`, `ForwardBlock`). A writer must outlive the reading of its blocks; streams may be deleted
// in any order, for a queue that is dropped does not touch the blocks in it.
//
// A steady flow of equally shaped blocks allocates nothing after the first few. Streams, blocks and their
// reference counts take no lock: all of them belong to the one thread that runs the graph.
//
// Results: 1 or a positive count is done; 0 nothing to do or nothing there; -2 another type; -4 the block's
// state conflicts with a block that waits at a receiver (see `GetErrFan`); -14 the block or segment could not
// be created or written. Nothing throws. A write that fails leaves the block reserved and usable for the next
// correct write, with all that was written into it: a copy that is refused with -4 is sent by `SetTI` with
// `fix` and `EndWriteSegments`, and forgotten by `CancelWriteSegments`.
//
// The sources:
//
//   TCIOStream.cpp           wiring, free blocks, the names of types
//   TCIOStreamWrite.cpp      segments and whole blocks
//   TCIOStreamBus.cpp        the channels of a bus
//   TCIOStreamState.cpp      how a block's state fits those that wait, and its repair
//   TCIOStreamDispatch.cpp   handing a block to the receivers
//   TCIOStreamRead.cpp       taking, reading and peeking
//   TCIOStreamMove.cpp       copying, sharing, holding and dropping blocks that wait
//   StreamBlock.cpp, StreamSegment.cpp, SegmentIndex.cpp   what a block is made of
//   forms/TCIOStream*.cpp    the packed, text and XML forms
class TC_API TCIOStream {
 public:
    // The values are stored (never change, only append).
    enum DATATYPE : unsigned { UNDEF = 0, INT = 1, DOUBLE = 2, STRING = 3, POINTER = 4, BLOCK = 5 };

    class Block;
    class DataSegment;
    // The queue of an input. Each block knows the writer that it goes back to, so the queue does not.
    using Fan = TCList<Block*>;

    TCIOStream() = default;
    ~TCIOStream();
    TCIOStream(const TCIOStream&) = delete;
    TCIOStream& operator=(const TCIOStream&) = delete;

    // --- Wiring

    // Makes the stream an input and stores the number of digits that its text forms use. Answers the stream
    // itself.
    TCIOStream* SetInputStream(int precision);
    // Adds a receiver, which must be an input (others are ignored). Not owned. Answers the fan count. A
    // receiver that is added twice gets every block twice.
    int AddOutputStream(TCIOStream* receiver);
    // 1 for an input, else the number of receivers.
    int GetFanCnt() const { return isInput ? 1 : fan.GetSize(); }
    TCIOStream* GetFan(int index);
    // The receiver that refused the last block, or -1; reading it resets it.
    int GetErrFan() const;
    int precision() const { return digits; }
    // Whether a block whose first segment has that type and number of dimensions fits after what waits at
    // every receiver: the last waiting block is of the same kind, or there is none. A receiver that refuses
    // becomes the error fan.
    bool VerifyType(DATATYPE type, int dims);
    // Drops receivers, queue, blocks and everything that they own. The stream is then a fresh writer.
    void DeleteStreams();

    // --- Writing: 0 and no effect while there is no receiver

    // Sets the metadata of the block being written. With `fix`, invalid values are repaired and states are
    // joined to the signal that waits at the receivers; without, a conflict is -4 and the block stays
    // reserved.
    int SetTI(const TCTypeInfo* ti, bool fix);
    // 1 when a block is reserved for writing.
    int StartWriteSegments();
    // One segment of one element; 0 when written. Each name once a block. A block must be reserved, else -14.
    int WriteSegment(const char* name, int value);
    int WriteSegment(const char* name, const double& value);
    int WriteSegment(const char* name, const TCString& value);
    int WriteSegment(const char* name, const CString& value);
    int WriteSegment(const char* name, const char* value);
    // A segment of nested blocks, copied deeply.
    int WriteSegment(const char* name, const TCArray<Block*>& blocks);
    // Dispatches the block; false when none is reserved.
    bool EndWriteSegments();
    // Forgets what was written in the block since it was reserved.
    void CancelWriteSegments();

    // Whole blocks of one unnamed segment, dispatched at once; 0 when written.
    int WriteIntVec(const int* data, int count);
    int WriteDblVec(const double* data, int count);
    int WriteStrVec(const TCString* data, int count);
    int WriteStrVec(const CString* data, int count);
    // Zero-copy: the caller's memory must stay valid and unchanged until every reader is done with the block.
    // With `copy` the elements are copied instead.
    int WriteIntMat(const int* data, int rows, int cols, bool copy = false);
    int WriteDblMat(const double* data, int rows, int cols, bool copy = false);
    int WritePtr(const void* data, int count);
    // A whole block, copied into the block being written and dispatched; 1 when written. After -4 the copy
    // stays reserved; after -14, as for a segment that was written before, what was begun and what was copied
    // up to there does.
    int WriteCopy(const Block* src);

    // --- Reading

    // Takes the next waiting block; 1 when there was one. `firstElements` sets every bus cursor to the first
    // block of its channel, else to the last one.
    int StartReadSegments(bool firstElements);
    int StartReadSegments() { return StartReadSegments(false); }
    // Segments of the block taken, counted over those that were written.
    int SegmentCnt() const;
    const TCString& SegmentName(int index) const;
    DATATYPE SegmentType(int index) const;
    int AvailableSegments(TCArray<TCString>* names) const;
    // Null when there is no such segment. Valid until the next take.
    const DataSegment* Segment(int index) const;
    const DataSegment* Segment(const char* name) const;
    // One value: the segment's last element, so that a segment that gathered several yields the newest. 1
    // when read.
    int ReadSegment(int index, int& value) const;
    int ReadSegment(int index, double& value) const;
    int ReadSegment(int index, TCString& value) const;
    int ReadSegment(int index, CString& value) const;
    int ReadSegment(const char* name, int& value) const;
    int ReadSegment(const char* name, double& value) const;
    int ReadSegment(const char* name, TCString& value) const;
    int ReadSegment(const char* name, CString& value) const;
    // The nested blocks, still owned by the segment. Answers their number.
    int ReadSegment(int index, TCArray<Block*>& blocks) const;
    int ReadSegment(const char* name, TCArray<Block*>& blocks) const;

    // Take the next block and read its first segment. `*count` is the capacity, then the number copied, which
    // is also the result; when the segment is longer its last elements are copied. A null `count` copies all.
    int ReadIntVec(int* buffer, int* count);
    int ReadDblVec(double* buffer, int* count);
    int ReadStrVec(TCString* buffer, int* count);
    int ReadStrVec(CString* buffer, int* count);
    int ReadStr(TCString& value);
    int ReadStr(CString& value);
    // Hand out the segment's own data (valid until the next take) and its shape; the result is the element
    // count.
    int ReadIntMat(int** data, int& rows, int& cols);
    int ReadDblMat(double** data, int& rows, int& cols);
    int ReadPtr(void** data, int* count);

    // Metadata of the block being written or read; null when it has none.
    const TCTypeInfo* GetTI() const;

    // --- Waiting blocks

    // For an input its queue's length; for a writer the longest queue among its receivers (and which).
    int GetBlockCnt(int* fanIndex) const {
        return isInput && fanIndex == nullptr ? queue.GetCount() : LongestQueue(fanIndex);
    }
    // Elements of one segment of a waiting block; 0 when there is none.
    int GetBlockLen(int block, int segment) const;
    // First segment of a waiting block, without taking it; the result is the element count, -1 when it is not
    // there or of another type.
    int PeekIntData(int block, const int*& data, int* rows, int* cols) const;
    int PeekDblData(int block, const double*& data, int* rows, int* cols) const;
    int PeekStrData(int block, const TCString*& data) const;
    // A waiting block, without taking it; null when there is none. Valid until it is taken.
    const Block* GetWaitingBlock(int block) const;
    // Metadata of the first waiting block, or null.
    const TCTypeInfo* PeekTI() const;
    // State of the first waiting block, or with `combine` of all waiting blocks together.
    TCBLOCKSTATUS PeekStatus(bool combine) const;

    // --- Moving blocks

    // Takes one block (one, despite the name) from the source and writes a copy of it with the given state;
    // results and what stays reserved as for `WriteCopy`. The block is taken first: without a receiver, and
    // with -14, it is dropped.
    int MoveBlocks(TCIOStream& source, TCBLOCKSTATUS state);
    // Writes a copy of a waiting block, which stays where it is; with `ti` the copy gets that metadata.
    int MoveBlock(TCIOStream& source, int index, const TCTypeInfo* ti, bool fix);
    // Takes the source's next block and hands the same block, not a copy, to every receiver. Nothing of it
    // can be changed on the way; where `SetTI` with `fix` has to change its state later, this writer's
    // receivers get a copy of their own, and other queues keep what they have. 1 when done; 0 when nothing
    // waits or there is no receiver; -4 on a state conflict (the block then stays with the source). With
    // `keep` it stays with the source in any case: so one block can be handed out again and again.
    int ForwardBlock(TCIOStream& source, bool keep = false);
    // Adds every waiting block of the source to this input's queue; the blocks are shared, their state too
    // where it is repaired. Answers the new length.
    int CopyBlockRefs(const TCIOStream& source);
    // With `take`, takes the next block for the caller to hold beyond the next read; the block held before is
    // given back. 1 when a block was taken.
    int ExchangeBinary(Block** held, bool take);
    // Drops the next waiting block, or all of them; answers how many. The last one dropped becomes the block
    // being read; where none waits there is none.
    int RemoveContents(bool all);

    // --- Bus segments: several channels in one block

    // A channel is one segment of nested blocks; its name is a bus segment name (see TCBusSerializeHelper).
    // Of a name that was written in an earlier use of the block, port index and signal name count; the
    // segment keeps the other texts of that use. Each write adds one block, with its own metadata (null:
    // none), to the channel of that name. A block must be reserved. `extents` has `dims` entries; without
    // `copy` the data must stay valid until every reader is done. 0 when written.
    int WriteBusSegment(const char* name, DATATYPE type, int dims, const int* extents, const void* data,
                        bool copy, const TCTypeInfo* ti);
    // The segment of the block being read whose bus name has the signal name `name`, or with a null name the
    // port index `channel`; -1 when there is none.
    int FindBusSegment(const char* name, int channel) const;
    // The blocks that the channel holds; 0 when the segment is no channel.
    int BusSegmentCnt(int index) const;
    // Elements of the channel's block at the cursor; 0 when there is none.
    int BusSegmentElementCnt(int index) const;
    // The data of the channel's block at the cursor, and its metadata when `ti` is given (reset when the
    // block has none); the cursor moves on. Null when the channel is used up. Valid until the next take.
    const DataSegment* ReadBusSegment(int index, TCTypeInfo* ti);

    // --- Packed and text forms

    // The packed frame of the first waiting block: a mark, a version, the total length and a checksum in
    // front of the metadata and all written segments. A null buffer answers the size and takes nothing; with
    // a buffer of that size the block is taken. 0 when nothing waits. -14, and the block stays, when it
    // cannot be packed: an address has no meaning elsewhere, so POINTER segments are refused, and so are more
    // than 32 levels of nested blocks and frames beyond 2 GB.
    int SerializeBlock(char* buffer);
    // Reads one frame of exactly `size` bytes and dispatches the block; 1 when done, -4 on a state conflict.
    // A frame that is short, long, of another version or damaged is -14. In both cases nothing changes. The
    // block that is being written, if any, is left alone.
    int DeSerializeBlock(const char* frame, int size);
    // The older text form of a waiting block, in tokens of TCSerializeOldStream: the word BUS and a blank;
    // the number of segments; 1 with the state and the metadata, or 0; then for each segment its name, type,
    // number of dimensions, extents and values (nested blocks in the same form). Empty when there is no such
    // block, or when it holds a POINTER segment, more than 32 levels or more than a text can hold.
    TCString SerializeForOldStream(int index) const;
    // Reads that form from [text, end), moves `text` past it and dispatches the block; results as for
    // DeSerializeBlock. Text that is not well formed changes nothing, not even `text`.
    int DeSerializeForOldStream(const char*& text, const char* end);
    // The values of one segment of a waiting block, to be read by people: separated by a blank, each row of a
    // matrix on a line of its own (line feed); strings as they are, a nested block's segments in braces, the
    // address of a pointer. Doubles are written by `ftoa`; negative `decimals` mean `precision()`, more than
    // 400 are cut. Empty when there is no such segment.
    TCString ConvertToString(int block, int segment, bool decimalComma, StringFormat format,
                             int decimals) const;

    // --- XML form
    //
    //   Stream
    //     Block                    one per block
    //       TypeInfo               where the block has metadata
    //         State (Value: its number), Name, Timestamp, Samplerate, Range (Min, Max), Unit
    //       Segments
    //         Segment              one per segment
    //           Name, DataType (Value: its number), Length: the extents
    //           Values             Integer or Double: all numbers; else one String or Block per element; or
    //                              Pointer
    //
    // Numbers are written in the hexadecimal forms of HexDouble.h, names and strings as
    // TCXML::QuoteNodeTextString quotes them, so that a block comes back bit for bit. What does not:
    //
    //   infinity, not-a-number   both are written -1.#IND, which reads as not-a-number
    //   unit                     its text: the factor is cut to a power of ten, and what TCSI_Unit writes but
    //                            does not read is refused here too: "1 * 1e+003", the text of a number
    //                            without a unit, and exponents that are out of its range
    //   POINTER                  the address, which means something inside this process only
    //   data not owned           reads back as data that the segment owns

    // Makes a new document in `xml` of the next waiting block, which is taken, or with `peek` of the one at
    // `index`, which stays. Without a block, and for a writer, the document is an empty `Stream`. Afterwards
    // no block is the one being read. False when writing failed, as for more than 255 levels of blocks; a
    // block that was taken stays taken.
    bool StreamToXML(TCXML& xml, bool peek, int index);
    // Reads and dispatches every block of the document, one after the other, and answers their number. The
    // blocks before a failure have been dispatched. -2, and the message in `xml`, at the first block that
    // cannot be read, and at once when `xml` already holds an error; -4 on a state conflict, 0 without a
    // receiver. A block that was begun on this writer gets the first one's segments and metadata, and keeps
    // its own. The block of a failure stays reserved: empty when it cannot be read and was not begun; whole
    // after -4.
    //
    // Metadata that are left out keep the defaults of TCTypeInfo, the timestamp too: it is not set to the
    // present. A number of states or types counts more than its name. Numbers may have all forms of
    // StringToDouble, and of strtoul for ints, with any white space between them. A Length that does not
    // agree with the elements is refused, before anything is allocated for it.
    int XMLToStream(TCXML& xml);

    static const char* DataTypeToString(DATATYPE type);
    // Without regard to case; -1 when the text names no type.
    static int StringToDataType(const char* text);

 private:
    bool CanWrite() const { return !isInput && !fan.IsEmpty(); }
    TC_LOCAL int ReserveBlock(bool clearTypeInfo);
    TC_LOCAL int ReserveNewBlock(bool clearTypeInfo);
    TC_LOCAL Block* TakeFreeBlock();
    TC_LOCAL void AddBlockToFreeList(Block* block);
    TC_LOCAL static void Release(Block* block);
    TC_LOCAL static int GiveBack(Block* block, int result);
    TC_LOCAL int WriteSingle(const char* name, DATATYPE type, const void* value);
    TC_LOCAL int WriteWhole(DATATYPE type, int dims, const int* extents, const void* data, bool copy);
    template <typename Text>
    bool WriteTexts(const char* name, const Text* texts, int count);
    template <typename Number>
    int WriteNumbers(DATATYPE type, const Number* data, int count);
    TC_LOCAL int FinishWhole(bool written);

    TC_LOCAL Block* TakeBlock();
    TC_LOCAL bool RemoveBlock();
    TC_LOCAL int PeekBlock(int index);
    TC_LOCAL Block* QueuedBlock(int index) const;
    int LongestQueue(int* fanIndex) const;
    template <typename Read>
    int TakeWhole(Read read);
    TC_LOCAL const DataSegment* PeekSegment(int block, int segment, DATATYPE type) const;

    TC_LOCAL bool DispatchBlock();
    TC_LOCAL int CheckAndDispatch(Block* block, bool fix);
    TC_LOCAL int DispatchChecked(bool fix);
    TC_LOCAL int DispatchFilled(Block* block, bool filled);
    TC_LOCAL int WriteMoved(const Block& block, TCBLOCKSTATUS state);
    TC_LOCAL bool Dispatch(Block* block, int held = 0);
    TC_LOCAL bool DispatchFrom(int done, Block* block, int held);
    TC_LOCAL bool TakeBack(int receivers);
    TC_LOCAL int RemoveAllContents();
    TC_LOCAL int CheckBlockState(TCTypeInfo* ti, bool fix);
    TC_LOCAL bool JoinQueue(Fan& waiting, TCTypeInfo* ti, bool fix);
    TC_LOCAL TCTypeInfo* OwnTypeInfo(Fan& waiting, int index);
    TC_LOCAL static void ChangeFlags(TCTypeInfo* ti, int begins, int ends);
    void SetErrFan(int index) const { errorFan = index; }

    // What a hand-off touches lies together.
    Fan queue;  // of an input
    Block* actualBlock = nullptr;
    bool isInput = false;
    TCArray<TCIOStream*> fan;
    TCList<Block*> freeList;
    TCArray<Block*> allBlocks;
    std::int32_t digits = 3;
    mutable std::int32_t errorFan = -1;
};

// One named array of elements of a block. Owned by its block.
class TC_API TCIOStream::DataSegment {
 public:
    ~DataSegment();
    DataSegment() = default;
    DataSegment(const DataSegment&) = delete;
    DataSegment& operator=(const DataSegment&) = delete;

    const TCString& GetName() const { return name; }
    DATATYPE GetType() const { return type; }
    int GetDimensionCount() const { return dimensionCount; }
    // 0 for a dimension that the segment does not have.
    int GetExtent(int dimension) const {
        return dimension >= 0 && dimension < dimensionCount ? dimensions[dimension] : 0;
    }
    int GetElementCount() const { return elementCount; }
    // One dimension is a row; two are rows and columns; others are 0 and 0.
    void GetShape(int& rows, int& cols) const {
        const bool matrix = dimensionCount == 2;
        rows = matrix ? dimensions[0] : dimensionCount == 1 ? 1 : 0;
        cols = matrix ? dimensions[1] : dimensionCount == 1 ? dimensions[0] : 0;
    }
    // Null unless the segment has that element type.
    const int* GetInts() const { return type == INT ? static_cast<const int*>(data) : nullptr; }
    const double* GetDoubles() const { return type == DOUBLE ? static_cast<const double*>(data) : nullptr; }
    const TCString* GetStrings() const {
        return type == STRING ? static_cast<const TCString*>(data) : nullptr;
    }
    Block* const* GetBlocks() const { return type == BLOCK ? static_cast<Block* const*>(data) : nullptr; }
    const void* GetData() const { return data; }

 private:
    friend class TCIOStream;
    friend class TCIOStream::Block;
    friend class tc::SegmentIndex;

    // Stores the elements, copied or by address; with `copy` a null `source` gives empty texts and blocks,
    // and numbers that are not set. Keeps the storage when it is large enough, nested blocks when their
    // number stays. False when the type or the shape is none; throws std::bad_alloc.
    TC_LOCAL bool SetData(DATATYPE newType, int dims, const int* extents, const void* source, bool copy);
    TC_LOCAL void SetShape(DATATYPE newType, int dims, const int* extents);
    TC_LOCAL void* Storage(DATATYPE newType, int count);
    TC_LOCAL bool Fill(int count, const void* source);
    bool OwnsBlocks() const { return ownsData && type == BLOCK; }
    // An owned nested block, created when it is not there yet.
    TC_LOCAL Block* OwnBlock(int index);
    TC_LOCAL void Free();

    int& Cursor() { return dimensions[dimensionCount]; }
    int Cursor() const { return dimensions[dimensionCount]; }
    // The nested block at the cursor; null when the channel is used up or the segment holds no blocks.
    TC_LOCAL Block* BlockAtCursor() const;

    TCString name;
    DATATYPE type = UNDEF;
    std::int32_t dimensionCount = 0;
    TCArray<int> dimensions;  // the bus cursor is kept after the dimensions
    void* data = nullptr;
    bool written = false;
    bool ownsData = false;
    std::int32_t capacity = 0;      // elements of the owned storage
    std::int32_t elementCount = 0;  // the product of the dimensions
};

// A TCTypeInfo and an ordered set of segments. Owned by the writer that allocated it, or by the segment it is
// nested in. Readers see only what was written in the block's current use.
class TC_API TCIOStream::Block {
 public:
    Block();
    ~Block();
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;

    // Null when the block has no valid metadata.
    const TCTypeInfo* GetTI() const { return typeInfoValid ? typeInfo : nullptr; }
    // Null marks the metadata as invalid. False when there is no memory.
    bool SetTI(const TCTypeInfo* ti);
    int SegmentCnt() const;
    const DataSegment* Segment(int index) const;
    // Writes one segment; the data is copied, except what a POINTER points at. A block that is used again
    // keeps its segments, with their names and in the order of their creation. False for a name that is
    // already written, no elements, or no memory.
    bool AddSegment(const char* name, DATATYPE type, int dims, const int* extents, const void* data);
    // The same with elements for the caller to fill (texts and blocks are empty, numbers not set): `elements`
    // points at ints, doubles, TCStrings or pointers to nested blocks, and is null when the shape has none.
    // Valid until the block is dispatched.
    bool AddEmptySegment(const char* name, DATATYPE type, int dims, const int* extents, void*& elements);

 private:
    friend class TCIOStream;
    friend class TCIOStream::DataSegment;

    TC_LOCAL DataSegment* At(int index) const;
    // Where the block looks as in its last use, nothing is found, shaped or allocated: the only segment, when
    // it has no name, was not written yet, and owns room for `count` elements of the type in one dimension.
    // It then has that many, for the caller to fill. Else null.
    TC_LOCAL DataSegment* WriteSameAgain(DATATYPE type, int count);
    // Searches round the segments from after the last one found, so that segments in the order of their
    // creation are found in one step; of many segments, others are found by an index. A null name is the
    // empty one.
    TC_LOCAL DataSegment* Find(const char* name, bool writtenOnly);
    template <typename Ask>
    int AskIndex(Ask ask) const;
    // The written segment of that number, where some are not written.
    TC_LOCAL DataSegment* WrittenAt(int number) const;
    // See TCIOStream::FindBusSegment.
    TC_LOCAL int FindChannel(const char* signal, int port) const;
    // The segment after the last one found, going round.
    TC_LOCAL DataSegment* Next();
    // The segment to write under that name, created when it is new; null when it is already written, unless
    // `append` asks for it.
    TC_LOCAL DataSegment* Open(const char* name, bool append);
    TC_LOCAL void Close(DataSegment& segment);
    TC_LOCAL bool Write(const char* name, DATATYPE type, int dims, const int* extents, const void* data,
                        bool copy);
    TC_LOCAL bool Append(const char* name, DATATYPE type, int dims, const int* extents, const void* data,
                         bool copy, const TCTypeInfo* ti);
    // Sets the metadata, which may be the block's own, and writes the written segments of `source`; owned
    // data is copied deeply. False at the first that fails; what was written before it stays.
    TC_LOCAL bool CopyFrom(const Block& source, const TCTypeInfo* ti);
    // Ready for reuse: nothing is written; all segments and their storage are kept.
    TC_LOCAL void Reset(bool clearTypeInfo);

    TCTypeInfo* typeInfo = nullptr;
    TCArray<DataSegment*> segments;
    std::int32_t currentSegment = -1;
    std::int32_t referenceCount = 0;
    bool typeInfoValid = false;
    bool forwarded = false;      // by a writer that did not allocate it
    TCIOStream* home = nullptr;  // the writer that allocated the block and takes it back
    std::int32_t writtenCount = 0;
    mutable std::unique_ptr<tc::SegmentIndex> names;  // of many segments
};
