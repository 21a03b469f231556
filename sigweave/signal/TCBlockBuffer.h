#pragma once

#include <cstdint>

#include "sigweave/foundation/TCArray.h"
#include "sigweave/platform/Export.h"
#include "sigweave/signal/TCTypeInfo.h"

class TCPortHelper;

// Gathers the blocks that arrive on an input of a module into plain arrays, keeps them as long as the module
// likes, and writes them on an output, one by one or joined. Several inputs may feed one buffer.
//
// It owns its blocks, those in use and some spare ones, so gathering and writing over and over allocates
// nothing. The port helper is not owned and must outlive the buffer's port operations. Belongs to the thread
// that runs the graph.
//
// Results: a negative code is a failure; -1 there is no port helper, others as for TCPortHelper, whose error
// record then says more. Nothing throws.
class TC_API TCBlockBuffer {
 public:
    class TCBlock;

    TCBlockBuffer() = default;
    ~TCBlockBuffer();
    TCBlockBuffer(const TCBlockBuffer&) = delete;
    TCBlockBuffer& operator=(const TCBlockBuffer&) = delete;

    void SetPortHelper(TCPortHelper* helper) { portHelper = helper; }
    // How StrLen and GetDataSize count texts; see TCBlock::StrLen. Off in a new buffer.
    void SetBinStr(bool binary) { binaryStrings = binary; }

    // --- Blocks, in the order of their arrival

    int GetSize() const { return blocks.GetSize(); }
    // Valid until the block is removed. The index is not checked.
    TCBlock* operator[](unsigned int index) { return blocks[static_cast<int>(index)]; }
    const TCBlock* operator[](unsigned int index) const { return blocks[static_cast<int>(index)]; }
    // Appends a block of `size` elements, a spare one that is large enough or else a new one. Its elements
    // are for the caller to fill; its metadata are as in a new block. Null where TCBlock::SetSize fails.
    TCBlock* NewBlock(unsigned long type, unsigned int size);
    // Appends a block, which was made with `new` and belongs to the buffer from then on, and answers its
    // index; -1, and the caller keeps the block, for null or without memory.
    int Add(TCBlock* block);
    // The block is kept as a spare one, unless there are more of those than twice the blocks that are left
    // plus 20, or it is deleted with `freeMemory`. An index out of range is ignored.
    void RemoveAt(unsigned int index, bool freeMemory);
    // At most 10 spare blocks are kept, none with `freeMemory`.
    void RemoveAll(bool freeMemory);

    // --- Ports

    // Reads the next waiting block of the input, or with `all` every one; answers how many. Each becomes a
    // block of the input's type. One that cannot be read ends it with its code; those before it are kept.
    int ReadBlock(unsigned int port, bool all);
    // TCBlock::WriteBlock of one block, which stays in the buffer; 0 for an index out of range.
    int WriteBlock(unsigned int port, unsigned int index);
    // Writes all blocks, which stay in the buffer, and answers 0, or the first negative code, where it ends.
    //
    // With `concatenated` they become one block: their elements in order, the first block's metadata, and a
    // state that covers them all (START when one of them begins a signal, STOP when one ends one, COMPLETE
    // for both, else BUSY). Blocks that do not belong together are refused, and nothing is written: -2 for
    // element types that differ (single values and arrays of one element type may be mixed, vectors and
    // matrices may not) and for several packed blocks, -15 for samplerates, -6 for units, and -5 for
    // matrices with different numbers of columns. -14 for more elements than a block can have.
    int WriteAllBlocks(unsigned int port, bool concatenated);

    // --- Sizes; what does not fit into an int is cut to its limit

    // The elements of all blocks.
    int CountElems() const;
    // Bytes of an element of the block: 4 for integers, 8 for doubles, 1 for texts and packed blocks; 0 for
    // an index out of range.
    int ElemSize(int index) const;
    // The text length of all blocks of texts.
    int StrLen() const;
    // Bytes of all blocks, where texts count by their length.
    int GetDataSize() const;

 private:
    TC_LOCAL TCBlock* TakeFreeBlock(unsigned long type, unsigned int size);
    TC_LOCAL bool KeepFree(TCBlock* block);
    TC_LOCAL int WriteConcatenatedBlocks(unsigned int port);
    TC_LOCAL int CheckConcatenation(unsigned int port) const;
    TC_LOCAL TCBLOCKSTATUS GetCommonStatus() const;
    bool CheckPortHelper() const { return portHelper != nullptr; }

    TCPortHelper* portHelper = nullptr;
    TCArray<TCBlock*> blocks;
    TCArray<TCBlock*> freeBlocks;
    bool binaryStrings = false;
};

