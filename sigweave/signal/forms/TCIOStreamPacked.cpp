#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>

#include "sigweave/persistence/TCSerializeHelper.h"
#include "sigweave/signal/StreamInternal.h"
#include "sigweave/signal/TCIOStream.h"
#include "sigweave/signal/forms/FrameChecksum.h"

namespace {

using Block = TCIOStream::Block;
using Segment = TCIOStream::DataSegment;

// A frame, all numbers little-endian (stored; never change):
//
//   0  mark "SWBK"   4  version   8  length of the whole frame   12  0   16  checksum of what follows, 8
//   bytes 24  a block, then zero bytes up to a multiple of 8
//
//   block    a byte, 1 or 0: whether the packed record of its metadata follows; number of segments; segments
//   segment  length of the name and the name; type; number of dimensions; extents; elements
//   element  4 or 8 bytes; a string with its length in front; a block. Numbers begin at a multiple of 8
//            bytes, with zero bytes before them.
constexpr int MARK = 0x4B425753;
constexpr int VERSION = 2;
constexpr int HEADER_SIZE = 24;
constexpr int CHECKSUM_AT = 16;
constexpr int METADATA_SIZE = 59;  // with an empty name
constexpr int NAME_LENGTH_AT = 51;
constexpr int SMALLEST_BLOCK = 5;
constexpr std::int64_t WORD = 8;
constexpr int FEW_DIMENSIONS = 4;

std::int64_t WholeWords(std::int64_t bytes) {
    return (bytes + WORD - 1) / WORD * WORD;
}

std::int64_t ElementSize(TCIOStream::DATATYPE type) {
    return type == TCIOStream::INT ? sizeof(int) : sizeof(double);
}

// Puts items one after the other; without a buffer it only counts. Numbers are summed as they are copied,
// everything else before the next numbers.
class Packer {
 public:
    explicit Packer(char* start) : buffer(start) {}
    std::int64_t Size() const { return size; }

    void Put(int value) {
        if (buffer != nullptr) std::memcpy(Place(), &value, sizeof value);
        size += sizeof value;
    }

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

    // Puts zero bytes up to the end of the word.
    void Align() {
        for (; size % WORD != 0; ++size)
            if (buffer != nullptr) *Place() = '\0';
    }

    // The checksum of all that was put, after an alignment.
    std::uint64_t Checksum() {
        SumUpToHere();
        return sums.Value();
    }

 private:
    void SumUpToHere() {
        sums.Add(buffer + summed, static_cast<std::size_t>(size - summed) / WORD);
        summed = size;
    }

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
        if (segment.GetType() == TCIOStream::BLOCK) {
            for (int i = 0; i < count; ++i)
                if (!PutBlock(*segment.GetBlocks()[i], level + 1)) return false;
            return true;
        }
        if (segment.GetType() == TCIOStream::STRING)
            for (int i = 0; i < count; ++i) Put(segment.GetStrings()[i]);
        else
            PutNumbers(static_cast<const char*>(segment.GetData()), count * ElementSize(segment.GetType()));
        return true;
    }

    void PutNumbers(const char* numbers, std::int64_t bytes) {
        Align();
        if (buffer != nullptr && bytes > 0) {
            SumUpToHere();
            const std::int64_t whole = bytes / WORD * WORD;
            sums.AddCopy(Place(), numbers, static_cast<std::size_t>(whole / WORD));
            std::memcpy(Place() + whole, numbers + whole, static_cast<std::size_t>(bytes - whole));
            summed = size + whole;
        }
        size += bytes;
    }

    char* buffer;
    std::int64_t size = 0;
    std::int64_t summed = 0;
    tc::FrameChecksum sums;
};

// Takes items one after the other. Each read checks that all of the item is there. The checksum comes last:
// it is formed while numbers are copied.
class Unpacker {
 public:
    Unpacker(const char* first, const char* stop) : start(first), at(first), end(stop) {}

    // Whether all was read, and was what the checksum says.
    bool IsWhole(std::uint64_t checksum) {
        if (!Align() || at != end) return false;
        SumUpTo(end);
        return sums.Value() == checksum;
    }

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

    bool Align() {
        const std::int64_t skipped = WholeWords(at - start) - (at - start);
        if (!Has(skipped) || std::any_of(at, at + skipped, [](char byte) { return byte != 0; })) return false;
        at += skipped;
        return true;
    }

    // Whole words; the rest waits for the next time.
    void SumUpTo(const char* stop) {
        const auto words = (stop - start) / WORD - summed;
        sums.Add(start + summed * WORD, static_cast<std::size_t>(words));
        summed += words;
    }

    bool Skip(std::int64_t bytes) {
        at += bytes;
        return true;
    }

