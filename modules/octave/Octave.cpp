#include "modules/octave/Octave.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"

namespace {

using tc::Bilingual;

enum class Scale { LEVEL, RMS };

constexpr tc::Choice<int> FRACTIONS[] = {{"1/3", 3}, {"1/1", 1}};
constexpr tc::Choice<Scale> SCALES[] = {{"level", Scale::LEVEL}, {"rms", Scale::RMS}};

constexpr Bilingual BANDS("Bands", "Bänder");
constexpr Bilingual SHOWN("Values", "Werte");

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "fraction",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "1/3",
     .help = {"width of a band, in octaves", "Breite eines Bandes, in Oktaven"},
     .choices = tc::CHOICE_WORDS<FRACTIONS>,
     .label = {"Bandwidth", "Bandbreite"},
     .group = BANDS},
    {.name = "lowest",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "20",
     .unit = "Hz",
     .help = {"the lowest band is the one whose middle is nearest",
              "das unterste Band ist das, dessen Mitte am nächsten liegt"},
     .minimum = 0.01,
     .maximum = 1e9,
     .label = {"Lowest band", "Unterstes Band"},
     .group = BANDS,
     .scale = TCModuleParameter::LOGARITHMIC},
    {.name = "highest",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "20000",
     .unit = "Hz",
     .help = {"the highest band; those that the samplerate cannot have are left out",
              "das oberste Band; solche, die die Abtastrate nicht hergibt, entfallen"},
     .minimum = 0.01,
     .maximum = 1e9,
     .label = {"Highest band", "Oberstes Band"},
     .group = BANDS,
     .scale = TCModuleParameter::LOGARITHMIC},
    {.name = "interval",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "0.125",
     .unit = "s",
     .help = {"over which the power is averaged for the output; rounded to whole samples",
              "über den die Leistung für den Ausgang gemittelt wird; auf ganze Abtastwerte gerundet"},
     .minimum = 1e-6,
     .maximum = 86400.0,
     .label = {"Interval", "Abstand"},
     .group = SHOWN},
    {.name = "scale",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "level",
     .help = {"decibels, or root mean squares in the signal's unit",
              "Dezibel, oder Effektivwerte in der Einheit des Signals"},
     .choices = tc::CHOICE_WORDS<SCALES>,
     .label = {"Values as", "Werte als"},
     .group = SHOWN},
    {.name = "reference",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "",
     .help = tc::REFERENCE_HELP,
     .label = {"Reference", "Bezugswert"},
     .group = SHOWN,
     .enabledWhen = {"scale", "level"},
     .suggestions = "20 uPa|1 V|0.775 V|1 um/s^2|1 nm/s"},
};

constexpr double SETTLED = 3.0;  // times 1 / bandwidth

}  // namespace

Octave::Octave(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclarePlacement(ANY_THREAD);
    UseAnyNumberOfInputs("DOUBLE[]", "TIME_DOMAIN");
}

void Octave::OnInputsDeclared(int count) {
    for (int i = 0; i < count; ++i) {
        const std::string name = count == 1 ? "Bands" : "Bands " + std::to_string(i + 1);
        portHelper->SetPort(OUTPUT, static_cast<unsigned>(i), name.c_str(), "STRUCT_BUS", "BUS", false);
    }
}

bool Octave::OnSettingsChanged(TCString& error) {
    CString reason;
    tc::CheckReference(ParamText("reference"), reason);
    if (ParamDbl("highest") < ParamDbl("lowest"))
        tc::AddReason(
            reason, tc::NotValid("highest", tc::ShortestText(ParamDbl("highest")),
                                 Bilingual("at least the %1 Hz of lowest", "mindestens die %1 Hz von lowest")
                                     .With({tc::ShortestText(ParamDbl("lowest"))})));
    error = reason.c_str();
    return reason.empty();
}

