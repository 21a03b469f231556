#include "sigweave/signal/TCBusSerializeHelper.h"

#include <charconv>
#include <climits>
#include <cstring>

namespace {

constexpr std::string_view SEPARATOR = "\r\n";
constexpr unsigned long TYPE_BITS = 0x00FFFFFF;
constexpr std::string_view WHITE_SPACE = " \t\n\v\f\r";

const char* TextOf(const char* text) {
    return text != nullptr ? text : "";
}

// The text up to the separator, which goes too; false when there is none.
bool CutPiece(std::string_view& rest, std::string_view& piece) {
    const std::size_t end = rest.find(SEPARATOR);
    if (end == std::string_view::npos) return false;
    piece = rest.substr(0, end);
    rest.remove_prefix(end + SEPARATOR.size());
    return true;
}

// The leading number, 0 without one; beyond the range of int the nearest end.
int LeadingNumber(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(WHITE_SPACE), text.size()));
    if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
    int number = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    if (result.ec == std::errc::result_out_of_range) return text.front() == '-' ? INT_MIN : INT_MAX;
    return number;
}

TCString Copy(std::string_view text) {
    return TCString(text.data(), static_cast<int>(text.size()));
}

}  // namespace

TCString TCBusSerializeHelper::GenSegmentName(unsigned long dataType, const char* typeString, int itemCount,
                                              int portIdx, const char* segmentName, const char* compCheck) {
    const TCString type = (dataType & TYPE_BITS) != 0
                              ? TCString::FormatS("DT_%08x", static_cast<unsigned>(dataType))
                              : TCString::FormatS("%d %s", itemCount, TextOf(typeString));
    return TCString::FormatS("%d\r\n%s\r\n%s\r\n%s", portIdx, TextOf(segmentName), TextOf(compCheck),
                             static_cast<const char*>(type));
}

bool TCBusSerializeHelper::SplitSegmentName(const char* name, Parts& parts) {
    std::string_view rest = TextOf(name);
    std::string_view index;
    Parts found;
    if (!CutPiece(rest, index) || !CutPiece(rest, found.segmentName) || !CutPiece(rest, found.compCheck) ||
        rest.empty())
        return false;
    found.portIdx = LeadingNumber(index);
    found.validation = rest.substr(0, rest.find(SEPARATOR));
    parts = found;
    return true;
}

bool TCBusSerializeHelper::ParseSegmentName(const char* name) {
    Parts parts;
    if (!SplitSegmentName(name, parts)) return false;
    portIdx = parts.portIdx;
    segmentName = Copy(parts.segmentName);
    compCheck = Copy(parts.compCheck);
    validation = Copy(parts.validation);
    return true;
}

int TCBusSerializeHelper::CompareSegmentNames(const char* a, const char* b) {
    const int bytes = std::strcmp(TextOf(a), TextOf(b));
    Parts left, right;
    if (bytes == 0 || !SplitSegmentName(a, left) || !SplitSegmentName(b, right)) return bytes;
    if (left.portIdx != right.portIdx) return left.portIdx < right.portIdx ? -1 : 1;
    return left.segmentName.compare(right.segmentName);
}
