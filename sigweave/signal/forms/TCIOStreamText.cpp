#include <algorithm>
#include <charconv>
#include <climits>
#include <cstring>
#include <string>

#include "sigweave/foundation/Ascii.h"
#include "sigweave/persistence/TCSerializeHelper.h"
#include "sigweave/persistence/TCSerializeOldStream.h"
#include "sigweave/signal/StreamInternal.h"
#include "sigweave/signal/TCIOStream.h"

namespace {

using Block = TCIOStream::Block;
using Segment = TCIOStream::DataSegment;
using Token = TCSerializeOldStream;

constexpr char OPENING[] = "BUS ";
constexpr int DOUBLE_SIZE = 10;
constexpr int MOST_DECIMALS = 400;
constexpr int TEXT_SIZE = 5;  // of an empty one, without its blank
constexpr int SHORTEST_INT = 2;
constexpr int SHORTEST_BLOCK = 8;

// Room grows by half, so that many tokens take linear time.
void Put(TCString& out, const TCString& token) {
    std::memcpy(out.AllocAddBuffer(token.GetLength(), 0.5), token,
                static_cast<std::size_t>(token.GetLength()));
    out.SetLength(out.GetLength() + token.GetLength());
}

bool PutBlock(TCString& out, const Block& block, int level);

bool PutElements(TCString& out, const Segment& segment, int level) {
    const int count = segment.GetElementCount();
    if (segment.GetDoubles() != nullptr && count > INT_MAX / DOUBLE_SIZE) return false;
    if (segment.GetInts() != nullptr) Put(out, Token::Serialize(segment.GetInts(), count));
    if (segment.GetDoubles() != nullptr) Put(out, Token::Serialize(segment.GetDoubles(), count));
    if (segment.GetStrings() != nullptr)
        for (int i = 0; i < count; ++i) Put(out, Token::Serialize(segment.GetStrings()[i]));
    if (segment.GetBlocks() != nullptr)
        for (int i = 0; i < count; ++i)
            if (!PutBlock(out, *segment.GetBlocks()[i], level + 1)) return false;
    return segment.GetType() != TCIOStream::POINTER;
}

bool PutBlock(TCString& out, const Block& block, int level) {
    if (level > tc::MOST_LEVELS) return false;
    const TCTypeInfo* ti = block.GetTI();
    Put(out, OPENING);
    Put(out, Token::Serialize(block.SegmentCnt()));
    Put(out, Token::Serialize(ti != nullptr ? 1 : 0));
    if (ti != nullptr) Put(out, Token::Serialize(ti->GetState(), *ti));
    for (int i = 0; i < block.SegmentCnt(); ++i) {
        const Segment& segment = *block.Segment(i);
        Put(out, Token::Serialize(segment.GetName()));
        Put(out, Token::Serialize(static_cast<int>(segment.GetType())));
        Put(out, Token::Serialize(segment.GetDimensionCount()));
        for (int d = 0; d < segment.GetDimensionCount(); ++d)
            Put(out, Token::Serialize(segment.GetExtent(d)));
        if (!PutElements(out, segment, level)) return false;
    }
    return true;
}

// Reads tokens and checks, before it hands one to a reader that trusts it, that all of it is there. Ints,
// whose reader trusts in a zero byte after them, it reads itself.
class TokenReader {
 public:
    TokenReader(const char* start, const char* stop) : at(start), end(stop) {}
    const char* Position() const { return at; }

    bool GetBlock(Block& block, int level) {
        int count, hasMetadata;
        if (level > tc::MOST_LEVELS || !SkipOpening() || !Get(count) || count < 0 || !Get(hasMetadata) ||
            hasMetadata < 0 || hasMetadata > 1)
            return false;
        if (hasMetadata == 1 && !GetMetadata(block)) return false;
        for (int i = 0; i < count; ++i)
            if (!GetSegment(block, level)) return false;
        return true;
    }

 private:
    bool Has(std::int64_t bytes) const { return bytes <= end - at; }

    // A text leaves the blank after it.
    bool SkipOpening() {
        while (at < end && *at == ' ') ++at;
        const auto size = sizeof OPENING - 1;
        if (!Has(size) || std::memcmp(at, OPENING, size) != 0) return false;
        at += size;
        return true;
    }

    bool Get(int& value) {
        while (at < end && tc::IsAsciiSpace(*at)) ++at;
        const bool plus = end - at > 1 && at[0] == '+' && at[1] != '-';
        const auto number = std::from_chars(at + (plus ? 1 : 0), end, value);
        if (number.ec == std::errc::result_out_of_range) value = *at == '-' ? INT_MIN : INT_MAX;
        if (number.ec == std::errc::invalid_argument || number.ptr == end || !tc::IsAsciiSpace(*number.ptr))
            return false;
        at = number.ptr + 1;
        return true;
    }

    bool Get(double& value) { return Has(DOUBLE_SIZE) && Token::DeSerialize(value, at); }

    bool Get(TCSI_Unit& value) {
        double factor;
        if (!Get(factor)) return false;
        value.SetFactor(factor);
        for (int i = 0, exponent; i < TCSI_Unit::BASE_UNIT_COUNT; ++i) {
            if (!Get(exponent)) return false;
            value.SetExponent(i, exponent);
        }
        return true;
    }

    template <typename Text>
    bool GetText(Text& value) {
        while (at < end && *at == ' ') ++at;
        int length;
        if (!Has(TEXT_SIZE)) return false;
        TCSerializeHelper::DeSerialize(length, at + 1);
        return length >= 0 && Has(std::int64_t{length} + TEXT_SIZE) && Token::DeSerialize(value, at);
    }