// False, with the reason, when a signal of that rate has none of the bands.
bool Octave::FindBands(double rate, const std::string& signal, std::vector<tc::OctaveBand>& bands,
                       CString& error) const {
    bands = tc::FindBands(ParamChoice<FRACTIONS>("fraction"), ParamDbl("lowest"), ParamDbl("highest"), rate);
    if (!bands.empty()) return true;
    tc::AddReason(
        error,
        tc::NotValid("lowest", tc::ShortestText(ParamDbl("lowest")),
                     Bilingual("a band that ends below %1 Hz, 0.48 of the samplerate",
                               "ein Band, das unter %1 Hz endet, dem 0,48-fachen der Abtastrate")
                         .With({tc::ShortestText(0.48 * rate)}),
                     Bilingual("for '%1' at %2 samples per second", "für '%1' bei %2 Abtastwerten je Sekunde")
                         .With({signal, tc::ShortestText(rate)})));
    return false;
}

void Octave::CheckStart(TCStartCheck& check) {
    WarnWithoutEffect(check);
    tc::CheckRates(*portHelper, check);
    for (unsigned input = 0; input < check.inputs.size(); ++input) {
        const TCForetoldSignal& signal = check.inputs[input];
        tc::LevelReference reference;
        std::vector<tc::OctaveBand> bands;
        CString error;
        if (signal.samplerate && *signal.samplerate > 0.0)
            FindBands(*signal.samplerate, tc::SignalName(*portHelper, input, check), bands, error);
        if (signal.unit) tc::FindReference(ParamText("reference"), *signal.unit, reference, error);
        if (!error.empty()) check.Refuse(error);
    }
}

double Octave::SamplesPerInterval(double rate) const {
    return std::max(1.0, std::round(ParamDbl("interval") * rate));
}

int Octave::Init() {
    ClearResults();
    inDecibels = ParamChoice<SCALES>("scale") == Scale::LEVEL;
    channels.clear();
    channels.resize(static_cast<std::size_t>(GetNoInput()));
    return TCBaseModuleEx::Init();
}

int Octave::Execute() {
    for (unsigned input = 0; input < channels.size(); ++input) {
        int code = portHelper->TakeBlock(input);
        if (code > 0) code = Take(input);
        if (code < 0) return code;
    }
    return 0;
}

int Octave::Take(unsigned input) {
    Channel& channel = channels[input];
    CString error;
    if (!channel.track.Follow(*portHelper, input, error) || (channel.track.Begins() && !Begin(input, error)))
        return Fail(tc::MODULE_FAILED, error);
    int count = 0;
    const double* samples = portHelper->AccessDblData(input, count);
    channel.meter.Add(samples, count, channel.rows);
    return Send(input);
}

bool Octave::Begin(unsigned input, CString& error) {
    Channel& channel = channels[input];
    const TCTypeInfo& metadata = channel.track.Metadata();
    const double rate = metadata.GetSamplerate();
    const std::string name = tc::SignalName(*portHelper, input, metadata);
    std::vector<tc::OctaveBand> bands;
    if (!FindBands(rate, name, bands, error) ||
        !tc::FindReference(ParamText("reference"), metadata.GetUnit(), channel.reference, error))
        return false;
    const double scale = tc::ToReference(metadata.GetUnit(), channel.reference);
    channel.scale = scale * scale;
    channel.names.clear();
    for (const tc::OctaveBand& band : bands) channel.names.push_back(name + " " + band.NominalName() + " Hz");
    channel.meter = tc::BandMeter(std::move(bands), rate,
                                  static_cast<std::int64_t>(std::min(SamplesPerInterval(rate), 9e18)));
    channel.measured = channel.first = true;
    channel.begin = metadata.GetTimestamp();
    channel.sent = 0;
    channel.rows.clear();
    return true;
}

// A root mean square, or decibels.
double Octave::Shown(const Channel& channel, double power) const {
    return inDecibels ? tc::DecibelsOfPower(power * channel.scale) : std::sqrt(power);
}