// An array of elements of one type, with its metadata. The type is a port data type code: the low 24 bits of
// a TCPortHelper::TYPE, of which one is set, or 0 for a block in its packed form, whose elements are bytes.
class TC_API TCBlockBuffer::TCBlock {
 public:
    // No elements, default metadata.
    explicit TCBlock(unsigned long type) : dataType(static_cast<std::uint32_t>(type)) {}
    // A copy has room for its elements only; it is empty without memory.
    TCBlock(const TCBlock& other);
    // The block becomes a copy, of the other's type. Unchanged without memory.
    TCBlock& operator=(const TCBlock& other);
    ~TCBlock();

    int GetSize() const { return size; }
    // Elements that there is room for.
    int GetAllocSpace() const { return allocSpace; }
    // An int, double, TCString or byte for each element, as the type says; null before there are any. Valid
    // until the size grows.
    void* GetData() { return data; }
    const void* GetData() const { return data; }
    unsigned long DataType() const { return dataType; }
    // Keeps the elements that there are; those that are added have no particular value. The room grows to
    // exactly `count` and never shrinks. False, and nothing changed, when there is no memory, for more than
    // 2^31 - 1 elements, and for any elements of a type that has none.
    bool SetSize(unsigned int count);

    TCBLOCKSTATUS GetStatus() const { return typeInfo.GetState(); }
    // Also answers the state. Without memory for the name nothing is copied, here and in SetTI.
    TCBLOCKSTATUS GetTI(TCTypeInfo& out) const;
    // Ignored for null, and for a packed block, which carries its own.
    void SetTI(const TCTypeInfo* ti);

    // The block becomes the next one that waits on the input, which must be of the same element type; a
    // packed block takes any. 1 when it was read (a block without elements included), for a packed block 0; 0
    // also when nothing waits or the input is of another type. A matrix keeps its columns. -14 for a block
    // that cannot be packed, and without memory; it still waits then, unless there was none for its texts or
    // its name.
    int ReadBlock(TCPortHelper* ph, unsigned int port);
    // Writes a copy, with the block's metadata, on an output of the same element type. 0 when written, and
    // when there was nothing to do: another type, no receiver, no elements (but a matrix of no rows is
    // written, with its columns). -14 for elements of a matrix without columns.
    // A packed block has its own metadata; -2 when its values are not of the output's type, -14 when its
    // bytes are no whole frame.
    int WriteBlock(TCPortHelper* ph, unsigned int port) const;

    // Characters, which are bytes, of all texts together, without anything between or after them. A text
    // ends at its first zero byte; with `binary` all its bytes count. 0 for a block of other elements.
    int StrLen(bool binary) const;

 private:
    friend class TCBlockBuffer;

    static constexpr int NO_PORT_HELPER = -1;

    TC_LOCAL static std::uint32_t MakeCompatibleDatatype(unsigned long type);
    TC_LOCAL static int ElemSize(unsigned long type);
    TC_LOCAL static void* Alloc(int count, unsigned long type);
    TC_LOCAL static void Free(void* elements, unsigned long type);
    TC_LOCAL static bool CopyData(void* to, const void* from, unsigned int count, unsigned long type);
    TC_LOCAL bool CopyFrom(const TCBlock& other);
    TC_LOCAL bool CopyTI(const TCBlock& other, TCBLOCKSTATUS state);
    TC_LOCAL bool IsFree(unsigned long type, unsigned int count) const;
    TC_LOCAL bool IsMatrix() const;
    TC_LOCAL bool IsText() const;
    TC_LOCAL bool Put(int position, const TCBlock& block);
    // 0 when the other's elements can follow this block's, else what keeps them apart.
    TC_LOCAL int Misfit(const TCBlock& other) const;
    TC_LOCAL static int NotCreated(TCPortHelper* ph, int kind, unsigned int port);
    TC_LOCAL int Read(TCPortHelper* ph, unsigned int port);
    TC_LOCAL int Write(TCPortHelper* ph, unsigned int port) const;
    TC_LOCAL int TakeEmpty(TCPortHelper* ph, unsigned int port);
    TC_LOCAL int ReadPacked(TCPortHelper* ph, unsigned int port);
    TC_LOCAL int ReadValues(TCPortHelper* ph, unsigned int port);
    TC_LOCAL int WritePacked(TCPortHelper* ph, unsigned int port) const;
    TC_LOCAL int WriteMatrix(TCPortHelper* ph, unsigned int port) const;
    TC_LOCAL int WriteEmptyMatrix(TCPortHelper* ph, unsigned int port) const;

    void* data = nullptr;
    std::int32_t size = 0;
    std::int32_t allocSpace = 0;
    std::int32_t columns = 0;
    std::uint32_t dataType;
    TCTypeInfo typeInfo;
};

static_assert(sizeof(TCBlockBuffer::TCBlock) == 24 + sizeof(TCTypeInfo));
