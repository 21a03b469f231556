#include "sigweave/signal/forms/StreamRecordExact.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <string>

#include "sigweave/foundation/HexDouble.h"

namespace tc {
namespace {

using Block = TCIOStream::Block;
using Segment = TCIOStream::DataSegment;

constexpr int HEX_DOUBLE_SIZE = 32;
constexpr int BIT_DIGITS = 16;
constexpr const char* FACTOR = "Factor";
constexpr const char* EXPONENTS = "Exponents";
constexpr const char* NOT_FINITE = "NotFinite";

bool Fail(TCXML& xml, const char* message) {
    if (!xml.IsError()) xml.SetUserError(message);
    return false;
}

std::string PathOf(int segment, const char* below) {
    return "Segments/Segment[" + std::to_string(segment + 1) + "]/Values/" + below;
}

// Calls `visit` for the block and all that are nested in it, each with its element.
template <class Visit>
bool ForEachBlock(TCXML& xml, const TCXMLNode& node, Block& block, Visit visit) {
    if (!visit(node, block)) return false;
    for (int i = 0; i < block.SegmentCnt(); ++i) {
        const Segment& segment = *block.Segment(i);
        if (segment.GetType() != TCIOStream::BLOCK) continue;
        TCXMLNodeList nodes = xml.SelectNodes(PathOf(i, "Block").c_str(), node);
        for (int j = 0; j < segment.GetElementCount(); ++j)
            if (!ForEachBlock(xml, xml.NextNode(nodes), *segment.GetBlocks()[j], visit)) return false;
    }
    return true;
}

// --- Numbers that are not finite

std::string BitsOf(double value) {
    char digits[BIT_DIGITS];
    return {digits, std::to_chars(digits, digits + BIT_DIGITS, std::bit_cast<std::uint64_t>(value), 16).ptr};
}

bool ReadBits(const char*& text, const char* end, double& value) {
    std::uint64_t bits = 0;
    const auto number = std::from_chars(text, end, bits, 16);
    value = std::bit_cast<double>(bits);
    if (number.ec != std::errc() || std::isfinite(value)) return false;
    text = number.ptr + (number.ptr != end && *number.ptr == ' ' ? 1 : 0);
    return true;
}

bool ReadAllBits(const TCString& bits, double& value) {
    const char* text = bits;
    const char* const end = text + bits.GetLength();
    return ReadBits(text, end, value) && text == end;
}

// --- Units

std::string ExponentsOf(const TCSI_Unit& unit) {
    std::string text;
    for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i) {
        if (i > 0) text += ' ';
        text += std::to_string(unit.GetExponent(i));
    }
    return text;
}

// The bits of a factor that is not finite: their digits hold no "p".
std::string FactorOf(const TCSI_Unit& unit) {
    if (!std::isfinite(unit.GetFactor())) return BitsOf(unit.GetFactor());
    char text[HEX_DOUBLE_SIZE];
    return DoubleToHexString(text, sizeof text, unit.GetFactor());
}

bool ReadFactor(const TCString& text, double& factor) {
    if (text.Find('p') < 0) return ReadAllBits(text, factor);
    char* end = nullptr;
    factor = StringToDouble(text, &end);
    return end != nullptr && *end == '\0';
}

bool KeepUnit(TCXML& xml, const TCXMLNode& node, const TCSI_Unit& unit) {
    TCString text;
    unit.ToString(text);
    TCSI_Unit restored;
    const bool readable = restored.FromString(text);
    if (readable && restored == unit) return true;
    const TCXMLNode element = xml.SelectSingleNode("TypeInfo/Unit", node, true);
    // The factor of a dimensionless unit can be read without the number in front of it.
    if (!readable) {
        if (text.Left(2) == "1 ") text = text.Mid(2);
        if (!restored.FromString(text)) text.Empty();
        if (!xml.SetNodeText(element, text)) return false;
    }
    return xml.SetAttribute(element, FACTOR, FactorOf(unit).c_str()) &&
           xml.SetAttribute(element, EXPONENTS, ExponentsOf(unit).c_str());
}

bool ReadExponents(const char* text, TCSI_Unit& unit) {
    const char* const end = text + TCString::SafeStrlen(text);
    for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i) {
        std::int16_t exponent = 0;
        if (i > 0 && *text++ != ' ') return false;
        const auto number = std::from_chars(text, end, exponent);
        if (number.ec != std::errc() || exponent < INT8_MIN || exponent > INT8_MAX) return false;
        unit.SetExponent(i, exponent);
        text = number.ptr;
    }
    return text == end;
}

bool RestoreUnit(TCXML& xml, const TCXMLNode& node, TCSI_Unit& unit) {
    const TCXMLNode factorNode = xml.SelectSingleNode("TypeInfo/Unit/@Factor", node);
    const TCXMLNode exponentsNode = xml.SelectSingleNode("TypeInfo/Unit/@Exponents", node);
    if (!factorNode && !exponentsNode) return true;
    if (!factorNode || !exponentsNode)
        return Fail(xml, "Unit has only one of the attributes Factor and Exponents");
    TCString factor;
    TCString exponents;
    if (!xml.GetNodeText(factorNode, factor) || !xml.GetNodeText(exponentsNode, exponents)) return false;
    double value = 1.0;
    const bool isNumber = ReadFactor(factor, value);
    unit.SetFactor(value);
    return (isNumber && ReadExponents(exponents, unit)) ||
           Fail(xml, "Error interpreting Unit/@Factor or @Exponents in TypeInfo");
}