    bool GetMetadata(Block& block) {
        int state;
        double timestamp, samplerate, rangeMin, rangeMax;
        TCSI_Unit unit;
        CString name;
        if (!Get(state) || !Get(timestamp) || !Get(samplerate) || !Get(unit) || !Get(rangeMin) ||
            !Get(rangeMax) || !GetText(name))
            return false;
        TCTypeInfo ti;
        ti.SetState(static_cast<TCBLOCKSTATUS>(state));
        ti.SetTimestamp(timestamp);
        ti.SetSamplerate(samplerate);
        ti.SetUnit(unit);
        ti.SetRangeMin(rangeMin);
        ti.SetRangeMax(rangeMax);
        ti.SetSignalnameString(name);
        return block.SetTI(&ti);
    }

    bool GetSegment(Block& block, int level) {
        TCString name;
        int type, dims;
        if (!GetText(name) || name.CalcDataFormat() != TCString::ASCII || !Get(type) || !Get(dims))
            return false;
        if (!tc::HasValues(type) || dims < 0 || !Has(std::int64_t{2} * dims)) return false;
        TCArray<int> extents;
        extents.SetSize(dims);
        for (int& extent : extents)
            if (!Get(extent)) return false;
        const int count = tc::CountStored(dims, extents.GetData());
        void* elements;
        return count >= 0 && Has(claimed + count * ShortestElement(type)) &&
               block.AddEmptySegment(name, static_cast<TCIOStream::DATATYPE>(type), dims, extents.GetData(),
                                     elements) &&
               GetElements(type, elements, count, level);
    }

    bool GetElements(int type, void* elements, int count, int level) {
        claimed += count * ShortestElement(type);
        for (int i = 0; i < count; ++i) {
            claimed -= ShortestElement(type);
            const bool read = type == TCIOStream::INT      ? Get(static_cast<int*>(elements)[i])
                              : type == TCIOStream::DOUBLE ? Get(static_cast<double*>(elements)[i])
                              : type == TCIOStream::STRING
                                  ? GetText(static_cast<TCString*>(elements)[i])
                                  : GetBlock(*static_cast<Block**>(elements)[i], level + 1);
            if (!read) return false;
        }
        return true;
    }

    static std::int64_t ShortestElement(int type) {
        if (type == TCIOStream::INT) return SHORTEST_INT;
        if (type == TCIOStream::DOUBLE) return DOUBLE_SIZE;
        return type == TCIOStream::STRING ? TEXT_SIZE : SHORTEST_BLOCK;
    }

    const char* at;
    const char* end;
    std::int64_t claimed = 0;  // bytes, by the elements still to come in arrays that were begun
};

struct NumberStyle {
    bool comma;
    StringFormat format;
    int decimals;
};

std::string SegmentText(const Segment& segment, const NumberStyle& style);

std::string NumberText(double value, const NumberStyle& style) {
    std::string text(static_cast<std::size_t>(400 + style.decimals), '\0');
    const int length = ftoa(value, text.data(), style.format, style.comma, nullptr, 0, style.decimals);
    text.resize(static_cast<std::size_t>(length));
    return text;
}

std::string BlockText(const Block& block, const NumberStyle& style) {
    std::string text = "{";
    for (int i = 0; i < block.SegmentCnt(); ++i) {
        if (i > 0) text += ' ';
        text += SegmentText(*block.Segment(i), style);
    }
    return text + '}';
}

std::string ElementText(const Segment& segment, int index, const NumberStyle& style) {
    if (segment.GetInts() != nullptr) return std::to_string(segment.GetInts()[index]);
    if (segment.GetDoubles() != nullptr) return NumberText(segment.GetDoubles()[index], style);
    if (segment.GetBlocks() != nullptr) return BlockText(*segment.GetBlocks()[index], style);
    const TCString& text = segment.GetStrings()[index];
    return std::string(text, static_cast<std::size_t>(text.GetLength()));
}

std::string SegmentText(const Segment& segment, const NumberStyle& style) {
    if (segment.GetType() == TCIOStream::POINTER)
        return static_cast<const char*>(TCString::FormatS("%p", segment.GetData()));
    int rows, cols;
    segment.GetShape(rows, cols);
    std::string text;
    for (int i = 0; i < segment.GetElementCount(); ++i) {
        if (i > 0) text += cols > 0 && i % cols == 0 ? '\n' : ' ';
        text += ElementText(segment, i, style);
    }
    return text;
}

}  // namespace

TCString TCIOStream::SerializeForOldStream(int index) const {
    const Block* block = QueuedBlock(index);
    TCString out;
    const bool done = tc::Guarded([&] { return block != nullptr && PutBlock(out, *block, 1); }, false);
    if (!done) out.Empty();
    return out;
}

int TCIOStream::DeSerializeForOldStream(const char*& text, const char* end) {
    if (!CanWrite()) return 0;
    Block* block = text != nullptr && text < end ? TakeFreeBlock() : nullptr;
    if (block == nullptr) return tc::NOT_WRITTEN;
    block->Reset(true);
    TokenReader tokens(text, end);
    const bool filled = tc::Guarded([&] { return tokens.GetBlock(*block, 1); }, false);
    const int result = DispatchFilled(block, filled);
    if (result == 1) text = tokens.Position();
    return result;
}

TCString TCIOStream::ConvertToString(int block, int segment, bool decimalComma, StringFormat format,
                                     int decimals) const {
    const DataSegment* found = PeekSegment(block, segment, UNDEF);
    if (found == nullptr) return TCString();
    const NumberStyle style{decimalComma, format,
                            std::clamp(decimals < 0 ? digits : decimals, 0, MOST_DECIMALS)};
    return tc::Guarded(
        [&] {
            const std::string text = SegmentText(*found, style);
            return text.size() < INT_MAX ? TCString(text.data(), static_cast<int>(text.size())) : TCString();
        },
        TCString());
}
