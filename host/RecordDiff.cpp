#include "host/RecordDiff.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <vector>

#include "host/AnyRecording.h"
#include "host/FileWait.h"
#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/foundation/StringConversion.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/signal/TCBusSerializeHelper.h"

namespace host {
namespace {

using tc::Bilingual;

using Block = TCIOStream::Block;
using Segment = TCIOStream::DataSegment;

bool AreSame(double a, double b) {
    return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}
bool AreSame(int a, int b) {
    return a == b;
}
bool AreSame(const TCString& a, const TCString& b) {
    return a.CompareBin(b) == 0;
}

// As few digits as distinguish the value from every other one.
std::string Show(double value) {
    if (!std::isnan(value)) return tc::ShortestText(value);
    char text[40];
    std::snprintf(text, sizeof text, "nan (0x%016llx)",
                  static_cast<unsigned long long>(std::bit_cast<std::uint64_t>(value)));
    return text;
}
std::string Show(int value) {
    return std::to_string(value);
}
std::string Show(const TCString& value) {
    TCString escaped;
    return "'" + std::string(QuoteControlChar(escaped, value)) + "'";
}

std::string Show(const TCSI_Unit& unit) {
    TCString symbols;
    unit.GetString(symbols);
    return Bilingual("'%1' with factor %2", "'%1' mit Faktor %2")
        .With({std::string(symbols), Show(unit.GetFactor())});
}
bool AreSame(const TCSI_Unit& a, const TCSI_Unit& b) {
    for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i)
        if (a.GetExponent(i) != b.GetExponent(i)) return false;
    return AreSame(a.GetFactor(), b.GetFactor());
}

// The compatibility check of a channel is another one in every run, so it means nothing here.
bool IsSameName(const TCString& a, const TCString& b) {
    TCBusSerializeHelper::Parts x;
    TCBusSerializeHelper::Parts y;
    if (!TCBusSerializeHelper::SplitSegmentName(a, x) || !TCBusSerializeHelper::SplitSegmentName(b, y))
        return AreSame(a, b);
    return x.portIdx == y.portIdx && x.segmentName == y.segmentName && x.validation == y.validation;
}

// A channel goes by the name that its maker gave it.
TCString PlainName(const TCString& name) {
    TCBusSerializeHelper::Parts parts;
    if (!TCBusSerializeHelper::SplitSegmentName(name, parts)) return name;
    TCString plain;
    plain.AllocCopy(parts.segmentName);
    return plain;
}

std::string ShapeOf(const Segment& segment) {
    std::string text;
    for (int i = 0; i < segment.GetDimensionCount(); ++i)
        text += (i > 0 ? " x " : "") + std::to_string(segment.GetExtent(i));
    return text;
}

std::string SomeOrNone(bool some) {
    return some ? Bilingual("some", "vorhanden").Text() : Bilingual("none", "keine").Text();
}

// Finds the first difference between two blocks and says where it is.
class Comparer {
 public:
    explicit Comparer(std::string path) : where(std::move(path)) {}

    const std::string& GetText() const { return text; }

    bool Compare(const Block& a, const Block& b) {
        if (!CompareMetadata(a.GetTI(), b.GetTI()) ||
            !Compare(Bilingual("segments", "Segmente"), a.SegmentCnt(), b.SegmentCnt()))
            return false;
        for (int i = 0; i < a.SegmentCnt(); ++i) {
            const std::string before = where;
            where += Bilingual(", segment %1", ", Segment %1").With({std::to_string(i + 1)});
            if (!CompareSegment(*a.Segment(i), *b.Segment(i))) return false;
            where = before;
        }
        return true;
    }

 private:
    bool Differ(const std::string& what, const std::string& a, const std::string& b) {
        text = Bilingual("%1, %2: %3 and %4", "%1, %2: %3 und %4").With({where, what, a, b});
        return false;
    }

    template <class Value>
    bool Compare(const Bilingual& what, const Value& a, const Value& b) {
        return AreSame(a, b) || Differ(what.Text(), Show(a), Show(b));
    }

    bool CompareMetadata(const TCTypeInfo* a, const TCTypeInfo* b) {
        if (a == nullptr || b == nullptr)
            return a == b || Differ(Bilingual("metadata", "Metadaten").Text(), SomeOrNone(a != nullptr),
                                    SomeOrNone(b != nullptr));
        if (a->GetState() != b->GetState())
            return Differ(Bilingual("state", "Zustand").Text(), TCTypeInfo::BlockStateToString(a->GetState()),
                          TCTypeInfo::BlockStateToString(b->GetState()));
        return Compare(Bilingual("signal name", "Signalname"),
                       TCString::CString2BinTCString(a->GetSignalnameString()),
                       TCString::CString2BinTCString(b->GetSignalnameString())) &&
               Compare(Bilingual("timestamp", "Zeitstempel"), a->GetTimestamp(), b->GetTimestamp()) &&
               Compare(Bilingual("samplerate", "Abtastrate"), a->GetSamplerate(), b->GetSamplerate()) &&
               Compare(Bilingual("range minimum", "Bereichsanfang"), a->GetRangeMin(), b->GetRangeMin()) &&
               Compare(Bilingual("range maximum", "Bereichsende"), a->GetRangeMax(), b->GetRangeMax()) &&
               Compare(Bilingual("unit", "Einheit"), a->GetUnit(), b->GetUnit());
    }

