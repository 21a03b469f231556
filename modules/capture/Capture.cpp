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
     .group = tc::CALIBRATION_GROUP},
    tc::START_PARAMETER,
};

constexpr double MILLISECONDS_PER_DAY = 864e5;

}  // namespace

Capture::Capture(int instance) : LiveSource(instance, PARAMETERS) {}

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
    live::CheckBlock("block", ParamInt("block"), plan.channels, reason);
    tc::ParseStart(ParamText("start"), newStart, reason);
    error = reason.c_str();
    if (!reason.empty()) return false;
    start = newStart;
    calibrations = std::move(read);
    std::vector<live::Channel> declared;
    for (const Calibration& calibration : calibrations)
        declared.push_back({"", calibration.factor, 0.0, calibration.unit});
    Declare(*plan.format, std::move(declared), plan.rate, plan.device);
    return true;
}

// Asks the device, without taking anything.
void Capture::CheckStart(TCStartCheck& check) {
    std::string error;
    live::AlsaDevice device(Plan());
    if (!device.Ask(error)) check.Refuse(error);
    WarnWithoutEffect(check);
}

int Capture::Init() {
    std::string error;
    auto device = std::make_unique<live::AlsaDevice>(Plan());
    if (!device->Open(error)) return Fail(tc::MODULE_FAILED, error);
    return Begin(std::move(device), {.block = static_cast<std::size_t>(ParamInt("block"))}, start);
}

int Capture::Done() {
    TCSI_Unit day;
    day.FromString("s * 86400");
    for (std::size_t i = 0; i < calibrations.size(); ++i)
        if (calibrations[i].date > 0.0)
            AddResult(TCString::FormatS("Channel %d", static_cast<int>(i) + 1), "calibration age",
                      std::floor((tc::WallClockMilliseconds() - calibrations[i].date) / MILLISECONDS_PER_DAY),
                      day);
    return LiveSource::Done();
}

TC_MODULE_LIBRARY(Capture);
