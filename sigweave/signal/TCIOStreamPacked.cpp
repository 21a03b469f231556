#include <array>
#include <climits>
#include <cstring>

#include "sigweave/persistence/TCSerializeHelper.h"
#include "sigweave/signal/StreamInternal.h"
#include "sigweave/signal/TCIOStream.h"

namespace {

using Block = TCIOStream::Block;
using Segment = TCIOStream::DataSegment;

// A frame, all numbers little-endian (stored; never change):
//
//   0  mark "SWBK"   4  version   8  length of the whole frame   12  CRC-32 of what follows   16  a block
//
//   block    a byte, 1 or 0: whether the packed record of its metadata follows; number of segments; segments
//   segment  length of the name and the name; type; number of dimensions; extents; elements
//   element  4 or 8 bytes; a string with its length in front; a block
constexpr int MARK = 0x4B425753;
constexpr int VERSION = 1;
constexpr int HEADER_SIZE = 16;
constexpr int METADATA_SIZE = 59;  // with an empty name
constexpr int NAME_LENGTH_AT = 51;
constexpr int SMALLEST_BLOCK = 5;

constexpr auto CRC_TABLE = [] {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t i = 0; i < 256; ++i) {
        std::uint32_t value = i;
        for (int bit = 0; bit < 8; ++bit) value = (value & 1) != 0 ? value >> 1 ^ 0xEDB88320u : value >> 1;
        table[i] = value;
    }
    return table;
}();

int Checksum(const char* bytes, std::int64_t count) {
    std::uint32_t value = UINT32_MAX;
    for (std::int64_t i = 0; i < count; ++i)
        value = CRC_TABLE[(value ^ static_cast<unsigned char>(bytes[i])) & 0xFF] ^ value >> 8;
    return static_cast<int>(~value);
}

std::int64_t ElementSize(TCIOStream::DATATYPE type) {
    return type == TCIOStream::INT ? sizeof(int) : sizeof(double);
}

// Puts items one behind the other; without a buffer it only counts.
class Packer {
 public:
    explicit Packer(char* start) : buffer(start) {}
    std::int64_t Size() const { return size; }

    template <typename Value>
    void Put(const Value& value) {
        size += TCSerializeHelper::Serialize(Place(), value);
    }

    // False for a block that cannot be packed.
    bool PutBlock(const Block& block, int level) {
        const TCTypeInfo* ti = block.GetTI();
        Put(ti != nullptr);
        if (ti != nullptr) size += TCSerializeHelper::SerializeWithStatus(Place(), *ti);
        Put(block.SegmentCnt());
        for (int i = 0; i < block.SegmentCnt(); ++i)
            if (!PutSegment(*block.Segment(i), level)) return false;
        return level <= tc::MOST_LEVELS;
    }

 private:
    char* Place() const { return buffer != nullptr ? buffer + size : nullptr; }

    bool PutSegment(const Segment& segment, int level) {
        if (!tc::HasValues(static_cast<int>(segment.GetType())) || level > tc::MOST_LEVELS) return false;
        Put(segment.GetName());
        Put(static_cast<int>(segment.GetType()));
        Put(segment.GetDimensionCount());
        for (int i = 0; i < segment.GetDimensionCount(); ++i) Put(segment.GetExtent(i));
        return PutElements(segment, segment.GetElementCount(), level);
    }

    bool PutElements(const Segment& segment, int count, int level) {
        if (segment.GetBlocks() != nullptr) {
            for (int i = 0; i < count; ++i)
                if (!PutBlock(*segment.GetBlocks()[i], level + 1)) return false;
            return true;
        }
        if (segment.GetStrings() != nullptr)
            for (int i = 0; i < count; ++i) Put(segment.GetStrings()[i]);
        else
            PutBytes(segment.GetData(), count * ElementSize(segment.GetType()));
        return true;
    }

    void PutBytes(const void* bytes, std::int64_t count) {
        if (buffer != nullptr && count > 0) std::memcpy(Place(), bytes, static_cast<std::size_t>(count));
        size += count;
    }

    char* buffer;
    std::int64_t size = 0;
};

// Takes items one behind the other. Each read checks that all of the item is there.
class Unpacker {
 public:
    Unpacker(const char* start, const char* stop) : at(start), end(stop) {}
    bool IsAtEnd() const { return at == end; }

    bool GetBlock(Block& block, int level) {
        bool hasMetadata;
        int count;
        if (level > tc::MOST_LEVELS || !GetFlag(hasMetadata) || (hasMetadata && !GetMetadata(block)) ||
            !Get(count) || count < 0)
            return false;
        for (int i = 0; i < count; ++i)
            if (!GetSegment(block, level)) return false;
        return true;
    }

 private:
    bool Has(std::int64_t bytes) const { return bytes <= end - at; }

    bool Get(int& value) {
        if (!Has(sizeof value)) return false;
        at = TCSerializeHelper::DeSerialize(value, at);
        return true;
    }

