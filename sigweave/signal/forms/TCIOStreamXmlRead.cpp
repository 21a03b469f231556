#include <cctype>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "sigweave/foundation/HexDouble.h"
#include "sigweave/persistence/TCXML.h"
#include "sigweave/persistence/XmlNodeText.h"
#include "sigweave/platform/CodePage.h"
#include "sigweave/signal/StreamInternal.h"
#include "sigweave/signal/TCBusSerializeHelper.h"
#include "sigweave/signal/TCIOStream.h"

namespace {

using Block = TCIOStream::Block;

constexpr int WRITTEN_DIGITS = 8;  // hexadecimal ones, at most

constexpr char SET_DATA_FAILED[] = "TCIOStream::DataSegment::XMLToStream: Error at SetData";

// Readers of one number, which begins at `p`: they answer where it ends, or null when there is none. A zero
// byte is at the end of the text.

template <typename Word>
const char* ReadWord(const char* p, Word (*convert)(const char*, char**, int), int base, Word& value) {
    char* end = nullptr;
    errno = 0;
    value = convert(p, &end, base);
    return end == p || errno == ERANGE ? nullptr : end;
}

// Also the one text that the writer has for what is no finite number, and no number reader takes.
const char* ReadNumber(const char* p, double& value) {
    static constexpr std::string_view NOT_A_NUMBER = "-1.#IND";
    char* end = nullptr;
    value = StringToDouble(p, &end);
    if (end == nullptr || end == p) return nullptr;
    if (*end != '#' || std::strncmp(p, NOT_A_NUMBER.data(), NOT_A_NUMBER.size()) != 0) return end;
    value = std::numeric_limits<double>::quiet_NaN();
    return p + NOT_A_NUMBER.size();
}

// As strtoul reads a word of 32 bits, deliberately, for the documents of older programs: a minus sign wraps
// around, and beyond the range all bits are set. The writer's form takes the short way.
const char* ReadNumber(const char* p, int& value) {
    std::uint32_t word = 0;
    if (p[0] == '0' && p[1] == 'x') {
        const auto digits = std::from_chars(p + 2, p + 2 + WRITTEN_DIGITS, word, 16);
        value = static_cast<int>(word);
        if (digits.ec == std::errc() && !std::isxdigit(static_cast<unsigned char>(*digits.ptr)))
            return digits.ptr;
    }
    char* end = nullptr;
    errno = 0;
    const unsigned long read = std::strtoul(p, &end, 0);
    const bool fits = errno == 0 && (*p == '-' ? -read : read) <= UINT32_MAX;
    value = fits ? static_cast<int>(static_cast<std::uint32_t>(read)) : -1;
    return end != p ? end : nullptr;
}

const char* SkipSpace(const char* p) {
    while (*p == ' ') ++p;
    return static_cast<unsigned char>(*p) > ' ' ? p : tc::SkipSpace(p);
}

bool IsEnd(const char* p, const char* end) {
    return tc::SkipSpace(p) == end;
}

// A zero byte in a text is not its end.
const char* EndOf(const TCString& text) {
    return static_cast<const char*>(text) + text.GetLength();
}

// A text that is one number and nothing else.
bool IsNumber(const TCString& text, double& value) {
    const char* end = ReadNumber(SkipSpace(text), value);
    return end != nullptr && IsEnd(end, EndOf(text));
}

// A decimal number of 32 bits.
bool IsDecimal(const TCString& text, int& value) {
    long number;
    const char* end = ReadWord(static_cast<const char*>(text), std::strtol, 10, number);
    value = static_cast<int>(number);
    return end == EndOf(text) && value == number;
}

enum class Reading { DONE, NO_NUMBER, OTHER_COUNT };

// Numbers with white space between them, as many as are asked for.
template <typename Number>
Reading ReadNumbers(std::string_view text, Number* numbers, int count) {
    const char* p = text.data();
    const char* const end = p + text.size();
    for (int i = 0; i < count; ++i) {
        if constexpr (std::is_same_v<Number, double>)
            i += tc::ReadWrittenDoubles(p, end, numbers + i, count - i);
        if (i == count) break;
        p = SkipSpace(p);
        if (p == end) return Reading::OTHER_COUNT;
        p = ReadNumber(p, numbers[i]);
        if (p == nullptr || (p != end && *p != ' ' && tc::SkipSpace(p) == p)) return Reading::NO_NUMBER;
    }
    return IsEnd(p, end) ? Reading::DONE : Reading::OTHER_COUNT;
}

// Reads the blocks of a document. The first failure ends the reading and leaves its message in the document.
class BlockReader {
 public:
    explicit BlockReader(TCXML& document) : xml(document) {}

