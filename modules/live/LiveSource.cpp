#include "modules/live/LiveSource.h"

#include "sigweave/module/ModuleSignals.h"

namespace live {
namespace {

using tc::Bilingual;

constexpr int MOST_BLOCK_VALUES = 1 << 22;  // of all channels together

}  // namespace

LiveSource::LiveSource(int instance, std::span<const TCModuleParameter> declared)
    : TCBaseModuleEx(instance, declared) {
    DeclareSource();
    channels.Declare(*portHelper, FORMATS[0], {{"Channel 1"}}, 1.0);
}

void LiveSource::Declare(const SampleFormat& format, std::vector<Channel> newChannels, double samplerate,
                         const std::string& fromName) {
    name = fromName;
    for (std::size_t i = 0; i < newChannels.size(); ++i)
        newChannels[i].name = TCString::FormatS("Channel %d", static_cast<int>(i) + 1);
    channels.Declare(*portHelper, format, std::move(newChannels), samplerate);
}

int LiveSource::Begin(std::unique_ptr<Device> device, const FeedPlan& plan, double start) {
    const int code = TCBaseModuleEx::Init();
    if (code >= 0) channels.Begin(std::move(device), plan, start);
    return code;
}

TCForetoldSignal LiveSource::ForetellOutput(int output, std::span<const TCForetoldSignal>) {
    return channels.Foretell(output);
}

void* LiveSource::GetWaitHandle(const char*& what) {
    what = name.c_str();
    return channels.Handle();
}

int LiveSource::Fetch() {
    const int verdict = TCBaseModuleEx::Fetch();
    return verdict != 0 || IsInterrupted() || channels.HasWork() ? verdict : 1;
}

int LiveSource::Execute() {
    const Channels::Step step = channels.Send(*portHelper, IsInterrupted());
    if (step.hasGap) AddGap(step.lost, step.gapBegan);
    if (step.isOver) portHelper->SetReadyFlag(false);
    return step.failure.empty() ? step.code : Fail(tc::MODULE_FAILED, step.failure);
}

int LiveSource::Done() {
    channels.End();
    std::vector<std::string> warnings;
    for (const Channels::Figure& figure : channels.Figures(warnings)) {
        TCSI_Unit unit;
        unit.FromString(figure.unit);
        AddResult(name.c_str(), figure.quantity, figure.value, unit);
    }
    for (const std::string& warning : warnings) Warn("%1", {warning});
    return TCBaseModuleEx::Done();
}

bool CheckBlock(const char* parameter, int samples, int channels, std::string& error) {
    const int most = MOST_BLOCK_VALUES / channels;
    if (samples <= most) return true;
    tc::AddReason(
        error,
        tc::NotValid(
            parameter, std::to_string(samples),
            Bilingual("at most %1 samples", "eine Zahl bis %1 Abtastwerte").With({std::to_string(most)}),
            Bilingual("with %1 channels", "bei %1 Kanälen").With({std::to_string(channels)})));
    return false;
}

}  // namespace live