// --- Metadata

struct MetadataNumber {
    const char* path;
    double (TCTypeInfo::*get)() const;
    void (TCTypeInfo::*set)(double);
};
constexpr MetadataNumber METADATA_NUMBERS[] = {
    {"TypeInfo/Timestamp", &TCTypeInfo::GetTimestamp, &TCTypeInfo::SetTimestamp},
    {"TypeInfo/Samplerate", &TCTypeInfo::GetSamplerate, &TCTypeInfo::SetSamplerate},
    {"TypeInfo/Range/Min", &TCTypeInfo::GetRangeMin, &TCTypeInfo::SetRangeMin},
    {"TypeInfo/Range/Max", &TCTypeInfo::GetRangeMax, &TCTypeInfo::SetRangeMax},
};

bool KeepMetadata(TCXML& xml, const TCXMLNode& node, const TCTypeInfo& ti) {
    for (const MetadataNumber& number : METADATA_NUMBERS) {
        const double value = (ti.*number.get)();
        if (std::isfinite(value)) continue;
        const TCXMLNode element = xml.SelectSingleNode(number.path, node, true);
        if (!xml.SetAttribute(element, NOT_FINITE, BitsOf(value).c_str())) return false;
    }
    return KeepUnit(xml, node, ti.GetUnit());
}

bool RestoreMetadata(TCXML& xml, const TCXMLNode& node, TCTypeInfo& ti) {
    for (const MetadataNumber& number : METADATA_NUMBERS) {
        const std::string path = std::string(number.path) + "/@" + NOT_FINITE;
        const TCXMLNode attribute = xml.SelectSingleNode(path.c_str(), node);
        TCString bits;
        if (!attribute) continue;
        double value = 0.0;
        if (!xml.GetNodeText(attribute, bits) || !ReadAllBits(bits, value))
            return Fail(xml, ("Error interpreting " + path).c_str());
        (ti.*number.set)(value);
    }
    return RestoreUnit(xml, node, ti.GetUnit());
}

std::string BitsOfNotFinite(const Segment& segment) {
    std::string text;
    for (int i = 0; i < segment.GetElementCount(); ++i) {
        const double value = segment.GetDoubles()[i];
        if (std::isfinite(value)) continue;
        if (!text.empty()) text += ' ';
        text += BitsOf(value);
    }
    return text;
}

bool KeepDoubles(TCXML& xml, const TCXMLNode& node, int index, const Segment& segment) {
    const std::string bits = BitsOfNotFinite(segment);
    if (bits.empty()) return true;
    const TCXMLNode element = xml.SelectSingleNode(PathOf(index, "Double").c_str(), node, true);
    return xml.SetAttribute(element, NOT_FINITE, bits.c_str());
}

// The block is the reader's own and nobody else has seen it, so its values may be set.
bool RestoreDoubles(TCXML& xml, const TCXMLNode& node, int index, const Segment& segment) {
    const TCXMLNode attribute = xml.SelectSingleNode(PathOf(index, "Double/@NotFinite").c_str(), node);
    TCString bits;
    if (!attribute) return true;
    if (!xml.GetNodeText(attribute, bits)) return false;
    const char* text = bits;
    const char* const end = text + bits.GetLength();
    auto* const values = const_cast<double*>(segment.GetDoubles());
    for (int i = 0; i < segment.GetElementCount(); ++i)
        if (!std::isfinite(values[i]) && !ReadBits(text, end, values[i]))
            return Fail(xml, "Error interpreting Double/@NotFinite in Values");
    return text == end || Fail(xml, "Double/@NotFinite has more values than Double");
}

template <class Work>
bool ForEachDoubles(const Block& block, Work work) {
    for (int i = 0; i < block.SegmentCnt(); ++i)
        if (block.Segment(i)->GetType() == TCIOStream::DOUBLE && !work(i, *block.Segment(i))) return false;
    return true;
}

}  // namespace

bool HoldsAddress(const Block& block) {
    for (int i = 0; i < block.SegmentCnt(); ++i) {
        const Segment& segment = *block.Segment(i);
        if (segment.GetType() == TCIOStream::POINTER) return true;
        for (int j = 0; segment.GetBlocks() != nullptr && j < segment.GetElementCount(); ++j)
            if (HoldsAddress(*segment.GetBlocks()[j])) return true;
    }
    return false;
}

bool KeepExactly(TCXML& xml, const TCXMLNode& node, const Block& block) {
    return ForEachBlock(xml, node, const_cast<Block&>(block), [&](const TCXMLNode& at, const Block& each) {
        return (each.GetTI() == nullptr || KeepMetadata(xml, at, *each.GetTI())) &&
               ForEachDoubles(each, [&](int index, const Segment& segment) {
                   return KeepDoubles(xml, at, index, segment);
               });
    });
}

bool RestoreExactly(TCXML& xml, const TCXMLNode& node, Block& block) {
    if (!xml.SelectSingleNode(".//@Factor | .//@Exponents | .//@NotFinite", node)) return !xml.IsError();
    return ForEachBlock(xml, node, block, [&](const TCXMLNode& at, Block& each) {
        if (each.GetTI() != nullptr) {
            TCTypeInfo ti = *each.GetTI();
            if (!RestoreMetadata(xml, at, ti) || !each.SetTI(&ti)) return false;
        }
        return ForEachDoubles(
            each, [&](int index, const Segment& segment) { return RestoreDoubles(xml, at, index, segment); });
    });
}

}  // namespace tc
