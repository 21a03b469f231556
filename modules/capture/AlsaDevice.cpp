#include "modules/capture/AlsaDevice.h"

#include <alsa/asoundlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "modules/live/Packets.h"
#include "sigweave/platform/Clock.h"
#include "sigweave/platform/linux/Handle.h"
#include "sigweave/services/Bilingual.h"

namespace live {
namespace {

using tc::Bilingual;

constexpr unsigned RATES[] = {8000,  11025, 16000, 22050, 24000,  32000,  44100,
                              48000, 64000, 88200, 96000, 176400, 192000, 384000};
constexpr unsigned BUFFER_TIME = 500000;  // us
constexpr unsigned PERIOD_TIME = 10000;
constexpr int NOTHING_CONVERTED = SND_PCM_NONBLOCK | SND_PCM_NO_AUTO_RESAMPLE | SND_PCM_NO_AUTO_CHANNELS |
                                  SND_PCM_NO_AUTO_FORMAT | SND_PCM_NO_SOFTVOL;

struct FormatName {
    const char* word;
    snd_pcm_format_t format;
};
constexpr FormatName FORMAT_NAMES[] = {
    {"s16le", SND_PCM_FORMAT_S16_LE},   {"s16be", SND_PCM_FORMAT_S16_BE},  {"s24le", SND_PCM_FORMAT_S24_3LE},
    {"s24be", SND_PCM_FORMAT_S24_3BE},  {"s32le", SND_PCM_FORMAT_S32_LE},  {"s32be", SND_PCM_FORMAT_S32_BE},
    {"f32le", SND_PCM_FORMAT_FLOAT_LE}, {"f32be", SND_PCM_FORMAT_FLOAT_BE}};

snd_pcm_format_t ToAlsa(const SampleFormat& format) {
    const auto* const found = std::ranges::find(FORMAT_NAMES, std::string(format.word), &FormatName::word);
    return found != std::end(FORMAT_NAMES) ? found->format : SND_PCM_FORMAT_UNKNOWN;
}

snd_pcm_t* ToPcm(void* device) {
    return static_cast<snd_pcm_t*>(device);
}

std::string Words(int code) {
    return snd_strerror(code);
}

// What goes to standard error otherwise.
void Silence(const char*, int, const char*, int, const char*, ...) {}

// What a device can do, as far as it says.
class Abilities {
 public:
    explicit Abilities(snd_pcm_t* ofDevice) : pcm(ofDevice) {
        snd_pcm_hw_params_malloc(&params);
        isKnown = snd_pcm_hw_params_any(pcm, params) >= 0;
        snd_pcm_hw_params_set_rate_resample(pcm, params, 0);
    }
    ~Abilities() { snd_pcm_hw_params_free(params); }
    Abilities(const Abilities&) = delete;
    Abilities& operator=(const Abilities&) = delete;

    bool IsKnown() const { return isKnown; }
    snd_pcm_hw_params_t* Get() { return params; }
    std::vector<unsigned> Rates() {
        std::vector<unsigned> rates;
        for (const unsigned rate : RATES)
            if (snd_pcm_hw_params_test_rate(pcm, params, rate, 0) == 0) rates.push_back(rate);
        return rates;
    }
    std::vector<std::string> Formats() {
        std::vector<std::string> words;
        for (const FormatName& name : FORMAT_NAMES)
            if (snd_pcm_hw_params_test_format(pcm, params, name.format) == 0) words.emplace_back(name.word);
        return words;
    }
    std::pair<unsigned, unsigned> Channels() {
        unsigned least = 0;
        unsigned most = 0;
        snd_pcm_hw_params_get_channels_min(params, &least);
        snd_pcm_hw_params_get_channels_max(params, &most);
        return {least, most};
    }

