#include "host/check/BlockMaker.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "sigweave/signal/TCBusSerializeHelper.h"

namespace host::check {
namespace {

constexpr double RATE = 48000.0;
constexpr double BEGIN = 1.7e12;  // milliseconds: in November 2023
constexpr int MATRIX_ROWS = 4;
constexpr TCPortHelper::TYPE BUS_CHANNEL = TCPortHelper::TYPE_DOUBLEARRAY | TCPortHelper::TYPE_TYPEINFO;
constexpr TCPortHelper::TYPE KINDS = 0x00FFFFFF;
constexpr TCPortHelper::TYPE SCALARS = TCPortHelper::TYPE_SWORD | TCPortHelper::TYPE_SWORD1 |
                                       TCPortHelper::TYPE_DOUBLE | TCPortHelper::TYPE_DOUBLE1 |
                                       TCPortHelper::TYPE_TEXT;

constexpr double INF = std::numeric_limits<double>::infinity();
constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();
constexpr double HIGHEST = std::numeric_limits<double>::max();
constexpr double NOT_FINITE[] = {NOT_A_NUMBER, INF, -INF, NOT_A_NUMBER, 0.5};
constexpr double EXTREMES[] = {HIGHEST, -HIGHEST, std::numeric_limits<double>::min(),
                               std::numeric_limits<double>::denorm_min(), -0.0};
constexpr double WILD[] = {NOT_A_NUMBER, INF, -INF, 0.0, -1.0, 1e-300, HIGHEST, -HIGHEST};

std::vector<LineType> MakeLineTypes() {
    constexpr const char* PLAIN[] = {
        "DOUBLE[]{TIME_DOMAIN}",
        "DOUBLE[]{FREQ_DOMAIN}",
        "DOUBLE[1]{TIME_DOMAIN}",
        "DOUBLE{TIME_DOMAIN}",
        "SWORD[]{BIN}",
        "SWORD[1]{BIN}",
        "SWORD{BIN}",
        "UBYTE[]{Text}",
        "UBYTE[][]{Text}",
        "POINTER{DOUBLE[][]}",
        "POINTER{SWORD[][]}",
        "MultiType{}",
    };
    std::vector<LineType> types;
    for (const char* text : PLAIN) types.push_back({std::string("TYPEINFO{TypeInfo} ") + text, 2});
    types.push_back({"STRUCT_BUS{BUS}", 1});
    for (const char* text : PLAIN) types.push_back({text, 1});
    types.push_back({"SWORD[1]{BIN} DOUBLE[1]{TIME_DOMAIN}", 2});
    return types;
}

}  // namespace

const std::vector<LineType>& LineTypes() {
    static const std::vector<LineType> TYPES = MakeLineTypes();
    return TYPES;
}

bool CanMake(const LineType& type) {
    const TCPortHelper::TYPE code = type.Code();
    const bool isAddress = (code & (TCPortHelper::TYPE_POINTER | TCPortHelper::TYPE_POINTERARRAY)) != 0;
    return type.items > 0 && (code & TCPortHelper::TYPE_UNKNOWN) == 0 && (!isAddress || (code & KINDS) != 0);
}

double BlockMaker::Number(const BlockPlan& plan) {
    const double number = static_cast<double>(random() >> 11) * 0x1p-52 - 1.0;
    const auto one = [&](const auto& set) { return set[random() % std::size(set)]; };
    if (plan.content == Content::NotFinite) return random() % 4 != 0 ? one(NOT_FINITE) : number;
    return plan.content == Content::Extreme ? one(EXTREMES) : number;
}

void BlockMaker::MakeNumbers(const BlockPlan& plan) {
    numbers.resize(static_cast<std::size_t>(plan.values));
    for (double& number : numbers) number = Number(plan);
}

void BlockMaker::MakeIntegers(const BlockPlan& plan) {
    integers.resize(static_cast<std::size_t>(plan.values));
    for (int& integer : integers)
        integer = plan.content == Content::Signal ? static_cast<int>(random() % 2001) - 1000
                                                  : static_cast<int>(random());
}

TCTypeInfo BlockMaker::Metadata(const BlockPlan& plan, unsigned input) {
    TCTypeInfo info;
    info.SetSignalname(("signal " + std::to_string(input + 1)).c_str());
    info.SetTimestamp(BEGIN + 1000.0 * static_cast<double>(position) / RATE);
    info.SetSamplerate(RATE);
    info.SetRangeMin(-1.0);
    info.SetRangeMax(1.0);
    info.GetUnit().FromString("V");
    info.SetState(plan.state);
    if (!plan.wildMetadata) return info;
    const auto wild = [&] { return WILD[random() % std::size(WILD)]; };
    info.SetTimestamp(wild());
    info.SetSamplerate(wild());
    info.SetRangeMin(wild());
    info.SetRangeMax(wild());
    if (random() % 2 == 0) info.SetSignalname("");
    return info;
}

int BlockMaker::Write(TCIOStream& stream, const LineType& type, const BlockPlan& plan, unsigned input) {
    if (type.IsBus()) return WriteBus(stream, plan, input);
    const TCPortHelper::TYPE code = type.Code();
    if (type.HasTypeInfo()) {
        const TCTypeInfo info = Metadata(plan, input);
        if (const int refused = stream.SetTI(&info, false); refused < 0) return refused;
    }
    if (plan.values == 0) return stream.StartWriteSegments() > 0 && stream.EndWriteSegments() ? 0 : -1;
    if ((code & KINDS) == 0) return WriteParts(stream, plan);
    BlockPlan single = plan;
    if ((code & SCALARS) != 0) single.values = 1;
    return WriteValues(stream, code, single);
}

int BlockMaker::WriteValues(TCIOStream& stream, TCPortHelper::TYPE code, const BlockPlan& plan) {
    const int rows = std::min(MATRIX_ROWS, plan.values);
    if ((code & (TCPortHelper::TYPE_TEXT | TCPortHelper::TYPE_TEXTARRAY)) != 0) {
        std::vector<CString> texts(static_cast<std::size_t>(plan.values));
        for (CString& text : texts) text = "text " + std::to_string(random() % 1000);
        return stream.WriteStrVec(texts.data(), plan.values);
    }
    if ((code & 0x0F) != 0) {
        MakeIntegers(plan);
        if ((code & TCPortHelper::TYPE_SWORDMATRIX) != 0)
            return stream.WriteIntMat(integers.data(), rows, plan.values / rows, true);
        return stream.WriteIntVec(integers.data(), plan.values);
    }
    MakeNumbers(plan);
    if ((code & TCPortHelper::TYPE_DOUBLEMATRIX) != 0)
        return stream.WriteDblMat(numbers.data(), rows, plan.values / rows, true);
    return stream.WriteDblVec(numbers.data(), plan.values);
}

// Two channels, each with metadata of its own.
int BlockMaker::WriteBus(TCIOStream& stream, const BlockPlan& plan, unsigned input) {
    if (stream.StartWriteSegments() < 1) return -1;
    for (int channel = 0; channel < 2 && plan.values > 0; ++channel) {
        TCTypeInfo info = Metadata(plan, input);
        const std::string name = "signal " + std::to_string(channel + 1);
        info.SetSignalname(name.c_str());
        MakeNumbers(plan);
        const TCString segment =
            TCBusSerializeHelper::GenSegmentName(BUS_CHANNEL, nullptr, 0, channel, name.c_str(), "check");
        stream.WriteBusSegment(segment, TCIOStream::DOUBLE, 1, &plan.values, numbers.data(), true, &info);
    }
    return stream.EndWriteSegments() ? 0 : -1;
}

int BlockMaker::WriteParts(TCIOStream& stream, const BlockPlan& plan) {
    if (stream.StartWriteSegments() < 1) return -1;
    stream.WriteSegment("part 1", static_cast<int>(random() % 1000));
    stream.WriteSegment("part 2", Number(plan));
    stream.WriteSegment("part 3", "text");
    return stream.EndWriteSegments() ? 0 : -1;
}

}  // namespace host::check