    bool GetFlag(bool& value) {
        if (!Has(1) || (*at != 0 && *at != 1)) return false;
        at = TCSerializeHelper::DeSerialize(value, at);
        return true;
    }

    bool Get(TCString& value) {
        int length;
        if (!Has(sizeof length)) return false;
        TCSerializeHelper::DeSerialize(length, at);
        if (length < 0 || !Has(std::int64_t{length} + 4)) return false;
        at = TCSerializeHelper::DeSerialize(value, at);
        return true;
    }

    bool GetMetadata(Block& block) {
        if (!Has(METADATA_SIZE)) return false;
        int rest, nameLength;
        TCSerializeHelper::DeSerialize(rest, at);
        TCSerializeHelper::DeSerialize(nameLength, at + NAME_LENGTH_AT);
        if (nameLength < 0 || !Has(std::int64_t{nameLength} + METADATA_SIZE)) return false;
        if (rest != nameLength + METADATA_SIZE - 4) return false;
        TCTypeInfo ti;
        at = TCSerializeHelper::DeSerializeWithStatus(ti, at);
        return block.SetTI(&ti);
    }

    bool GetSegment(Block& block, int level) {
        TCString name;
        int type, dims;
        if (!Get(name) || name.CalcDataFormat() != TCString::ASCII || !Get(type) || !Get(dims)) return false;
        if (!tc::HasValues(type) || dims < 0 || !Has(std::int64_t{4} * dims)) return false;
        TCArray<int> extents;
        extents.SetSize(dims);
        for (int& extent : extents)
            if (!Get(extent)) return false;
        return GetElements(block, name, static_cast<TCIOStream::DATATYPE>(type), extents, level);
    }

    bool GetElements(Block& block, const TCString& name, TCIOStream::DATATYPE type,
                     const TCArray<int>& extents, int level) {
        std::int64_t count = extents.IsEmpty() ? 0 : 1;
        for (const int extent : extents) {
            count *= extent;
            if (extent < 0 || !Has(count * SmallestElement(type))) return false;
        }
        void* elements;
        if (!block.AddEmptySegment(name, type, extents.GetSize(), extents.GetData(), elements)) return false;
        if (type == TCIOStream::STRING || type == TCIOStream::BLOCK)
            return GetEach(type, elements, static_cast<int>(count), level);
        const std::int64_t bytes = count * ElementSize(type);
        if (bytes > 0) std::memcpy(elements, at, static_cast<std::size_t>(bytes));
        at += bytes;
        return true;
    }

    bool GetEach(TCIOStream::DATATYPE type, void* elements, int count, int level) {
        const bool texts = type == TCIOStream::STRING;
        for (int i = 0; i < count; ++i)
            if (!(texts ? Get(static_cast<TCString*>(elements)[i])
                        : GetBlock(*static_cast<Block**>(elements)[i], level + 1)))
                return false;
        return true;
    }

    static std::int64_t SmallestElement(TCIOStream::DATATYPE type) {
        if (type == TCIOStream::BLOCK) return SMALLEST_BLOCK;
        return type == TCIOStream::DOUBLE ? 8 : 4;
    }

    const char* at;
    const char* end;
};

// Whether the frame's own words agree with its bytes.
bool IsWhole(const char* frame, int size) {
    if (frame == nullptr || size < HEADER_SIZE) return false;
    int words[HEADER_SIZE / 4];
    for (int& word : words) frame = TCSerializeHelper::DeSerialize(word, frame);
    return words[0] == MARK && words[1] == VERSION && words[2] == size &&
           words[3] == Checksum(frame, size - HEADER_SIZE);
}

}  // namespace

int TCIOStream::SerializeBlock(char* buffer) {
    const Block* block = QueuedBlock(0);
    if (block == nullptr) return 0;
    Packer measured(nullptr);
    if (!measured.PutBlock(*block, 1) || measured.Size() > INT_MAX - HEADER_SIZE) return tc::NOT_WRITTEN;
    const int size = static_cast<int>(measured.Size()) + HEADER_SIZE;
    if (buffer == nullptr) return size;
    Packer(buffer + HEADER_SIZE).PutBlock(*block, 1);
    Packer header(buffer);
    for (const int word : {MARK, VERSION, size, Checksum(buffer + HEADER_SIZE, size - HEADER_SIZE)})
        header.Put(word);
    RemoveBlock();
    return size;
}

int TCIOStream::DeSerializeBlock(const char* frame, int size) {
    if (!CanWrite()) return 0;
    Block* block = IsWhole(frame, size) ? TakeFreeBlock() : nullptr;
    if (block == nullptr) return tc::NOT_WRITTEN;
    block->Reset(true);
    Unpacker items(frame + HEADER_SIZE, frame + size);
    const bool filled = tc::Guarded([&] { return items.GetBlock(*block, 1) && items.IsAtEnd(); }, false);
    return DispatchFilled(block, filled);
}
