#include "modules/live/Channels.h"

#include <algorithm>
#include <cmath>

#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/module/ModuleSignals.h"

namespace live {
namespace {

using tc::Bilingual;

constexpr double UNPACED = 1.5;       // times the rate: that is no device which keeps time
constexpr double WRONG_RATE = 0.001;  // of the rate

}  // namespace

void Channels::Declare(TCPortHelper& ports, const SampleFormat& usedFormat, std::vector<Channel> newChannels,
                       double samplerate) {
    format = &usedFormat;
    channels = std::move(newChannels);
    rate = samplerate;
    metadata.assign(channels.size(), TCTypeInfo());
    ports.ClearPorts(true);
    for (std::size_t i = 0; i < channels.size(); ++i) {
        const Channel& channel = channels[i];
        const auto [low, high] =
            channel.range.value_or(std::pair(format->RangeMinimum(), format->RangeMaximum()));
        const double ends[] = {low * channel.factor + channel.offset, high * channel.factor + channel.offset};
        metadata[i].SetSignalname(channel.name);
        metadata[i].SetSamplerate(rate);
        metadata[i].SetRangeMin(std::min(ends[0], ends[1]));
        metadata[i].SetRangeMax(std::max(ends[0], ends[1]));
        metadata[i].SetUnit(channel.unit);
        ports.SetPort(OUTPUT, static_cast<unsigned>(i),
                      TCString::FormatS("Channel %d", static_cast<int>(i) + 1), "DOUBLE[]", "TIME_DOMAIN",
                      true);
    }
    ports.SetPort(OUTPUT, static_cast<unsigned>(channels.size()), "Channels", "STRUCT_BUS", "BUS", false);
}

TCForetoldSignal Channels::Foretell(int output) const {
    if (output >= static_cast<int>(channels.size())) return {};  // the bus
    const Channel& channel = channels[static_cast<std::size_t>(output)];
    return {channel.name, rate, channel.unit};
}

void Channels::Begin(std::unique_ptr<Device> device, FeedPlan plan, double start) {
    clock = plan.clock != nullptr ? plan.clock : &tc::MachineClock();
    plan.rate = rate;
    plan.packing.frameBytes = static_cast<int>(FrameBytes());
    feed = std::make_unique<Feed>(std::move(device), plan);
    givenStart = start;
    runTime.Take();
    initTime = clock->Milliseconds();
    bytes.resize(plan.block * FrameBytes());
    values.resize(plan.block);
    isFirst = true;
    hasEnded = hasGaps = false;
    sent = next = 0;
    feed->Start();
}

void Channels::End() {
    if (feed != nullptr) feed->Stop();
    runTime.Release();
}

double Channels::TimeOf(std::int64_t position) const {
    return begin + 1000.0 * static_cast<double>(position) / rate;
}

Channels::Step Channels::Send(TCPortHelper& ports, bool ends) {
    FrameRing& ring = feed->Ring();
    if (ends && !hasEnded) {
        const std::size_t most = feed->Source().CanHoldBack() ? values.size() : ring.Capacity();
        bytes.resize(most * FrameBytes());
        values.resize(most);
        ring.TakeRest(most);
    }
    Step step;
    const bool isDone = hasEnded;
    const FrameRing::Taken taken = isDone ? FrameRing::Taken() : ring.Take(bytes.data());
    if (sent == 0 && taken.frames > 0) {
        const bool hasOwnTime = !feed->Source().CanHoldBack();
        begin = givenStart > 0.0 ? givenStart : runTime.Get() + (hasOwnTime ? feed->Began() - initTime : 0.0);
    }
    const bool beginsAnew = isFirst && taken.frames > 0;
    if (sent > 0 ? beginsAnew || taken.lost > 0 : beginsAnew && taken.lost > 0) {
        step.hasGap = hasGaps = true;
        step.lost = taken.lost;
        step.gapBegan = TimeOf(next);
    }
    if (taken.frames > 0) {
        step.code = Write(ports, taken);
        hasEnded = ends && taken.isLast && (feed->Source().CanHoldBack() || ring.IsOver());
        return step;
    }
    step.isOver = true;
    if (ends || isDone) return step;
    step.failure = feed->Failure();
    if (step.failure.empty() && sent == 0)
        step.failure =
            Bilingual("%1 gave no samples", "%1 lieferte keine Abtastwerte").With({feed->Source().Name()});
    return step;
}

int Channels::Write(TCPortHelper& ports, const FrameRing::Taken& taken) {
    const auto bus = static_cast<unsigned>(channels.size());
    const bool busWired = ports.IsWired(OUTPUT, bus, TCPortHelper::STREAM_CONNECTED);
    const int count = static_cast<int>(taken.frames);
    int code = 0;
    for (std::size_t i = 0; i < channels.size() && code >= 0; ++i) {
        const auto output = static_cast<unsigned>(i);
        TCTypeInfo& ti = metadata[i];
        Decode(*format, bytes.data() + i * static_cast<std::size_t>(format->bytes), FrameBytes(),
               taken.frames, channels[i].factor, channels[i].offset, values.data());
        ti.SetTimestamp(TimeOf(taken.first));
        ti.SetState(tc::BlockState(isFirst, taken.isLast));
        ports.SetTypeInfo(output, ti);
        code = ports.WriteDblData(output, static_cast<unsigned long>(count), values.data());
        if (busWired && code >= 0)
            code = ports.WriteDblDataBusBlock(bus, count, values.data(), static_cast<int>(i),
                                              channels[i].name, &ti);
    }
    if (busWired && code >= 0) code = ports.EndWriteMultitype(bus);
    isFirst = taken.isLast;
    sent += count;
    next = taken.first + count;
    return std::min(code, 0);
}

std::vector<Channels::Figure> Channels::Figures(std::vector<std::string>& warnings) const {
    std::vector<Figure> figures;
    if (feed == nullptr) return figures;
    const double measured = feed->MeasuredRate();
    if (measured > 0.0 && measured < UNPACED * rate) {
        figures.push_back({"measured rate", measured, "Hz"});
        if (std::fabs(measured / rate - 1.0) > WRONG_RATE && !feed->Source().CanHoldBack())
            warnings.push_back(
                Bilingual("%1 gives %2 samples per second by the clock, not %3; check its rate",
                          "%1 liefert nach der Uhr %2 Abtastwerte je Sekunde, nicht %3; prüfen "
                          "Sie die Abtastrate")
                    .With({feed->Source().Name(), tc::ShortestText(std::round(measured)),
                           tc::ShortestText(rate)}));
    }
    if (feed->Overrun() > 0 && hasGaps)
        warnings.push_back(
            Bilingual("%1 samples of %2 found no room, since the graph was too slow",
                      "%1 Abtastwerte von %2 fanden keinen Platz, weil der Graph zu langsam war")
                .With({std::to_string(feed->Overrun()), feed->Source().Name()}));
    const Packets& packets = feed->Received();
    if (packets.Late() > 0) figures.push_back({"late packets", static_cast<double>(packets.Late()), ""});
    if (packets.Broken() > 0)
        warnings.push_back(
            Bilingual("%1 bytes of packets from %2 were no whole sample of all channels; check "
                      "format and channels",
                      "%1 Bytes in Paketen von %2 waren kein ganzer Abtastwert aller Kanäle; "
                      "prüfen Sie Format und Kanalzahl")
                .With({std::to_string(packets.Broken()), feed->Source().Name()}));
    return figures;
}

}  // namespace live
