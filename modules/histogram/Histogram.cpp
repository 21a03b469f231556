#include "modules/histogram/Histogram.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "modules/common/EachInput.h"
#include "modules/common/SignalQuantity.h"
#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"

namespace {

using tc::Bilingual;

enum class Scale { COUNT, SHARE, DENSITY };
constexpr tc::Choice<Scale> SCALES[] = {
    {"count", Scale::COUNT}, {"share", Scale::SHARE}, {"density", Scale::DENSITY}};

constexpr Bilingual BINS("Bins", "Klassen");
constexpr int MOST_BINS = 1000000;

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "bins",
     .kind = TCModuleParameter::INTEGER,
     .defaultValue = "0",
     .help = {"of equal width; 0: as many as suit the values, by Sturges or Freedman and Diaconis",
              "gleicher Breite; 0: so viele, wie zu den Werten passen, nach Sturges oder Freedman und "
              "Diaconis"},
     .minimum = 0.0,
     .maximum = MOST_BINS,
     .label = {"Bins", "Klassen"},
     .group = BINS},
    {.name = "from",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "",
     .help = {"lower end, as 0.5 mV, or 0.5 in the signal's unit; empty: the least value",
              "unteres Ende, wie 0.5 mV, oder 0.5 in der Einheit des Signals; leer: der kleinste Wert"},
     .label = {"From", "Von"},
     .group = BINS},
    {.name = "to",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "",
     .help = {"upper end, which belongs to the last bin; empty: the greatest value",
              "oberes Ende, das zur letzten Klasse gehört; leer: der größte Wert"},
     .label = {"To", "Bis"},
     .group = BINS},
    {.name = "scale",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "count",
     .help = {"values in a bin, their share, or the share by the bin's width, whose area is 1",
              "Werte in einer Klasse, ihr Anteil, oder der Anteil durch die Breite, mit der Fläche 1"},
     .choices = tc::CHOICE_WORDS<SCALES>,
     .label = {"Scaling", "Skalierung"}},
    tc::MostSamples({}, ""),
};

constexpr Bilingual TOO_FAR_APART(
    "%1: there can be no bins from %2 to %3, since their distance is no number; give from and to",
    "%1: von %2 bis %3 kann es keine Klassen geben, weil ihr Abstand keine Zahl ist; geben Sie from und to "
    "an");
constexpr const char* ENDS[] = {"from", "to"};
constexpr const char* OUTPUTS[] = {"Histogram", "Edges"};

}  // namespace

Histogram::Histogram(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclarePlacement(ANY_THREAD);
    UseAnyNumberOfInputs("DOUBLE[]", "TIME_DOMAIN");
}

void Histogram::OnInputsDeclared(int count) {
    unsigned output = 0;
    for (int i = 0; i < count; ++i)
        for (const char* name : OUTPUTS)
            portHelper->SetPort(OUTPUT, output++,
                                (count > 1 ? std::string(name) + " " + std::to_string(i + 1) : name).c_str(),
                                "DOUBLE[]", "VALUE_DOMAIN", true);
}

bool Histogram::OnSettingsChanged(TCString& error) {
    return tc::CheckQuantities(*this, ENDS, error);
}

// The ends that are given; false, with the reasons, when they do not fit to the unit or to each other.
bool Histogram::FindRange(const TCSI_Unit& unit, double& from, double& to, CString& error) const {
    tc::ConvertQuantities(*this, unit, {{"from", &from}, {"to", &to}}, error);
    if (IsGiven("from") && IsGiven("to") && error.empty() && !(to > from))
        tc::AddReason(error,
                      tc::NotValid("to", ParamText("to"),
                                   Bilingual("more than %1", "mehr als %1").With({ParamText("from")})));
    if (IsGiven("from") && IsGiven("to") && error.empty() && !std::isfinite(to - from))
        tc::AddReason(
            error,
            tc::NotValid(
                "to", ParamText("to"),
                Bilingual("at most 1.7e308 more than from", "höchstens 1.7e308 mehr als from").Text()));
    return error.empty();
}

void Histogram::CheckStart(TCStartCheck& check) {
    tc::CheckRates(*portHelper, check);
    for (const TCForetoldSignal& signal : check.inputs) {
        double from = 0.0;
        double to = 0.0;
        CString error;
        if (signal.unit && !FindRange(*signal.unit, from, to, error)) check.Refuse(error);
    }
}

TCForetoldSignal Histogram::ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) {
    const std::size_t input = static_cast<std::size_t>(output) / std::size(OUTPUTS);
    TCForetoldSignal signal;
    signal.name = inputs[input].name;
    if (static_cast<std::size_t>(output) % std::size(OUTPUTS) == 1)
        signal.unit = inputs[input].unit;
    else if (ParamChoice<SCALES>("scale") != Scale::DENSITY)
        signal.unit = TCSI_Unit();
    return signal;
}

int Histogram::Init() {
    ClearResults();
    keeps = ParamInt("bins") == 0 || ParamText("from").empty() || ParamText("to").empty();
    channels.clear();
    channels.resize(static_cast<std::size_t>(GetNoInput()));
    return TCBaseModuleEx::Init();
}

int Histogram::Execute() {
    return tc::TakeFromEach(*portHelper, channels.size(), [&](unsigned input) { return Take(input); });
}