// The last interval waits until the next one or the end has come, for only then the block's state is known.
int Octave::Send(unsigned input) {
    Channel& channel = channels[input];
    const bool ends = channel.track.Ends();
    const std::size_t bands = channel.names.size();
    const std::size_t waiting = channel.rows.size() / bands;
    if (waiting == 0) return 0;
    const std::size_t count = ends ? waiting : waiting - 1;
    if (count == 0) return 0;
    TCTypeInfo& metadata = outgoing;
    metadata = channel.track.Metadata();
    const double rate = metadata.GetSamplerate();
    const double interval = SamplesPerInterval(rate);
    metadata.SetTimestamp(channel.begin + 1000.0 * static_cast<double>(channel.sent) * interval / rate);
    metadata.SetSamplerate(rate / interval);
    if (inDecibels) metadata.SetUnit(TCSI_Unit());
    metadata.SetRangeMin(std::numeric_limits<double>::lowest());
    metadata.SetRangeMax(std::numeric_limits<double>::max());
    metadata.SetState(tc::BlockState(channel.first, ends));
    values.resize(count);
    for (std::size_t band = 0; band < bands; ++band) {
        for (std::size_t i = 0; i < count; ++i) values[i] = Shown(channel, channel.rows[i * bands + band]);
        metadata.SetSignalnameString(channel.names[band]);
        const int code =
            portHelper->WriteDblDataBusBlock(input, static_cast<int>(count), values.data(),
                                             static_cast<int>(band), channel.names[band].c_str(), &metadata);
        if (code < 0) return code;
    }
    channel.rows.erase(channel.rows.begin(),
                       channel.rows.begin() + static_cast<std::ptrdiff_t>(count * bands));
    channel.first = false;
    channel.sent += static_cast<std::int64_t>(count);
    return portHelper->EndWriteMultitype(input);
}

int Octave::Done() {
    ClearResults();
    for (unsigned input = 0; input < channels.size(); ++input)
        if (channels[input].measured) Report(input, channels[input]);
    channels.clear();
    return TCBaseModuleEx::Done();
}

void Octave::Report(unsigned input, const Channel& channel) {
    const tc::BandMeter& meter = channel.meter;
    const TCTypeInfo& metadata = channel.track.Metadata();
    const std::string name = tc::SignalName(*portHelper, input, metadata);
    const std::vector<tc::OctaveBand>& bands = meter.Bands();
    if (meter.LeftOut() > 0)
        Warn({"%1: values that are not finite, counted as 0: %2",
              "%1: Werte, die nicht endlich sind und als 0 zählen: %2"},
             {name, std::to_string(meter.LeftOut())});
    if (meter.Samples() == 0) return;
    if (inDecibels) AddResult(name.c_str(), "reference", channel.reference.value, channel.reference.unit);
    for (std::size_t i = 0; i < bands.size(); ++i)
        AddResult(name.c_str(),
                  ("band_" + bands[i].NominalName() + "_Hz" + (inDecibels ? "_dB" : "")).c_str(),
                  Shown(channel, meter.MeanPower(i)), inDecibels ? TCSI_Unit() : metadata.GetUnit());
    const double seconds = static_cast<double>(meter.Samples()) / metadata.GetSamplerate();
    const auto unsettled = std::find_if(bands.rbegin(), bands.rend(), [&](const tc::OctaveBand& band) {
        return seconds * band.Width() < SETTLED;
    });
    if (unsettled != bands.rend())
        Warn({"%1: %2 s are too short for bands up to %3 Hz: their filters have not settled",
              "%1: %2 s sind zu kurz für Bänder bis %3 Hz: ihre Filter sind nicht eingeschwungen"},
             {name, tc::ShortestText(seconds), unsettled->NominalName()});
}

TC_MODULE_LIBRARY(Octave);
