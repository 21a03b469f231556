#include "modules/capture/Capture.h"

#include <algorithm>
#include <cmath>

#include "modules/common/SharedSettings.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/platform/Clock.h"

namespace {

using tc::Bilingual;

// Groups of parameters.
constexpr Bilingual DEVICE("Device", "Gerät");
constexpr Bilingual CALIBRATION("Calibration", "Kalibrierung");

enum class Format { S16LE, S24LE, S32LE, F32LE };
constexpr tc::Choice<Format> FORMATS[] = {
    {"s16le", Format::S16LE}, {"s24le", Format::S24LE}, {"s32le", Format::S32LE}, {"f32le", Format::F32LE}};

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "device",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = nullptr,
     .help = {"as 'sigweave devices' lists it, often default",
              "wie 'sigweave devices' es nennt, oft default"},
     .label = {"Device", "Gerät"},
     .group = DEVICE},
    {.name = "channels",
     .kind = TCModuleParameter::INTEGER,
     .defaultValue = "1",
     .help = {"to take, from the first one on", "die genommen werden, vom ersten an"},
     .minimum = 1.0,
     .maximum = 1024.0,
     .label = {"Channels", "Kanäle"},
     .group = DEVICE},
    {.name = "format",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "s16le",
     .help =
         {"of a sample, as the device gives it: signed integers, 24 bits packed, or floating point",
          "eines Abtastwerts, wie das Gerät ihn liefert: ganze Zahlen mit Vorzeichen, 24 Bits gepackt, oder "
          "Gleitkomma"},
     .choices = tc::CHOICE_WORDS<FORMATS>,
     .label = {"Format", "Format"},
     .group = DEVICE},
    {.name = "rate",
     .kind = TCModuleParameter::INTEGER,
     .defaultValue = "48000",
     .unit = "Hz",
     .help = {"samples per second, one that the device has", "Abtastwerte je Sekunde, eine Rate des Geräts"},
     .minimum = 1.0,
     .maximum = 10e6,
     .label = {"Sample rate", "Abtastrate"},
     .group = tc::TIME_GROUP,
     .suggestions = "44100|48000|96000|192000"},
    tc::BLOCK_PARAMETER,
    {.name = "calibration",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "",
     .help = {"for each channel its factor, unit and the date, as 1: 0.0125 Pa 2026-03-01, 2: 0.0119 Pa",
              "für jeden Kanal Faktor, Einheit und Datum, wie 1: 0.0125 Pa 2026-03-01, 2: 0.0119 Pa"},
     .label = {"Calibration", "Kalibrierung"},
     .group = CALIBRATION},
    tc::START_PARAMETER,
};

constexpr int MOST_BLOCK_VALUES = 1 << 22;  // of all channels together
constexpr double MILLISECONDS_PER_DAY = 864e5;

}  // namespace

Capture::Capture(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclareSource();
    channels.Declare(*portHelper, live::FORMATS[0], {{"Channel 1"}}, 1.0);
}

live::CapturePlan Capture::Plan() const {
    const std::string word(ParamText("format"));
    return {.device = std::string(ParamText("device")),
            .format = std::ranges::find(live::FORMATS, word, &live::SampleFormat::word),
            .channels = ParamInt("channels"),
            .rate = static_cast<unsigned>(ParamInt("rate"))};
}

bool Capture::OnSettingsChanged(TCString& error) {
    std::string reason;
    double newStart = 0.0;
    std::vector<Calibration> read;
    const live::CapturePlan plan = Plan();
    ReadCalibration(std::string(ParamText("calibration")), plan.channels, read, reason);
    if (ParamInt("block") > MOST_BLOCK_VALUES / plan.channels)
        tc::AddReason(reason, tc::NotValid("block", std::string(ParamText("block")),
                                           Bilingual("at most %1 samples", "eine Zahl bis %1 Abtastwerte")
                                               .With({std::to_string(MOST_BLOCK_VALUES / plan.channels)})));
    tc::ParseStart(ParamText("start"), newStart, reason);
    error = reason.c_str();
    if (!reason.empty()) return false;
    start = newStart;
    calibrations = std::move(read);
    std::vector<live::Channel> declared;
    for (int i = 0; i < plan.channels; ++i)
        declared.push_back({TCString::FormatS("Channel %d", i + 1),
                            calibrations[static_cast<std::size_t>(i)].factor, 0.0,
                            calibrations[static_cast<std::size_t>(i)].unit});
    channels.Declare(*portHelper, *plan.format, std::move(declared), plan.rate);
    return true;
}

// Asks the device, without taking anything.
void Capture::CheckStart(TCStartCheck& check) {
    std::string error;
    live::AlsaDevice device(Plan());
    if (!device.Ask(error)) check.Refuse(error);
    WarnWithoutEffect(check);
}

TCForetoldSignal Capture::ForetellOutput(int output, std::span<const TCForetoldSignal>) {
    return channels.Foretell(output);
}

void* Capture::GetWaitHandle(const char*& what) {
    what = ParamText("device").c_str();
    return channels.Handle();
}

int Capture::Init() {
    std::string error;
    auto device = std::make_unique<live::AlsaDevice>(Plan());
    if (!device->Open(error)) return Fail(tc::MODULE_FAILED, error);
    const int code = TCBaseModuleEx::Init();
    if (code >= 0)
        channels.Begin(std::move(device), {.block = static_cast<std::size_t>(ParamInt("block"))}, start);
    return code;
}

int Capture::Fetch() {
    const int verdict = TCBaseModuleEx::Fetch();
    return verdict != 0 || IsInterrupted() || channels.HasWork() ? verdict : 1;
}

int Capture::Execute() {
    const live::Channels::Step step = channels.Send(*portHelper, IsInterrupted());
    if (step.hasGap) AddGap(step.lost, step.gapBegan);
    if (step.isOver) portHelper->SetReadyFlag(false);
    return step.failure.empty() ? step.code : Fail(tc::MODULE_FAILED, step.failure);
}

int Capture::Done() {
    channels.End();
    std::vector<std::string> warnings;
    for (const live::Channels::Figure& figure : channels.Figures(warnings)) {
        TCSI_Unit unit;
        unit.FromString(figure.unit);
        AddResult(ParamText("device").c_str(), figure.quantity, figure.value, unit);
    }
    TCSI_Unit day;
    day.FromString("s * 86400");
    for (std::size_t i = 0; i < calibrations.size(); ++i)
        if (calibrations[i].date > 0.0)
            AddResult(TCString::FormatS("Channel %d", static_cast<int>(i) + 1), "calibration age",
                      std::floor((tc::WallClockMilliseconds() - calibrations[i].date) / MILLISECONDS_PER_DAY),
                      day);
    for (const std::string& warning : warnings) Warn("%1", {warning});
    return TCBaseModuleEx::Done();
}

TC_MODULE_LIBRARY(Capture);
