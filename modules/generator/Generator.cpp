#include "modules/generator/Generator.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/module/TCModuleMessage.h"
#include "sigweave/services/Bilingual.h"

namespace {

using tc::Bilingual;

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "form",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "sine",
     .help = {"what to make", "was erzeugt wird"},
     .choices = "sine|square|sweep|noise|dc"},
    {.name = "amplitude",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "1",
     .help = {"peak value; the level of dc", "Scheitelwert; bei dc der Pegel"},
     .live = true},
    {.name = "offset",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "0",
     .help = {"added to every sample", "zu jedem Abtastwert addiert"}},
    {.name = "frequency",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "1000",
     .unit = "Hz",
     .help = {"of sine and square; where a sweep begins", "von Sinus und Rechteck; wo ein Sweep beginnt"},
     .minimum = 0.0,
     .enabledWhen = {"form", "sine|square|sweep"},
     .scale = TCModuleParameter::LOGARITHMIC,
     .live = true},
    {.name = "end_frequency",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "10000",
     .unit = "Hz",
     .help = {"where a sweep ends; the frequency changes linearly with time",
              "wo ein Sweep endet; die Frequenz ändert sich linear mit der Zeit"},
     .minimum = 0.0,
     .enabledWhen = {"form", "sweep"},
     .scale = TCModuleParameter::LOGARITHMIC},
    {.name = "phase",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "0",
     .help = {"of the first sample, in degrees", "des ersten Abtastwerts, in Grad"},
     .enabledWhen = {"form", "sine|square|sweep"}},
    {.name = "rate",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "48000",
     .unit = "Hz",
     .help = {"samples per second", "Abtastwerte je Sekunde"},
     .minimum = 1e-6,
     .suggestions = "8000|44100|48000|96000|192000"},
    {.name = "duration",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "1",
     .unit = "s",
     .help = {"length of the signal; rounded to whole samples",
              "Länge des Signals; auf ganze Abtastwerte gerundet"},
     .minimum = 0.0},
    {.name = "unit",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "",
     .help = {"SI text, as V or m s^-2", "SI-Text, wie V oder m s^-2"}},
    {.name = "name",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "",
     .help = {"the signal's name; empty: the form", "Name des Signals; leer: die Form"}},
    {.name = "start",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "",
     .help = {"UTC time of the first sample, as 2026-03-01T12:00:00Z; empty: the time of the run",
              "Zeit des ersten Abtastwerts in UTC, wie 2026-03-01T12:00:00Z; leer: die Zeit des Laufs"}},
    {.name = "seed",
     .kind = TCModuleParameter::INTEGER,
     .defaultValue = "1",
     .help = {"noise with the same seed is the same", "Rauschen mit gleichem Startwert ist gleich"},
     .minimum = 0.0,
     .enabledWhen = {"form", "noise"}},
    {.name = "block",
     .kind = TCModuleParameter::INTEGER,
     .defaultValue = "1024",
     .help = {"samples per block", "Abtastwerte je Block"},
     .minimum = 1.0,
     .maximum = 1048576.0},
};

// Beyond this many samples a sample number is no exact double any more.
constexpr double MOST_SAMPLES = 9007199254740992.0;

}  // namespace

Generator::Generator(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclareSource();
    portHelper->SetPort(OUTPUT, 0, "Signal", "DOUBLE[]", "TIME_DOMAIN", true);
}

bool Generator::OnSettingsChanged(TCString& error) {
    std::string reason;
    const double samples = std::round(ParamDbl("duration") * ParamDbl("rate"));
    tc::ParseStart(std::string(ParamStr("start")), start, reason);
    tc::ParseUnit(std::string(ParamStr("unit")), metadata.GetUnit(), reason);
    if (samples < 1.0 || samples > MOST_SAMPLES) {
        tc::AddReason(reason,
                      tc::NotValid("duration", std::string(ParamStr("duration")),
                                   Bilingual("1 to %1 samples", "eine Länge von 1 bis %1 Abtastwerten")
                                       .With({tc::ShortestText(MOST_SAMPLES)}),
                                   Bilingual("at %1 samples per second", "bei %1 Abtastwerten je Sekunde")
                                       .With({tc::ShortestText(ParamDbl("rate"))})));
    }
    error = reason.c_str();
    if (!reason.empty()) return false;
    total = static_cast<std::int64_t>(samples);
    return true;
}