    bool Get(int& value) {
        if (!Has(sizeof value)) return false;
        std::memcpy(&value, at, sizeof value);
        return Skip(sizeof value);
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
        if (length == 0 && value.IsEmpty()) return Skip(sizeof length);
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
        if (!Get(name) || (!name.IsEmpty() && name.CalcDataFormat() != TCString::ASCII)) return false;
        if (!Get(type) || !Get(dims) || !tc::HasValues(type) || dims < 0) return false;
        const std::int64_t shapeSize = std::int64_t{4} * dims;
        if (!Has(shapeSize)) return false;
        int* extents = fewExtents;
        if (dims > FEW_DIMENSIONS) {
            manyExtents.SetSize(dims);
            extents = manyExtents.GetData();
        }
        std::memcpy(extents, at, static_cast<std::size_t>(shapeSize));
        at += shapeSize;
        return GetElements(block, name, static_cast<TCIOStream::DATATYPE>(type), dims, extents, level);
    }

    bool GetElements(Block& block, const TCString& name, TCIOStream::DATATYPE type, int dims,
                     const int* extents, int level) {
        const int count = tc::CountStored(dims, extents);
        void* elements;
        if (count < 0 || !Has(claimed + count * SmallestElement(type))) return false;
        if (!block.AddEmptySegment(name, type, dims, extents, elements)) return false;
        if (type == TCIOStream::STRING || type == TCIOStream::BLOCK)
            return GetEach(type, elements, count, level);
        return GetNumbers(static_cast<char*>(elements), count * ElementSize(type));
    }

    bool GetNumbers(char* numbers, std::int64_t bytes) {
        if (!Align() || !Has(bytes)) return false;
        SumUpTo(at);
        const std::int64_t whole = bytes / WORD;
        sums.AddCopy(numbers, at, static_cast<std::size_t>(whole));
        summed += whole;
        for (std::int64_t i = whole * WORD; i < bytes; ++i) numbers[i] = at[i];
        at += bytes;
        return true;
    }

    bool GetEach(TCIOStream::DATATYPE type, void* elements, int count, int level) {
        const bool texts = type == TCIOStream::STRING;
        claimed += count * SmallestElement(type);
        for (int i = 0; i < count; ++i) {
            claimed -= SmallestElement(type);
            if (!(texts ? Get(static_cast<TCString*>(elements)[i])
                        : GetBlock(*static_cast<Block**>(elements)[i], level + 1)))
                return false;
        }
        return true;
    }

    static std::int64_t SmallestElement(TCIOStream::DATATYPE type) {
        if (type == TCIOStream::BLOCK) return SMALLEST_BLOCK;
        return type == TCIOStream::DOUBLE ? 8 : 4;
    }

    const char* start;
    const char* at;
    const char* end;
    std::int64_t claimed = 0;  // bytes, by the elements still to come in arrays that were begun
    std::int64_t summed = 0;   // words
    int fewExtents[FEW_DIMENSIONS];
    TCArray<int> manyExtents;
    tc::FrameChecksum sums;
};

struct Header {
    std::int32_t mark;
    std::int32_t version;
    std::int32_t size;
    std::int32_t zero;
    std::uint64_t checksum;
};
static_assert(sizeof(Header) == HEADER_SIZE && offsetof(Header, checksum) == CHECKSUM_AT);

// Whether the frame's own words agree with its length.
bool GetHeader(Header& header, const char* frame, int size) {
    if (frame == nullptr || size < HEADER_SIZE) return false;
    std::memcpy(&header, frame, sizeof header);
    return header.mark == MARK && header.version == VERSION && header.size == size && header.zero == 0;
}

}  // namespace

int TCIOStream::SerializeBlock(char* buffer) {
    const Block* block = QueuedBlock(0);
    if (block == nullptr) return 0;
    Packer measured(nullptr);
    if (!measured.PutBlock(*block, 1) || measured.Size() > INT_MAX - HEADER_SIZE - WORD)
        return tc::NOT_WRITTEN;
    const int size = static_cast<int>(WholeWords(measured.Size())) + HEADER_SIZE;
    if (buffer == nullptr) return size;
    Packer items(buffer + HEADER_SIZE);
    items.PutBlock(*block, 1);
    items.Align();
    const Header header{MARK, VERSION, size, 0, items.Checksum()};
    std::memcpy(buffer, &header, sizeof header);
    RemoveBlock();
    return size;
}

int TCIOStream::DeSerializeBlock(const char* frame, int size) {
    if (!CanWrite()) return 0;
    Header header;
    Block* block = GetHeader(header, frame, size) ? TakeFreeBlock() : nullptr;
    if (block == nullptr) return tc::NOT_WRITTEN;
    block->Reset(true);
    Unpacker items(frame + HEADER_SIZE, frame + size);
    const bool filled =
        tc::Guarded([&] { return items.GetBlock(*block, 1) && items.IsWhole(header.checksum); }, false);
    return DispatchFilled(block, filled);
}