    bool GetBlock(const TCXMLNode& node, Block& block, int level) {
        if (level > tc::MOST_XML_LEVELS) return Fail(tc::XML_TOO_DEEP);
        const TCXMLNode metadata = Child(node, "TypeInfo");
        if (metadata && !GetMetadata(metadata, block)) return false;
        TCXMLNodeList segments = xml.SelectNodes("Segments/Segment", node);
        while (const TCXMLNode segment = xml.NextNode(segments))
            if (!GetSegment(segment, block, level)) return false;
        return !xml.IsError();
    }

 private:
    bool Fail(const char* message) {
        if (!xml.IsError()) xml.SetUserError(message);
        return false;
    }

    TCXMLNode Child(const TCXMLNode& node, const char* path) { return xml.SelectSingleNode(path, node); }

    // Reads the text of the child into `text`; false when there is no such child.
    bool GetText(const TCXMLNode& node, const char* path) {
        const TCXMLNode child = Child(node, path);
        return child && xml.GetNodeText(child, text);
    }

    bool GetMetadata(const TCXMLNode& node, Block& block) {
        TCTypeInfo ti;
        return GetState(node, ti) && GetName(node, ti) && GetMetadataNumbers(node, ti) && GetUnit(node, ti) &&
               !xml.IsError() && block.SetTI(&ti);
    }

    bool GetState(const TCXMLNode& node, TCTypeInfo& ti) {
        int state;
        if (GetText(node, "State/@Value")) {
            if (!IsDecimal(text, state)) return Fail("Error interpreting State/@Value in TypeInfo");
        } else if (GetText(node, "State")) {
            state = TCTypeInfo::StringToBlockState(text);
            if (state < INVALID) return Fail("Error interpreting State in TypeInfo");
        } else {
            return Fail("State is missing in TypeInfo");
        }
        ti.SetState(static_cast<TCBLOCKSTATUS>(state));
        return true;
    }

    bool GetName(const TCXMLNode& node, TCTypeInfo& ti) {
        if (!GetText(node, "Name")) return true;
        if (!TCXML::UnquoteNodeTextString(text)) return Fail("Error unquoting Name in TypeInfo");
        ti.SetSignalnameString(TCString::TCString2BinCString(text));
        return true;
    }

    bool GetMetadataNumbers(const TCXMLNode& node, TCTypeInfo& ti) {
        static constexpr struct {
            const char* path;
            void (TCTypeInfo::*set)(double);
            const char* error;
        } NUMBERS[] = {
            {"Timestamp", &TCTypeInfo::SetTimestamp, "Error interpreting Timestamp in TypeInfo"},
            {"Samplerate", &TCTypeInfo::SetSamplerate, "Error interpreting Samplerate in TypeInfo"},
            {"Range/Min", &TCTypeInfo::SetRangeMin, "Error interpreting Range/Min in TypeInfo"},
            {"Range/Max", &TCTypeInfo::SetRangeMax, "Error interpreting Range/Max in TypeInfo"},
        };
        for (const auto& number : NUMBERS) {
            if (!GetText(node, number.path)) continue;
            double value;
            if (!IsNumber(text, value)) return Fail(number.error);
            (ti.*number.set)(value);
        }
        return true;
    }

    bool GetUnit(const TCXMLNode& node, TCTypeInfo& ti) {
        if (!GetText(node, "Unit")) return true;
        return ti.GetUnit().FromString(text) || Fail("Error interpreting Unit in TypeInfo");
    }

    struct NumberKind {
        const char* element;
        const char* missing;
        const char* noNumber;
    };
    static constexpr NumberKind INTEGERS = {"Integer", "Error Integer is missing in Values",
                                            "Error interpreting value in Integer"};
    static constexpr NumberKind DOUBLES = {"Double", "Error Double is missing in Values",
                                           "Error interpreting value in Double"};