void Generator::CheckStart(TCStartCheck& check) {
    WarnWithoutEffect(check);
}

TCString Generator::SignalName() const {
    const TCString name = ParamStr("name");
    return name.IsEmpty() ? ParamStr("form") : name;
}

TCForetoldSignal Generator::ForetellOutput(int, std::span<const TCForetoldSignal>) {
    return {SignalName(), ParamDbl("rate"), metadata.GetUnit()};
}

int Generator::Init() {
    TCString error;
    if (!OnSettingsChanged(error)) return Fail(tc::MODULE_FAILED, error);
    form = static_cast<Form>(ParamChoice("form"));
    amplitude = ParamDbl("amplitude");
    offset = ParamDbl("offset");
    frequency = ParamDbl("frequency");
    endFrequency = ParamDbl("end_frequency");
    phase = ParamDbl("phase") / 360.0;
    origin = 0;
    rate = ParamDbl("rate");
    runTime.Take();
    position = 0;
    random.seed(static_cast<std::uint64_t>(ParamInt("seed")));
    block.resize(static_cast<std::size_t>(ParamInt("block")));
    metadata.SetSignalname(SignalName());
    metadata.SetSamplerate(rate);
    SetRange();
    const double highest = form == SWEEP ? std::max(frequency, endFrequency) : frequency;
    if (form < NOISE && highest > rate / 2) {
        TCModuleMessage::Warning(
            GetModuleName(),
            Bilingual("%g Hz is more than half the rate and shows as a lower frequency",
                      "%g Hz ist mehr als die halbe Abtastrate und erscheint als tiefere Frequenz")
                .Text(),
            highest);
    }
    return TCBaseModuleEx::Init();
}

void Generator::SetRange() {
    metadata.SetRangeMin(offset - std::fabs(amplitude));
    metadata.SetRangeMax(offset + std::fabs(amplitude));
}

bool Generator::OnLiveChanged(TCString&) {
    amplitude = ParamDbl("amplitude");
    SetRange();
    const double changed = ParamDbl("frequency");
    if (changed == frequency) return true;
    phase = Cycles(position);
    origin = position;
    frequency = changed;
    return true;
}

int Generator::Execute() {
    if (position == 0) begin = start > 0.0 ? start : runTime.Get();
    const std::int64_t count = std::min(static_cast<std::int64_t>(block.size()), total - position);
    for (std::int64_t i = 0; i < count; ++i)
        block[static_cast<std::size_t>(i)] = offset + Sample(position + i);
    const bool last = position + count == total || IsInterrupted();
    metadata.SetTimestamp(begin + 1000.0 * static_cast<double>(position) / rate);
    metadata.SetState(tc::BlockState(position == 0, last));
    position += count;
    if (last) portHelper->SetReadyFlag(false);
    portHelper->SetTypeInfo(0, metadata);
    return portHelper->WriteDblData(0, static_cast<unsigned long>(count), block.data());
}

int Generator::Done() {
    runTime.Release();
    return TCBaseModuleEx::Done();
}

double Generator::GetProgress() {
    return total > 0 ? static_cast<double>(position) / static_cast<double>(total) : -1.0;
}

double Generator::Sample(std::int64_t index) {
    switch (form) {
        case SINE:
        case SWEEP:
            return amplitude * std::sin(2.0 * std::numbers::pi * static_cast<double>(Cycles(index)));
        case SQUARE:
            return static_cast<double>(Cycles(index)) < 0.5 ? amplitude : -amplitude;
        case NOISE:
            return amplitude * (static_cast<double>(random() >> 11) * 0x1p-52 - 1.0);
        case DC:
            break;
    }
    return amplitude;
}

// The phase as a part of a cycle, 0 to below 1. Reckoned in extended precision, since hours of a fast signal
// are many cycles; divided last, so that where a cycle or half of one begins at a sample it does so exactly.
long double Generator::Cycles(std::int64_t number) const {
    const std::int64_t index = number - origin;
    const long double seconds = static_cast<long double>(index) / rate;
    const long double length = static_cast<long double>(total - origin) / rate;
    const long double slope = form == SWEEP ? (endFrequency - frequency) / (2.0L * length) : 0.0L;
    const long double cycles = (frequency + slope * seconds) * static_cast<long double>(index) / rate + phase;
    return cycles - std::floor(cycles);
}

TC_MODULE_LIBRARY(Generator);
