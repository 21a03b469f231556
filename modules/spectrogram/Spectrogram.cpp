#include "modules/spectrogram/Spectrogram.h"

#include <algorithm>
#include <new>

#include "modules/spectrum/SegmentSettings.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"

namespace {

constexpr TCModuleParameter PARAMETERS[] = {
    tc::SegmentLength("1024", 1048576.0),
    tc::WINDOW_PARAMETER,
    tc::BETA_PARAMETER,
    tc::SegmentOverlap("0.5"),
    tc::ScaleParameter("rms"),
};

constexpr int MOST_SLICES_AT_ONCE = 16;

}  // namespace

Spectrogram::Spectrogram(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclarePlacement(ANY_THREAD);
    UseAnyNumberOfInputs("DOUBLE[]", "TIME_DOMAIN");
}

void Spectrogram::OnInputsDeclared(int) {
    tc::DeclareOutputs(*portHelper, "FREQ_DOMAIN");
}

void Spectrogram::CheckStart(TCStartCheck& check) {
    WarnWithoutEffect(check);
    tc::CheckRates(*portHelper, check);
}

TCForetoldSignal Spectrogram::ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) {
    TCForetoldSignal signal = inputs[static_cast<std::size_t>(output)];
    if (signal.name && signal.name->IsEmpty())
        signal.name = portHelper->GetPortName(INPUT, static_cast<unsigned>(output));
    if (signal.samplerate) signal.samplerate = ParamInt("length") / *signal.samplerate;  // bins per Hz
    if (signal.unit) signal.unit = tc::ScaledUnit(ParamChoice<tc::SPECTRUM_SCALES>("scale"), *signal.unit);
    return signal;
}

int Spectrogram::Init() {
    ClearResults();
    const int length = ParamInt("length");
    scale = ParamChoice<tc::SPECTRUM_SCALES>("scale");
    hop = tc::SegmentHop(length, ParamDbl("overlap"));
    if (transform == nullptr || transform->Length() != length)
        transform = std::make_unique<FourierTransform>(length);
    window = tc::MakeWindow(ParamChoice<tc::WINDOWS>("window"), ParamDbl("beta"), length);
    scaling = tc::SpectralScaling(scale, window);
    channels.clear();
    channels.resize(static_cast<std::size_t>(GetNoInput()));
    return TCBaseModuleEx::Init();
}

int Spectrogram::Fetch() {
    const bool working =
        std::any_of(channels.begin(), channels.end(), [](const Channel& channel) { return channel.working; });
    return working ? 0 : TCBaseModuleEx::Fetch();
}

int Spectrogram::Execute() {
    for (unsigned input = 0; input < channels.size(); ++input) {
        const Channel& channel = channels[input];
        int code = channel.working ? Work(input) : 0;
        if (code == 0 && !channel.working && (code = Take(input)) > 0) code = Work(input);
        if (code < 0) return code;
    }
    return 0;
}

int Spectrogram::Take(unsigned input) {
    const int taken = portHelper->TakeBlock(input);
    if (taken <= 0) return taken;
    Channel& channel = channels[input];
    CString error;
    if (!channel.track.Follow(*portHelper, input, error)) return Fail(tc::MODULE_FAILED, error);
    if (channel.track.Begins()) {
        channel.first = channel.track.Metadata();
        channel.segmenter.Begin(window.size(), hop);
        channel.slices = channel.skipped = 0;
        channel.greatest = -1.0;
    }
    channel.values = portHelper->AccessDblData(input, channel.left);
    channel.working = true;
    return 1;
}

// Until the end of the block, or until that many slices are sent; answers how many.
int Spectrogram::Work(unsigned input) {
    Channel& channel = channels[input];
    int sent = 0;
    while (sent < MOST_SLICES_AT_ONCE) {
        const int used = channel.segmenter.Add(channel.values, channel.left);
        channel.values += used;
        channel.left -= used;
        if (!channel.segmenter.IsFull()) {
            channel.working = false;
            const int code = channel.track.Ends() ? End(input) : 0;
            return code < 0 ? code : sent + code;
        }
        const int code = UseSegment(input);
        if (code < 0) return code;
        sent += code;
        channel.segmenter.Advance();
    }
    return sent;
}