int Histogram::Take(unsigned input) {
    Channel& channel = channels[input];
    CString error;
    if (!channel.track.Follow(*portHelper, input, error)) return Fail(tc::MODULE_FAILED, error);
    if (channel.track.Begins()) {
        channel.first = channel.track.Metadata();
        double from = 0.0;
        double to = 1.0;
        if (!FindRange(channel.first.GetUnit(), from, to, error)) return Fail(tc::MODULE_FAILED, error);
        if (!keeps) channel.bins = tc::Bins(from, to, ParamInt("bins"));
    }
    int count = 0;
    const double* values = portHelper->AccessDblData(input, count);
    if (!keeps)
        channel.bins.Add({values, static_cast<std::size_t>(count)});
    else if (!channel.whole.Add(channel.track, values, count,
                                static_cast<std::size_t>(ParamInt("most_samples")),
                                tc::SignalName(*portHelper, input, channel.first), error))
        return Fail(tc::MODULE_FAILED, error);
    return channel.track.Ends() ? End(input) : 0;
}

int Histogram::End(unsigned input) {
    Channel& channel = channels[input];
    if (keeps) {
        std::vector<double>& values = channel.whole.Values();
        double from = 0.0;
        double to = 0.0;
        CString error;
        tc::FindEnds(values, from, to);
        FindRange(channel.first.GetUnit(), from, to, error);
        if (!(to > from))  // what is given lies beyond all values
            (ParamText("to").empty() ? to : from) = ParamText("to").empty() ? from + 1.0 : to - 1.0;
        if (!(to > from)) {  // so large that 1 makes no difference
            from = std::nextafter(from, -std::numeric_limits<double>::infinity());
            to = std::nextafter(to, std::numeric_limits<double>::infinity());
        }
        if (!std::isfinite(to - from))
            return Fail(tc::MODULE_FAILED, TOO_FAR_APART,
                        {tc::SignalName(*portHelper, input, channel.first), tc::ShortestText(from),
                         tc::ShortestText(to)});
        const int wanted = ParamInt("bins");
        std::vector<double> sorted;
        if (wanted == 0) sorted = values;
        const int bins = wanted > 0 ? wanted : tc::SuitableBins(sorted, from, to, MOST_BINS);
        channel.bins = tc::Bins(from, to, bins);
        channel.bins.Add(values);
        values.clear();
    }
    channel.measured = true;
    const tc::Bins& bins = channel.bins;
    const std::vector<double>& edges = bins.Edges();
    const TCSI_Unit& unit = channel.first.GetUnit();
    const Scale scale = ParamChoice<SCALES>("scale");
    const double all =
        scale == Scale::COUNT ? 1.0 : static_cast<double>(std::max<std::int64_t>(1, bins.Inside()));
    buffer.clear();
    for (std::size_t i = 0; i < bins.Counts().size(); ++i) {
        const double width = scale == Scale::DENSITY ? edges[i + 1] - edges[i] : 1.0;
        buffer.push_back(static_cast<double>(bins.Counts()[i]) / width / all);
    }
    TCSI_Unit perUnit;
    if (scale == Scale::DENSITY) perUnit.divide(unit);
    const auto first = static_cast<unsigned>(input * std::size(OUTPUTS));
    int code = Send(first, channel.first, perUnit, 0.0, *std::max_element(buffer.begin(), buffer.end()));
    buffer = edges;
    if (code >= 0) code = Send(first + 1, channel.first, unit, edges.front(), edges.back());
    return code;
}

int Histogram::Send(unsigned output, const TCTypeInfo& first, const TCSI_Unit& unit, double minimum,
                    double maximum) {
    const unsigned input = output / static_cast<unsigned>(std::size(OUTPUTS));
    const std::vector<double>& edges = channels[input].bins.Edges();
    TCTypeInfo metadata = first;
    metadata.SetSignalname(tc::SignalName(*portHelper, input, first).c_str());
    metadata.SetSamplerate(static_cast<double>(edges.size() - 1) / (edges.back() - edges.front()));
    metadata.SetUnit(unit);
    metadata.SetRangeMin(minimum);
    metadata.SetRangeMax(maximum);
    metadata.SetState(COMPLETE);
    return tc::WriteSamples(*portHelper, output, metadata, buffer.data(), buffer.size());
}

int Histogram::Done() {
    ClearResults();
    for (unsigned input = 0; input < channels.size(); ++input) {
        const Channel& channel = channels[input];
        if (channel.measured) Report(input, channel);
        if (channel.track.IsOpen())
            Warn({"%1: the signal did not end, and has no histogram",
                  "%1: das Signal endete nicht und hat kein Histogramm"},
                 {tc::SignalName(*portHelper, input, channel.first)});
    }
    channels.clear();
    return TCBaseModuleEx::Done();
}

void Histogram::Report(unsigned input, const Channel& channel) {
    const tc::Bins& bins = channel.bins;
    const CString name = tc::SignalName(*portHelper, input, channel.first);
    const TCSI_Unit& unit = channel.first.GetUnit();
    const auto add = [&](const char* quantity, double value, const TCSI_Unit& of) {
        AddResult(name.c_str(), quantity, value, of);
    };
    add("bins", static_cast<double>(bins.Counts().size()), TCSI_Unit());
    add("from", bins.Edges().front(), unit);
    add("to", bins.Edges().back(), unit);
    add("inside", static_cast<double>(bins.Inside()), TCSI_Unit());
    if (bins.Below() > 0) add("below", static_cast<double>(bins.Below()), TCSI_Unit());
    if (bins.Above() > 0) add("above", static_cast<double>(bins.Above()), TCSI_Unit());
    if (bins.NotFinite() > 0) Warn(tc::VALUES_LEFT_OUT, {name, std::to_string(bins.NotFinite())});
    if (bins.Inside() == 0) return;
    const auto most = std::max_element(bins.Counts().begin(), bins.Counts().end()) - bins.Counts().begin();
    const auto at = static_cast<std::size_t>(most);
    add("mode", (bins.Edges()[at] + bins.Edges()[at + 1]) / 2.0, unit);
}

TC_MODULE_LIBRARY(Histogram);