 private:
    snd_pcm_t* pcm;
    snd_pcm_hw_params_t* params = nullptr;
    bool isKnown = false;
};

template <class List>
std::string Join(const List& list) {
    std::string text;
    for (const auto& item : list) {
        if (!text.empty()) text += ", ";
        if constexpr (std::is_arithmetic_v<std::decay_t<decltype(item)>>)
            text += std::to_string(item);
        else
            text += item;
    }
    return text;
}

long ReadFrames(void* device, void* to, unsigned long frames) {
    return snd_pcm_readi(ToPcm(device), to, frames);
}

int Restart(void* device) {
    const int prepared = snd_pcm_prepare(ToPcm(device));
    return prepared < 0 ? prepared : snd_pcm_start(ToPcm(device));
}

}  // namespace

const PcmCalls& AlsaCalls() {
    static constexpr PcmCalls CALLS = {ReadFrames, Restart};
    return CALLS;
}

AlsaDevice::AlsaDevice(const CapturePlan& capturePlan, const PcmCalls& usedCalls)
    : plan(capturePlan), calls(usedCalls) {}

AlsaDevice::~AlsaDevice() {
    Close();
}

bool AlsaDevice::Ask(std::string& error) {
    snd_lib_error_set_handler(Silence);
    snd_pcm_t* opened = nullptr;
    const int code = snd_pcm_open(&opened, plan.device.c_str(), SND_PCM_STREAM_CAPTURE, NOTHING_CONVERTED);
    if (code == -EBUSY) {
        error = Bilingual("device: %1 is in use by another program; end that, or choose another device",
                          "device: %1 wird von einem anderen Programm benutzt; beenden Sie es, oder wählen "
                          "Sie ein anderes "
                          "Gerät")
                    .With({plan.device});
        return false;
    }
    if (code < 0) {
        error = Bilingual("device: %1 cannot be opened (%2); 'sigweave devices' lists what there is",
                          "device: %1 kann nicht geöffnet werden (%2); 'sigweave devices' zeigt, was es gibt")
                    .With({plan.device, Words(code)});
        return false;
    }
    device = opened;
    if (Fits(error)) return true;
    Close();
    return false;
}

bool AlsaDevice::Open(std::string& error) {
    if (!Ask(error)) return false;
    const int code = calls.restart(device);
    if (code >= 0) return true;
    error = Bilingual("device: %1 does not begin (%2)", "device: %1 beginnt nicht (%2)")
                .With({plan.device, Words(code)});
    Close();
    return false;
}

bool AlsaDevice::Fits(std::string& error) {
    snd_pcm_t* const pcm = ToPcm(device);
    Abilities has(pcm);
    snd_pcm_hw_params_t* const params = has.Get();
    const auto refuse = [&](const char* name, const std::string& value, const std::string& allowed) {
        error = Bilingual("%1: %2 is not possible with %3; it has %4",
                          "%1: %2 ist mit %3 nicht möglich; es hat %4")
                    .With({name, value, plan.device, allowed});
        return false;
    };
    const auto [least, most] = has.Channels();
    if (snd_pcm_hw_params_set_access(pcm, params, SND_PCM_ACCESS_RW_INTERLEAVED) < 0)
        return refuse("device", "SND_PCM_ACCESS_RW_INTERLEAVED", "-");
    if (snd_pcm_hw_params_set_format(pcm, params, ToAlsa(*plan.format)) < 0)
        return refuse("format", plan.format->word, Join(has.Formats()));
    if (snd_pcm_hw_params_set_channels(pcm, params, static_cast<unsigned>(plan.channels)) < 0)
        return refuse("channels", std::to_string(plan.channels),
                      std::to_string(least) + " - " + std::to_string(most));
    if (snd_pcm_hw_params_set_rate(pcm, params, plan.rate, 0) < 0)
        return refuse("rate", std::to_string(plan.rate), Join(has.Rates()));
    unsigned buffer = BUFFER_TIME;
    unsigned period = PERIOD_TIME;
    snd_pcm_hw_params_set_buffer_time_near(pcm, params, &buffer, nullptr);
    snd_pcm_hw_params_set_period_time_near(pcm, params, &period, nullptr);
    const int code = snd_pcm_hw_params(pcm, params);
    snd_pcm_uframes_t size = 0;
    if (snd_pcm_hw_params_get_buffer_size(params, &size) >= 0 && size > 0) bufferFrames = size;
    if (code < 0)
        error = Bilingual("device: %1 cannot be set (%2)", "device: %1 lässt sich nicht einstellen (%2)")
                    .With({plan.device, Words(code)});
    return code >= 0;
}

void AlsaDevice::Close() {
    if (device != nullptr) snd_pcm_close(ToPcm(device));
    device = nullptr;
}

void* AlsaDevice::Handle() const {
    pollfd descriptor{};
    if (device == nullptr || snd_pcm_poll_descriptors(ToPcm(device), &descriptor, 1) != 1) return nullptr;
    return tc::ToHandle(descriptor.fd);
}

// After an overrun nobody knows how much is missing.
Device::Reading AlsaDevice::Read(std::span<std::byte> into) {
    const std::size_t frameBytes = static_cast<std::size_t>(plan.channels * plan.format->bytes);
    const unsigned long frames = std::min<unsigned long>(into.size() / frameBytes, bufferFrames);
    long got = calls.read(device, into.data(), frames);
    if (got == -EPIPE || got == -ESTRPIPE) {
        lostSome = true;
        const int restarted = calls.restart(device);
        got = restarted < 0 ? restarted : calls.read(device, into.data(), frames);
    }
    if (got > 0)
        return {DATA, static_cast<std::size_t>(got) * frameBytes,
                std::exchange(lostSome, false) ? UNKNOWN_LOSS : 0};
    if (got == 0 || got == -EAGAIN || got == -EINTR) return {NOTHING};
    why = got == -ENODEV ? Bilingual("%1 was unplugged", "%1 wurde abgezogen").With({plan.device})
                         : Bilingual("%1 broke off: %2", "%1 brach ab: %2")
                               .With({plan.device, Words(static_cast<int>(got))});
    return {FAILED};
}

namespace {

CaptureFacts FactsOf(const std::string& name, const std::string& text) {
    CaptureFacts facts{.name = name, .text = text};
    snd_pcm_t* pcm = nullptr;
    const int code = snd_pcm_open(&pcm, name.c_str(), SND_PCM_STREAM_CAPTURE, NOTHING_CONVERTED);
    facts.isBusy = code == -EBUSY;
    if (code < 0) return facts;
    {
        Abilities has(pcm);
        const auto [least, most] = has.Channels();
        facts.leastChannels = static_cast<int>(least);
        facts.mostChannels = static_cast<int>(most);
        if (has.IsKnown()) facts.rates = has.Rates();
        if (has.IsKnown()) facts.formats = has.Formats();
    }
    snd_pcm_close(pcm);
    return facts;
}

// What the configuration names itself, without the many ways to each card.
std::vector<std::pair<std::string, std::string>> NamedDevices() {
    std::vector<std::pair<std::string, std::string>> names;
    void** hints = nullptr;
    if (snd_device_name_hint(-1, "pcm", &hints) < 0) return names;
    for (void** hint = hints; *hint != nullptr; ++hint) {
        const auto take = [&](const char* id) {
            char* const text = snd_device_name_get_hint(*hint, id);
            const std::string copy = text != nullptr ? text : "";
            std::free(text);
            return copy;
        };
        const std::string name = take("NAME");
        std::string text = take("DESC");
        std::ranges::replace(text, '\n', ' ');
        const bool isOwn = name.find(':') == std::string::npos || name.starts_with("hw:");
        if (isOwn && name != "null" && take("IOID") != "Output") names.emplace_back(name, text);
    }
    snd_device_name_free_hint(hints);
    return names;
}

}  // namespace

std::vector<CaptureFacts> ListCaptureDevices(double milliseconds) {
    snd_lib_error_set_handler(Silence);
    std::vector<CaptureFacts> devices;
    const double due = tc::MachineClock().Milliseconds() + milliseconds;
    for (const auto& [name, text] : NamedDevices()) {
        const bool isLate = tc::MachineClock().Milliseconds() >= due;
        CaptureFacts facts = isLate ? CaptureFacts{.name = name, .text = text} : FactsOf(name, text);
        if (isLate || facts.isBusy || facts.mostChannels > 0) devices.push_back(std::move(facts));
    }
    return devices;
}

}  // namespace live