    struct Shape {
        TCString name;
        TCIOStream::DATATYPE type = TCIOStream::UNDEF;
        TCArray<int> extents;
        int count = 0;  // of elements
    };

    // A name that is there already is reported before anything that is wrong with the values.
    bool GetSegment(const TCXMLNode& node, Block& block, int level) {
        Shape shape;
        if (!GetSegmentName(node, shape.name) || !GetType(node, shape.type) || !GetExtents(node, shape))
            return false;
        const int before = block.SegmentCnt();
        if (GetValues(node, block, shape, level)) return true;
        if (block.SegmentCnt() == before && HasName(block, shape.name)) xml.SetUserError(SET_DATA_FAILED);
        return false;
    }

    static bool HasName(const Block& block, const char* name) {
        for (int i = 0; i < block.SegmentCnt(); ++i)
            if (TCBusSerializeHelper::CompareSegmentNames(block.Segment(i)->GetName(), name) == 0)
                return true;
        return false;
    }

    bool GetValues(const TCXMLNode& node, Block& block, const Shape& shape, int level) {
        const TCXMLNode values = Child(node, "Values");
        if (!values) return Fail("Error Values is missing in Segment");
        switch (shape.type) {
            case TCIOStream::INT:
                return GetNumbers<int>(values, INTEGERS, block, shape);
            case TCIOStream::DOUBLE:
                return GetNumbers<double>(values, DOUBLES, block, shape);
            case TCIOStream::STRING:
                return GetStrings(values, block, shape);
            case TCIOStream::POINTER:
                return GetAddress(values, block, shape);
            default:
                return GetBlocks(values, block, shape, level);
        }
    }

    bool GetSegmentName(const TCXMLNode& node, TCString& name) {
        if (!GetText(node, "Name")) return !xml.IsError();
        if (!TCXML::UnquoteNodeTextString(text) || text.CalcDataFormat() != TCString::ASCII)
            return Fail("Error unquoting Name in Segment");
        name = text;
        return true;
    }

    bool GetType(const TCXMLNode& node, TCIOStream::DATATYPE& type) {
        int number;
        if (GetText(node, "DataType/@Value")) {
            if (!IsDecimal(text, number)) return Fail("Error interpreting DataType/@Value in Segment");
        } else if (GetText(node, "DataType")) {
            number = TCIOStream::StringToDataType(text);
            if (number < 0) return Fail("Error interpreting DataType in Segment");
        } else {
            return Fail("Error DataType is missing in Segment");
        }
        type = static_cast<TCIOStream::DATATYPE>(number);
        return true;
    }

    // Also checks that there can be such a segment at all.
    bool GetExtents(const TCXMLNode& node, Shape& shape) {
        if (!GetText(node, "Length")) return Fail("Error Length is missing in Segment");
        std::int64_t count = 1;
        for (const char* p = text; !IsEnd(p, EndOf(text));) {
            char* end = nullptr;
            const long extent = std::strtol(p, &end, 10);
            const bool isAlone = end == EndOf(text) || tc::SkipSpace(end) != end;
            if (end == p || !isAlone || extent < 0 || extent > INT_MAX) return Fail(SET_DATA_FAILED);
            count *= extent;
            if (count > INT_MAX) return Fail(SET_DATA_FAILED);
            shape.extents.Add(static_cast<int>(extent));
            p = end;
        }
        shape.count = shape.extents.IsEmpty() ? 0 : static_cast<int>(count);
        const bool isType = shape.type > TCIOStream::UNDEF && shape.type <= TCIOStream::BLOCK;
        return (isType && (shape.count > 0 || shape.type == TCIOStream::POINTER)) || Fail(SET_DATA_FAILED);
    }

    // Adds the segment; called when the document is known to be long enough for its elements.
    bool Add(Block& block, const Shape& shape, void*& elements) {
        return block.AddEmptySegment(shape.name, shape.type, shape.extents.GetSize(), shape.extents.GetData(),
                                     elements) ||
               Fail(SET_DATA_FAILED);
    }

