#include "python/src/Samples.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "sigweave/signal/TCBusSerializeHelper.h"
#include "sigweave/signal/UnitText.h"

namespace python {
namespace {

constexpr std::size_t SMALLEST = 1 << 16;  // bytes

Kind KindOf(const TCIOStream::DataSegment* segment) {
    if (segment == nullptr || segment->GetElementCount() == 0) return Kind::Empty;
    if (segment->GetDoubles() != nullptr) return Kind::Doubles;
    if (segment->GetInts() != nullptr) return Kind::Ints;
    return segment->GetStrings() != nullptr ? Kind::Texts : Kind::Empty;
}

}  // namespace

std::string NameOf(const TCString& name) {
    TCBusSerializeHelper::Parts parts;
    return std::string(TCBusSerializeHelper::SplitSegmentName(name, parts) ? parts.segmentName
                                                                           : std::string_view(name));
}

Info InfoOf(const TCTypeInfo* info) {
    Info made;
    if (info == nullptr) return made;
    made.name = info->GetSignalnameString();
    made.start = info->GetTimestamp() / 1000.0;
    made.rate = info->GetSamplerate();
    made.low = info->GetRangeMin();
    made.high = info->GetRangeMax();
    TCString stored;
    info->GetUnit().ToString(stored);
    made.storedUnit = std::string(stored);
    made.unit = tc::DisplayUnit(info->GetUnit());
    made.state = info->GetState();
    return made;
}

Memory::~Memory() {
    std::free(data);
}

void* Memory::Append(std::size_t bytes) {
    if (bytes > capacity - size) {
        const std::size_t wanted = std::max({size + bytes, capacity * 2, SMALLEST});
        void* const grown = std::realloc(data, wanted);
        if (grown == nullptr) throw std::bad_alloc();
        data = grown;
        capacity = wanted;
    }
    void* const room = static_cast<char*>(data) + size;
    size += bytes;
    return room;
}

bool Samples::Append(const TCIOStream::DataSegment* segment, const TCTypeInfo* typeInfo) {
    const Kind found = KindOf(segment);
    if (marks.empty()) info = InfoOf(typeInfo);
    Mark mark;
    mark.first = marks.empty() ? 0 : marks.back().first + marks.back().count;
    if (typeInfo != nullptr) {
        mark.start = typeInfo->GetTimestamp() / 1000.0;
        mark.rate = typeInfo->GetSamplerate();
        mark.state = typeInfo->GetState();
    }
    const bool fits = found == Kind::Empty ? segment == nullptr || segment->GetElementCount() == 0
                                           : kind == Kind::Empty || kind == found;
    if (fits && found != Kind::Empty) {
        kind = found;
        mark.count = segment->GetElementCount();
        segment->GetShape(mark.rows, mark.columns);
        dimensions = std::max(dimensions, segment->GetDimensionCount());
        const auto count = static_cast<std::size_t>(mark.count);
        const std::size_t size = kind == Kind::Doubles ? sizeof(double) : sizeof(int);
        if (kind == Kind::Texts)
            for (std::size_t i = 0; i < count; ++i) texts.emplace_back(std::string(segment->GetStrings()[i]));
        else
            std::memcpy(memory.Append(count * size), segment->GetData(), count * size);
    }
    if (!fits) ++refused;
    marks.push_back(mark);
    return fits;
}

void Samples::Clear() {
    kind = Kind::Empty;
    dimensions = 1;
    memory.Clear();
    texts.clear();
    marks.clear();
    refused = 0;
}

void Track::Append(const TCIOStream::Block& block) {
    const TCTypeInfo* const info = block.GetTI();
    const int count = block.SegmentCnt();
    if (count == 0) {
        Find("").Append(nullptr, info);
        return;
    }
    std::vector<std::string> used;
    for (int index = 0; index < count; ++index) {
        const TCIOStream::DataSegment& segment = *block.Segment(index);
        std::string name = NameOf(segment.GetName());
        if (count > 1) {
            name = Distinct(
                name, [&](const std::string& other) { return std::ranges::find(used, other) != used.end(); });
            used.push_back(name);
        }
        TCIOStream::Block* const* const nested = segment.GetBlocks();
        for (int i = 0; nested != nullptr && i < segment.GetElementCount(); ++i)
            if (nested[i] != nullptr) Find(name).Append(nested[i]->Segment(0), nested[i]->GetTI());
        if (nested != nullptr) continue;
        const bool isPlain = name.empty() && byName && info != nullptr;
        Find(isPlain ? std::string(info->GetSignalname()) : name).Append(&segment, info);
    }
}

Samples& Track::Find(const std::string& name) {
    auto found = std::ranges::find(parts, name, &Part::name);
    if (found == parts.end()) {
        parts.push_back({name});
        found = parts.end() - 1;
        found->samples->isSpectrum = isSpectrum;
    }
    return *found->samples;
}

void Track::SetSpectrum(bool is) {
    isSpectrum = is;
    for (Part& part : parts) part.samples->isSpectrum = is;
}

void Track::Clear() {
    for (Part& part : parts) part.samples->Clear();
}

}  // namespace python
