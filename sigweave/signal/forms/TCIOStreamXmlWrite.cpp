#include <algorithm>
#include <charconv>
#include <cstring>
#include <string>
#include <utility>

#include "sigweave/foundation/HexDouble.h"
#include "sigweave/persistence/TCXML.h"
#include "sigweave/signal/StreamInternal.h"
#include "sigweave/signal/TCIOStream.h"

namespace {

using Block = TCIOStream::Block;
using Segment = TCIOStream::DataSegment;

constexpr int DOUBLE_ROOM = 25;  // the longest text and what ends it
constexpr int INT_ROOM = 11;

char* PutNumber(char* p, double value) {
    DoubleToHexString(p, DOUBLE_ROOM, value);
    return p + std::strlen(p);
}

char* PutNumber(char* p, int value) {
    *p++ = '0';
    *p++ = 'x';
    itoh(p, static_cast<unsigned>(value));
    return p + std::strlen(p);
}

// Writes a block below a node, one operation of the document after the other until one fails.
class BlockWriter {
 public:
    explicit BlockWriter(TCXML& document) : xml(document) {}

    bool PutBlock(const TCXMLNode& parent, const Block& block, int level) {
        if (level > tc::MOST_XML_LEVELS) {
            xml.SetUserError(tc::XML_TOO_DEEP);
            return false;
        }
        const TCXMLNode node = xml.CreateElement("Block", parent);
        if (!node || (block.GetTI() != nullptr && !PutMetadata(node, *block.GetTI()))) return false;
        const TCXMLNode segments = xml.CreateElement("Segments", node);
        if (!segments) return false;
        for (int i = 0; i < block.SegmentCnt(); ++i)
            if (!PutSegment(segments, *block.Segment(i), level)) return false;
        return true;
    }

 private:
    bool PutText(const TCXMLNode& parent, const char* name, const char* text) {
        const TCXMLNode node = xml.CreateElement(name, parent);
        return node && xml.SetNodeText(node, text);
    }

    bool PutQuoted(const TCXMLNode& parent, const char* name, const TCString& text) {
        return PutText(parent, name, TCXML::QuoteNodeTextString(text));
    }

    bool PutDouble(const TCXMLNode& parent, const char* name, double value) {
        char text[DOUBLE_ROOM];
        return PutText(parent, name, DoubleToHexString(text, DOUBLE_ROOM, value));
    }

    // A name for people and its number, which counts, for programs.
    bool PutNamedNumber(const TCXMLNode& parent, const char* name, const char* text, int number) {
        const TCXMLNode node = xml.CreateElement(name, parent);
        return node && xml.SetNodeText(node, text) &&
               xml.SetAttribute(node, "Value", std::to_string(number).c_str());
    }

    bool PutMetadata(const TCXMLNode& block, const TCTypeInfo& ti) {
        const TCXMLNode node = xml.CreateElement("TypeInfo", block);
        TCString unit;
        ti.GetUnit().ToString(unit);
        return node &&
               PutNamedNumber(node, "State", TCTypeInfo::BlockStateToString(ti.GetState()), ti.GetState()) &&
               PutQuoted(node, "Name", TCString::CString2BinTCString(ti.GetSignalnameString())) &&
               PutDouble(node, "Timestamp", ti.GetTimestamp()) &&
               PutDouble(node, "Samplerate", ti.GetSamplerate()) && PutRange(node, ti) &&
               PutQuoted(node, "Unit", unit);
    }

    bool PutRange(const TCXMLNode& metadata, const TCTypeInfo& ti) {
        const TCXMLNode range = xml.CreateElement("Range", metadata);
        return range && PutDouble(range, "Min", ti.GetRangeMin()) &&
               PutDouble(range, "Max", ti.GetRangeMax());
    }

    bool PutSegment(const TCXMLNode& segments, const Segment& segment, int level) {
        const TCXMLNode node = xml.CreateElement("Segment", segments);
        if (!node || !PutQuoted(node, "Name", segment.GetName()) ||
            !PutNamedNumber(node, "DataType", TCIOStream::DataTypeToString(segment.GetType()),
                            static_cast<int>(segment.GetType())) ||
            !PutText(node, "Length", Extents(segment).c_str()))
            return false;
        const TCXMLNode values = xml.CreateElement("Values", node);
        return values && PutValues(values, segment, level);
    }

    static std::string Extents(const Segment& segment) {
        std::string text;
        for (int i = 0; i < segment.GetDimensionCount(); ++i) {
            if (i > 0) text += ' ';
            text += std::to_string(segment.GetExtent(i));
        }
        return text;
    }

    bool PutValues(const TCXMLNode& values, const Segment& segment, int level) {
        const int count = segment.GetElementCount();
        switch (segment.GetType()) {
            case TCIOStream::INT:
                return PutNumbers<INT_ROOM>(values, "Integer", segment.GetInts(), count);
            case TCIOStream::DOUBLE:
                return PutNumbers<DOUBLE_ROOM>(values, "Double", segment.GetDoubles(), count);
            case TCIOStream::POINTER:
                return PutAddress(values, segment.GetData());
            default:
                break;
        }
        for (int i = 0; i < count; ++i)
            if (!(segment.GetStrings() != nullptr ? PutQuoted(values, "String", segment.GetStrings()[i])
                                                  : PutBlock(values, *segment.GetBlocks()[i], level + 1)))
                return false;
        return true;
    }

    template <std::size_t ROOM, typename Number>
    bool PutNumbers(const TCXMLNode& values, const char* name, const Number* numbers, int count) {
        numberText.resize(std::max(numberText.size(), ROOM * static_cast<std::size_t>(count) + 1));
        char* p = numberText.data();
        for (int i = 0; i < count; ++i) {
            p = PutNumber(p, numbers[i]);
            *p++ = ' ';
        }
        p[count > 0 ? -1 : 0] = '\0';
        return PutText(values, name, numberText.c_str());
    }

    bool PutAddress(const TCXMLNode& values, const void* address) {
        char digits[2 + 2 * sizeof address + 1] = "0x";
        *std::to_chars(digits + 2, digits + sizeof digits - 1, reinterpret_cast<std::uintptr_t>(address), 16)
             .ptr = '\0';
        return PutText(values, "Pointer", digits);
    }

    TCXML& xml;
    std::string numberText;  // of numbers, kept for the next segment
};

}  // namespace

bool TCIOStream::StreamToXML(TCXML& xml, bool peek, int index) {
    return tc::Guarded(
        [&] {
            if (!xml.Create() || !xml.LoadXML("<Stream/>")) return false;
            if (!isInput) return true;
            const bool there = peek ? PeekBlock(index) == 1 : RemoveBlock();
            const Block* block = std::exchange(actualBlock, nullptr);
            if (!there) return true;
            const TCXMLNode root = xml.SelectSingleNode("Stream");
            return root && BlockWriter(xml).PutBlock(root, *block, 1);
        },
        false);
}