    template <typename Number>
    bool GetNumbers(const TCXMLNode& values, const NumberKind& kind, Block& block, const Shape& shape) {
        const TCXMLNode node = Child(values, kind.element);
        if (!node) return Fail(kind.missing);
        std::string_view numbers;
        if (!tc::XmlNumberText(node, numberText, numbers)) return Fail(kind.noNumber);
        void* elements;
        const auto most = static_cast<std::int64_t>(numbers.size() + 1) / 2;  // a digit and a blank each
        if (shape.count > most || !Add(block, shape, elements)) return Fail(SET_DATA_FAILED);
        const Reading reading = ReadNumbers(numbers, static_cast<Number*>(elements), shape.count);
        if (reading == Reading::NO_NUMBER) return Fail(kind.noNumber);
        return reading == Reading::DONE || Fail(SET_DATA_FAILED);
    }

    // Where there are too few elements, those that are there are read aside: nothing is allocated for a
    // length that the document does not have.
    bool GetStrings(const TCXMLNode& values, Block& block, const Shape& shape) {
        TCXMLNodeList list = xml.SelectNodes("String", values);
        void* elements = nullptr;
        if (!AddListed(list, block, shape, elements)) return false;
        for (int i = 0; i < list.GetCount(); ++i) {
            TCString& string = elements != nullptr ? static_cast<TCString*>(elements)[i] : text;
            if (!xml.GetNodeText(xml.NextNode(list), string)) return false;
            if (!TCXML::UnquoteNodeTextString(string)) return Fail("Error unquoting String in Values");
        }
        return elements != nullptr || Fail("Error String is missing Values");
    }

    // Each nested block is a new one, so that its segments have the order of the document whatever the block
    // before had.
    bool GetBlocks(const TCXMLNode& values, Block& block, const Shape& shape, int level) {
        TCXMLNodeList list = xml.SelectNodes("Block", values);
        void* elements = nullptr;
        if (!AddListed(list, block, shape, elements)) return false;
        for (int i = 0; i < list.GetCount(); ++i) {
            auto fresh = std::make_unique<Block>();
            Block& nested = *fresh;
            if (elements != nullptr) delete std::exchange(static_cast<Block**>(elements)[i], fresh.release());
            if (!GetBlock(xml.NextNode(list), nested, level + 1)) return false;
        }
        return elements != nullptr || Fail("Error Block is missing in Values");
    }

    // Adds the segment when the list has its elements; with too few `elements` stays null.
    bool AddListed(const TCXMLNodeList& list, Block& block, const Shape& shape, void*& elements) {
        if (list.GetCount() > shape.count) return Fail(SET_DATA_FAILED);
        return list.GetCount() < shape.count || Add(block, shape, elements);
    }

    bool GetAddress(const TCXMLNode& values, Block& block, const Shape& shape) {
        if (!GetText(values, "Pointer")) return Fail("Error Pointer is missing in Values");
        unsigned long address;
        const char* end = ReadWord(static_cast<const char*>(text), std::strtoul, 0, address);
        if (end == nullptr || !IsEnd(end, EndOf(text))) return Fail("Error interpreting value in Pointer");
        return block.AddSegment(shape.name, shape.type, shape.extents.GetSize(), shape.extents.GetData(),
                                reinterpret_cast<const void*>(address)) ||
               Fail(SET_DATA_FAILED);
    }

    TCXML& xml;
    TCString text;  // of the node read last; kept, so that its storage is
    std::string numberText;
};

}  // namespace

int TCIOStream::XMLToStream(TCXML& xml) {
    if (xml.IsError()) return tc::OTHER_TYPE;  // a document that failed to load keeps its reason
    TCXMLNodeList blocks = xml.SelectNodes("Stream/Block");
    BlockReader reader(xml);
    for (int dispatched = 0; !xml.IsError(); ++dispatched) {
        const TCXMLNode node = xml.NextNode(blocks);
        if (!node) return xml.IsError() ? tc::OTHER_TYPE : dispatched;
        const bool begun =
            actualBlock != nullptr && (actualBlock->writtenCount > 0 || actualBlock->typeInfoValid);
        if (const int reserved = ReserveBlock(true); reserved < 1) return reserved;
        const bool read = tc::Guarded([&] { return reader.GetBlock(node, *actualBlock, 1); }, false);
        const int result = read ? DispatchChecked(false) : xml.IsError() ? tc::OTHER_TYPE : tc::NOT_WRITTEN;
        if (!read && !begun) actualBlock->Reset(true);
        if (result != 1) return result;
    }
    return tc::OTHER_TYPE;
}