    bool CompareSegment(const Segment& a, const Segment& b) {
        if (!IsSameName(a.GetName(), b.GetName()))
            return Differ(Bilingual("name", "Name").Text(), Show(a.GetName()), Show(b.GetName()));
        if (!a.GetName().IsEmpty()) where += " " + Show(PlainName(a.GetName()));
        if (a.GetType() != b.GetType())
            return Differ(Bilingual("type", "Typ").Text(), TCIOStream::DataTypeToString(a.GetType()),
                          TCIOStream::DataTypeToString(b.GetType()));
        if (ShapeOf(a) != ShapeOf(b))
            return Differ(Bilingual("length", "Länge").Text(), ShapeOf(a), ShapeOf(b));
        const int count = a.GetElementCount();
        if (a.GetType() == TCIOStream::BLOCK) return CompareBlocks(a.GetBlocks(), b.GetBlocks(), count);
        return CompareElements(a.GetInts(), b.GetInts(), count) &&
               CompareElements(a.GetDoubles(), b.GetDoubles(), count) &&
               CompareElements(a.GetStrings(), b.GetStrings(), count);
    }

    bool CompareBlocks(Block* const* a, Block* const* b, int count) {
        for (int i = 0; i < count; ++i) {
            const std::string before = where;
            where += Bilingual(", block %1", ", Block %1").With({std::to_string(i + 1)});
            if (!Compare(*a[i], *b[i])) return false;
            where = before;
        }
        return true;
    }

    // Null when the segment is of another type.
    template <class Element>
    bool CompareElements(const Element* a, const Element* b, int count) {
        if (a == nullptr) return true;
        const auto same = [](const Element& x, const Element& y) { return AreSame(x, y); };
        const auto [x, y] = std::mismatch(a, a + count, b, same);
        return x == a + count ||
               Differ(Bilingual("element %1", "Element %1").With({std::to_string(x - a + 1)}), Show(*x),
                      Show(*y));
    }

    std::string where;
    std::string text;
};

RecordComparison Unreadable(const AnyRecording& recording) {
    return {RecordVerdict::Unreadable, recording.GetError()};
}

RecordComparison Different(const std::string& text) {
    return {RecordVerdict::Different, text};
}

std::string TypeText(const AnyRecording& recording, int signal) {
    const int items = recording.CountItems(signal);
    if (items <= 0) return SomeOrNone(false);
    const char* const unit =
        items == 1 ? Bilingual("item", "Element").Text() : Bilingual("items", "Elemente").Text();
    return recording.TypeString(signal) + " (" + std::to_string(items) + " " + unit + ")";
}

// Two recordings, side by side.
class Pair {
 public:
    Pair(const std::string& firstPath, const std::string& secondPath, const std::string& nameOfSecond)
        : paths{firstPath, secondPath}, names{firstPath, nameOfSecond} {}

    RecordComparison Compare() {
        if (!a.Open(paths[0])) return Unreadable(a);
        if (!b.Open(paths[1])) return Unreadable(b);
        const int signals = a.CountSignals();
        if (signals != b.CountSignals())
            return Different(Bilingual("number of signals: %1 and %2", "Zahl der Signale: %1 und %2")
                                 .With({std::to_string(signals), std::to_string(b.CountSignals())}));
        isNamed = signals > 1;
        for (int signal = 0; signal < signals; ++signal)
            if (TypeText(a, signal) != TypeText(b, signal))
                return Different(Of(signal) +
                                 Bilingual("type of the port: %1 and %2", "Typ des Anschlusses: %1 und %2")
                                     .With({TypeText(a, signal), TypeText(b, signal)}));
        std::vector<std::int64_t> met(static_cast<std::size_t>(signals));
        for (;;) {
            const int readA = a.Next();
            if (readA < 0) return Unreadable(a);
            if (readA == 0) return CompareEnds(met);
            const int signal = a.GetSignal();
            const std::int64_t number = a.GetBlockNumber();
            const int readB = b.Find(signal, number);
            if (readB < 0) return Unreadable(b);
            if (readB == 0) return OnlyIn(0, signal, number);
            Comparer comparer(Where(signal, number));
            if (!comparer.Compare(a.GetBlock(), b.GetBlock())) return Different(comparer.GetText());
            met[static_cast<std::size_t>(signal)] = number;
        }
    }

 private:
    std::string Of(int signal) const {
        if (!isNamed) return "";
        return Bilingual("signal '%1', ", "Signal '%1', ").With({a.SignalName(signal)});
    }
    std::string Where(int signal, std::int64_t number) const {
        return Of(signal) + Bilingual("block %1", "Block %1").With({std::to_string(number)});
    }
    RecordComparison OnlyIn(int which, int signal, std::int64_t number) const {
        return Different(Bilingual("%1 is only in %2", "%1 gibt es nur in %2")
                             .With({Where(signal, number), names[which]}));
    }

    RecordComparison CompareEnds(const std::vector<std::int64_t>& met) {
        for (int signal = 0; signal < a.CountSignals(); ++signal) {
            const std::int64_t next = met[static_cast<std::size_t>(signal)] + 1;
            const int read = b.Find(signal, next);
            if (read < 0) return Unreadable(b);
            if (read > 0) return OnlyIn(1, signal, next);
        }
        return {};
    }

    std::string paths[2];
    std::string names[2];
    AnyRecording a;
    AnyRecording b;
    bool isNamed = false;
};

}  // namespace

RecordComparison CompareRecords(const std::string& pathA, const std::string& pathB,
                                const std::string& nameOfB) {
    const FileWait wait("", {pathA, pathB});
    return Pair(pathA, pathB, nameOfB.empty() ? pathB : nameOfB).Compare();
}

}  // namespace host
