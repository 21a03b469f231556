#include "host/check/OutputRecord.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "sigweave/services/Bilingual.h"
#include "sigweave/signal/TCBusSerializeHelper.h"

namespace host::check {
namespace {

using tc::Bilingual;

constexpr double SAME_TIME = 0.01;  // milliseconds: what rounding makes of the time of two runs

std::string Exact(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%.17g", value);
    return std::isnan(value) ? "nan" : text;
}

// Each run makes the third part of a channel's name anew.
std::string StableName(const char* name) {
    TCBusSerializeHelper::Parts parts;
    if (!TCBusSerializeHelper::SplitSegmentName(name, parts)) return name;
    return std::to_string(parts.portIdx) + " " + std::string(parts.segmentName) + " " +
           std::string(parts.validation);
}

std::string Which(std::size_t output, int block) {
    return Bilingual("output %1, block %2", "Ausgang %1, Block %2")
        .With({std::to_string(output), std::to_string(block)});
}

bool MayFollow(TCBLOCKSTATUS before, TCBLOCKSTATUS after) {
    const bool isOpen = before == START || before == BUSY;
    return isOpen ? after == BUSY || after == STOP : after == START || after == COMPLETE;
}

template <class Fact>
std::string Shown(const Fact& fact) {
    return fact.time != 0.0 ? Exact(fact.time) + " ms" : fact.value;
}

template <class Facts>
std::string FirstDifference(const Facts& first, const Facts& later) {
    const std::size_t common = std::min(first.size(), later.size());
    for (std::size_t i = 0; i < common; ++i) {
        const bool same = first[i].what == later[i].what && first[i].value == later[i].value &&
                          !(std::fabs(first[i].time - later[i].time) >= SAME_TIME);
        if (same) continue;
        return first[i].what == later[i].what
                   ? Bilingual("%1: first '%2', then '%3'", "%1: erst '%2', dann '%3'")
                         .With({first[i].what, Shown(first[i]), Shown(later[i])})
                   : Bilingual("first %1 '%2', then %3 '%4'", "erst %1 '%2', dann %3 '%4'")
                         .With({first[i].what, Shown(first[i]), later[i].what, Shown(later[i])});
    }
    if (first.size() == later.size()) return {};
    const bool more = later.size() > first.size();
    return (more ? Bilingual("%1: only the later run has it", "%1: nur der spätere Lauf hat es")
                 : Bilingual("%1: only the first run has it", "%1: nur der erste Lauf hat es"))
        .With({more ? later[common].what : first[common].what});
}

}  // namespace

void OutputRecord::Take(std::size_t output, TCIOStream& stream) {
    if (outputs.size() <= output) outputs.resize(output + 1);
    Output& record = outputs[output];
    while (stream.StartReadSegments(true) > 0) {
        const std::string where = Which(output, ++record.blocks);
        if (const TCTypeInfo* info = stream.GetTI()) {
            record.states.push_back(info->GetState());
            AddMetadata(record, where, *info);
            TCString unit;
            info->GetUnit().ToString(unit);
            record.named += *info->GetSignalname() != '\0' ? 1 : 0;
            record.withUnit += unit.IsEmpty() ? 0 : 1;
        }
        for (int i = 0; i < stream.SegmentCnt(); ++i) AddSegment(record, where, *stream.Segment(i));
    }
}

void OutputRecord::AddMetadata(Output& output, const std::string& where, const TCTypeInfo& info) {
    TCString unit;
    info.GetUnit().ToString(unit);
    const auto add = [&](const char* what, const std::string& value) {
        output.facts.push_back({where + ", " + what, value});
    };
    add("state", TCTypeInfo::BlockStateToString(info.GetState()));
    add("name", info.GetSignalname());
    add("samplerate", Exact(info.GetSamplerate()));
    add("range", Exact(info.GetRangeMin()) + " .. " + Exact(info.GetRangeMax()));
    add("unit", std::string(unit));
    if (!output.hasTime) output.firstTime = info.GetTimestamp();
    output.hasTime = true;
    add("timestamp", "");
    output.facts.back().time = info.GetTimestamp() - output.firstTime;
}

void OutputRecord::AddSegment(Output& output, const std::string& where,
                              const TCIOStream::DataSegment& segment) {
    const std::string place = where + ", '" + StableName(segment.GetName()) + "'";
    std::string shape = TCIOStream::DataTypeToString(segment.GetType());
    for (int i = 0; i < segment.GetDimensionCount(); ++i) shape += " " + std::to_string(segment.GetExtent(i));
    output.facts.push_back({place, shape});
    for (int i = 0; i < segment.GetElementCount(); ++i) {
        const std::string element = place + " " + std::to_string(i + 1);
        if (segment.GetInts() != nullptr)
            output.facts.push_back({element, std::to_string(segment.GetInts()[i])});
        else if (segment.GetDoubles() != nullptr)
            output.facts.push_back({element, Exact(segment.GetDoubles()[i])});
        else if (segment.GetStrings() != nullptr)
            output.facts.push_back({element, std::string(segment.GetStrings()[i])});
        else if (segment.GetBlocks() != nullptr)
            AddBlock(output, element, *segment.GetBlocks()[i]);
    }
}

void OutputRecord::AddBlock(Output& output, const std::string& where, const TCIOStream::Block& block) {
    if (const TCTypeInfo* info = block.GetTI()) AddMetadata(output, where, *info);
    for (int i = 0; i < block.SegmentCnt(); ++i) AddSegment(output, where, *block.Segment(i));
}

void OutputRecord::TakeResults(const TCBaseModuleEx& module) {
    for (const TCModuleResult& result : module.GetResults())
        results.push_back({std::string(result.signal) + " " + std::string(result.quantity),
                           Exact(result.value) + " " + std::string(result.unit)});
}

std::string OutputRecord::DifferenceTo(const OutputRecord& later) const {
    static const Output NOTHING;
    for (std::size_t i = 0; i < std::max(outputs.size(), later.outputs.size()); ++i) {
        const std::string difference =
            FirstDifference(i < outputs.size() ? outputs[i].facts : NOTHING.facts,
                            i < later.outputs.size() ? later.outputs[i].facts : NOTHING.facts);
        if (!difference.empty()) return difference;
    }
    return FirstDifference(results, later.results);
}

std::string OutputRecord::WrongStates(bool whole) const {
    for (std::size_t index = 0; index < outputs.size(); ++index) {
        TCBLOCKSTATUS before = STOP;
        int block = 0;
        for (const TCBLOCKSTATUS state : outputs[index].states) {
            ++block;
            if (!MayFollow(before, state))
                return Bilingual("%1: %2 follows %3", "%1: %2 folgt auf %3")
                    .With({Which(index, block), TCTypeInfo::BlockStateToString(state),
                           block == 1 ? Bilingual("nothing", "nichts").Text()
                                      : TCTypeInfo::BlockStateToString(before)});
            before = state;
        }
        if (whole && (before == START || before == BUSY))
            return Bilingual("%1: the signal does not end", "%1: das Signal endet nicht")
                .With({Which(index, block)});
    }
    return {};
}

std::optional<OutputRecord::Nameless> OutputRecord::FirstNameless() const {
    for (std::size_t index = 0; index < outputs.size(); ++index) {
        const Output& output = outputs[index];
        if (!output.states.empty() && output.named == 0) return Nameless{index, output.withUnit == 0};
    }
    return {};
}

}  // namespace host::check