// 1 when it sent the slice before.
int Spectrogram::UseSegment(unsigned input) {
    Channel& channel = channels[input];
    if (!transform->Place(channel.segmenter.Segment(), window)) {
        ++channel.skipped;
        return 0;
    }
    const int code = channel.slices > 0 ? Send(input, false) : 0;
    std::vector<double>& slice = channel.waiting;
    slice.resize(static_cast<std::size_t>(transform->Bins()));
    transform->Run(slice.data());
    const double rate = channel.first.GetSamplerate();
    for (std::size_t k = 0; k < slice.size(); ++k) slice[k] = scaling.Value(k, slice[k], rate);
    const double middle = static_cast<double>(window.size()) / 2.0;
    channel.waitingTime = (static_cast<double>(channel.segmenter.Position()) + middle) / rate;
    ++channel.slices;
    const auto peak = std::max_element(slice.begin(), slice.end());
    if (*peak <= channel.greatest) return code;
    channel.greatest = *peak;
    channel.peakTime = channel.waitingTime;
    channel.peakBin = static_cast<std::size_t>(peak - slice.begin());
    return code;
}

// The slice that waits; 1 when it is sent.
int Spectrogram::Send(unsigned output, bool last) {
    const Channel& channel = channels[output];
    TCTypeInfo& metadata = outgoing;
    metadata = channel.first;
    if (*metadata.GetSignalname() == '\0') metadata.SetSignalname(portHelper->GetPortName(INPUT, output));
    metadata.SetTimestamp(channel.first.GetTimestamp() + 1000.0 * channel.waitingTime);
    metadata.SetSamplerate(static_cast<double>(window.size()) / channel.first.GetSamplerate());
    metadata.SetUnit(tc::ScaledUnit(scale, channel.first.GetUnit()));
    metadata.SetRangeMin(0.0);
    metadata.SetRangeMax(channel.greatest);
    metadata.SetState(tc::BlockState(channel.slices == 1, last));
    const int code =
        tc::WriteSamples(*portHelper, output, metadata, channel.waiting.data(), channel.waiting.size());
    return code < 0 ? code : 1;
}

int Spectrogram::End(unsigned input) {
    WarnOfLoss(input);
    return channels[input].slices > 0 ? Send(input, true) : 0;
}

// Of a signal that is over.
void Spectrogram::WarnOfLoss(unsigned input) {
    const Channel& channel = channels[input];
    const CString name = tc::SignalName(*portHelper, input, channel.first);
    if (channel.skipped > 0)
        Warn(tc::SEGMENTS_LEFT_OUT, {name, std::to_string(channel.skipped)});
    else if (channel.slices == 0)
        Warn(tc::NO_WHOLE_SEGMENT,
             {name, std::to_string(channel.segmenter.Waiting()), std::to_string(window.size())});
}

int Spectrogram::Done() {
    ClearResults();
    TCSI_Unit second;
    second.SetExponent(TCSI_Unit::SECOND, 1);
    for (unsigned input = 0; input < channels.size(); ++input) {
        const Channel& channel = channels[input];
        if (channel.track.IsOpen()) WarnOfLoss(input);
        if (channel.slices == 0) continue;
        const CString name = tc::SignalName(*portHelper, input, channel.first);
        const double perBin = channel.first.GetSamplerate() / static_cast<double>(window.size());
        AddResult(name.c_str(), "slices", static_cast<double>(channel.slices), TCSI_Unit());
        AddResult(name.c_str(), "peak_value", channel.greatest,
                  tc::ScaledUnit(scale, channel.first.GetUnit()));
        AddResult(name.c_str(), "peak_frequency", static_cast<double>(channel.peakBin) * perBin, tc::Hertz());
        AddResult(name.c_str(), "peak_time", channel.peakTime, second);
    }
    channels.clear();
    return TCBaseModuleEx::Done();
}

TC_MODULE_LIBRARY(Spectrogram);
