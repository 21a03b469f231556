#include "python/src/Frame.h"

#include <cstring>

#include "sigweave/signal/TCIOStream.h"
#include "sigweave/signal/forms/FrameChecksum.h"

namespace python {
namespace {

// As docs/packed-frames.md describes it.
constexpr std::uint32_t MARK = 0x4B425753;
constexpr std::int32_t VERSION = 2;
constexpr std::size_t HEAD = 24;
constexpr std::size_t CHECKSUM_AT = 16;
constexpr std::int32_t METADATA_REST = 55;  // behind its length, with an empty name
constexpr std::size_t NAME_LENGTH_AT = 51;
constexpr std::size_t WORD = 8;
constexpr int MOST_LEVELS = 32;
constexpr int INTS = TCIOStream::INT;
constexpr int DOUBLES = TCIOStream::DOUBLE;
constexpr int TEXTS = TCIOStream::STRING;
constexpr int BLOCKS = TCIOStream::BLOCK;

class Reader {
 public:
    Reader(std::string_view bytes, std::vector<FrameArray>& to) : frame(bytes), arrays(to) {}

    bool Block(int level, std::string_view outer) {
        std::int32_t infoAt = -1;
        std::int32_t segments = 0;
        if (level > MOST_LEVELS || !Metadata(infoAt) || !Take(segments) || segments < 0) return false;
        if (segments == 0 && level <= 2) arrays.push_back({.name = outer, .infoAt = infoAt});
        for (std::int32_t i = 0; i < segments; ++i)
            if (!Segment(level, outer, infoAt, level == 1 || (level == 2 && i == 0))) return false;
        return true;
    }

 private:
    bool Has(std::int64_t bytes) const {
        return bytes >= 0 && bytes <= static_cast<std::int64_t>(frame.size() - at);
    }

    template <class Value>
    bool Take(Value& value) {
        if (!Has(sizeof value)) return false;
        std::memcpy(&value, frame.data() + at, sizeof value);
        at += sizeof value;
        return true;
    }

    bool Skip(std::int64_t bytes) {
        if (!Has(bytes)) return false;
        at += static_cast<std::size_t>(bytes);
        return true;
    }

    bool Text(std::string_view& text) {
        std::int32_t length = 0;
        if (!Take(length) || !Has(length)) return false;
        text = frame.substr(at, static_cast<std::size_t>(length));
        return Skip(length);
    }

    bool Metadata(std::int32_t& infoAt) {
        char has = 0;
        if (!Take(has)) return false;
        if (has == 0) return true;
        const std::size_t begin = at;
        std::int32_t rest = 0, nameLength = 0;
        if (!Take(rest) || rest < METADATA_REST || !Has(rest)) return false;
        std::memcpy(&nameLength, frame.data() + begin + NAME_LENGTH_AT, sizeof nameLength);
        if (nameLength != rest - METADATA_REST) return false;
        infoAt = static_cast<std::int32_t>(begin);
        return Skip(rest);
    }

    bool Shape(FrameArray& array) {
        std::int64_t count = array.dimensions > 0 ? 1 : 0;
        for (int i = 0; i < array.dimensions; ++i) {
            std::int32_t extent = 0;
            if (!Take(extent) || extent < 0) return false;
            count *= extent;
            if (count > INT32_MAX) return false;
            if (i == 0 && array.dimensions == 2) array.rows = extent;
            if (i + 1 == array.dimensions && array.dimensions <= 2) array.columns = extent;
        }
        if (array.dimensions == 1) array.rows = 1;
        array.count = static_cast<std::int32_t>(count);
        return true;
    }

    bool Segment(int level, std::string_view outer, std::int32_t infoAt, bool isWanted) {
        FrameArray array;
        array.infoAt = infoAt;
        if (!Text(array.name) || !Take(array.type) || !Take(array.dimensions) || array.dimensions < 0 ||
            !Shape(array))
            return false;
        const std::string_view own = array.name;
        if (level == 2) array.name = outer;
        const bool holdsBlocks = array.type == BLOCKS;
        if (array.type == INTS || array.type == DOUBLES) {
            at += (WORD - at % WORD) % WORD;
            if (at > frame.size()) return false;
            array.dataAt = static_cast<std::int32_t>(at);
            const std::int64_t size = array.type == INTS ? sizeof(int) : sizeof(double);
            if (!Skip(array.count * size)) return false;
        }
        if (isWanted && !(holdsBlocks && level == 1)) arrays.push_back(array);
        std::string_view text;
        for (std::int32_t i = 0; i < array.count; ++i) {
            if (array.type == TEXTS && !Text(text)) return false;
            if (holdsBlocks && !Block(level + 1, own)) return false;
        }
        return array.type == INTS || array.type == DOUBLES || array.type == TEXTS || holdsBlocks;
    }

    std::string_view frame;
    std::size_t at = HEAD;
    std::vector<FrameArray>& arrays;
};

bool IsHead(std::string_view frame) {
    std::uint32_t mark = 0;
    std::int32_t version = 0, size = 0, zero = 0;
    if (frame.size() < HEAD || frame.size() % WORD != 0) return false;
    std::memcpy(&mark, frame.data(), sizeof mark);
    std::memcpy(&version, frame.data() + 4, sizeof version);
    std::memcpy(&size, frame.data() + 8, sizeof size);
    std::memcpy(&zero, frame.data() + 12, sizeof zero);
    return mark == MARK && version == VERSION && static_cast<std::size_t>(size) == frame.size() && zero == 0;
}

bool Agrees(std::string_view frame, const tc::FrameChecksum& sums) {
    std::uint64_t stored = 0;
    std::memcpy(&stored, frame.data() + CHECKSUM_AT, sizeof stored);
    return sums.Value() == stored;
}

}  // namespace

bool ReadFrame(std::string_view frame, std::vector<FrameArray>& arrays) {
    arrays.clear();
    return IsHead(frame) && Reader(frame, arrays).Block(1, {});
}

FrameTime ReadTime(const char* record) {
    FrameTime time;
    std::int32_t rest = 0;
    std::memcpy(&rest, record, sizeof rest);
    std::memcpy(&time.start, record + 4, sizeof time.start);
    std::memcpy(&time.rate, record + 12, sizeof time.rate);
    std::memcpy(&time.state, record + rest, sizeof time.state);
    time.start /= 1000.0;
    return time;
}

bool IsWhole(std::string_view frame) {
    if (!IsHead(frame)) return false;
    tc::FrameChecksum sums;
    sums.Add(frame.data() + HEAD, (frame.size() - HEAD) / WORD);
    return Agrees(frame, sums);
}

bool CopyWhole(std::string_view frame, std::int32_t dataAt, char* to, std::int64_t bytes) {
    const auto begin = static_cast<std::size_t>(dataAt);
    const std::size_t words = static_cast<std::size_t>(bytes) / WORD;
    const std::size_t end = begin + words * WORD;
    tc::FrameChecksum sums;
    sums.Add(frame.data() + HEAD, (begin - HEAD) / WORD);
    sums.AddCopy(to, frame.data() + begin, words);
    sums.Add(frame.data() + end, (frame.size() - end) / WORD);
    std::memcpy(to + words * WORD, frame.data() + end, static_cast<std::size_t>(bytes) % WORD);
    return IsHead(frame) && Agrees(frame, sums);
}

}  // namespace python
