#include "sigweave/signal/forms/BlockType.h"

#include "sigweave/signal/TCBusSerializeHelper.h"

namespace tc {
namespace {

using Segment = TCIOStream::DataSegment;

// A type that any block fits.
constexpr const char* ANY_TYPE = "NULL{no_parameters}";

// The type of the port that a segment may have come from; empty when it does not say.
const char* TypeOf(const Segment& segment) {
    static constexpr struct {
        TCIOStream::DATATYPE type;
        int dimensions;
        const char* text;
    } TYPES[] = {
        {TCIOStream::INT, 1, "SWORD[]{BIN}"},
        {TCIOStream::INT, 2, "POINTER{SWORD[][]}"},
        {TCIOStream::DOUBLE, 1, "DOUBLE[]{TIME_DOMAIN}"},
        {TCIOStream::DOUBLE, 2, "POINTER{DOUBLE[][]}"},
        {TCIOStream::STRING, 1, "UBYTE[][]{Text}"},
    };
    TCBusSerializeHelper::Parts parts;
    if (segment.GetType() == TCIOStream::BLOCK &&
        TCBusSerializeHelper::SplitSegmentName(segment.GetName(), parts))
        return "STRUCT_BUS{BUS}";
    for (const auto& row : TYPES)
        if (row.type == segment.GetType() && row.dimensions == segment.GetDimensionCount()) return row.text;
    return "";
}

}  // namespace

BlockType TypeOf(const TCIOStream::Block& block) {
    BlockType type;
    const auto add = [&](const std::string& item) { type.text += (type.items++ > 0 ? " " : "") + item; };
    if (block.GetTI() != nullptr) add("TYPEINFO{TypeInfo}");
    const int segments = block.SegmentCnt();
    const std::string first = segments > 0 ? TypeOf(*block.Segment(0)) : "";
    const bool isPlain = segments == 1 && block.Segment(0)->GetName().IsEmpty();
    add((isPlain && !first.empty()) || first.starts_with("STRUCT_BUS") ? first : ANY_TYPE);
    return type;
}

}  // namespace tc
