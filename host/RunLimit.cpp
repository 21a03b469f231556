#include "host/RunLimit.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <span>

#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/signal/SegmentIndex.h"
#include "sigweave/signal/UnitText.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr double NEARLY = 1e-6;  // samples, of sums of lengths

using Block = TCIOStream::Block;

// The blocks of a channel of a bus; of another block none.
std::span<Block* const> Nested(const TCIOStream::DataSegment& segment) {
    if (segment.GetBlocks() == nullptr) return {};
    return {segment.GetBlocks(), static_cast<std::size_t>(segment.GetElementCount())};
}

struct Extent {
    std::int64_t samples = 0;  // of a channel
    double samplerate = 0.0;
};

// A bus is as long as its longest channel.
Extent ExtentOf(const Block& block) {
    Extent extent;
    if (block.GetTI() != nullptr) {
        extent.samplerate = block.GetTI()->GetSamplerate();
        if (block.Segment(0) != nullptr) extent.samples = block.Segment(0)->GetElementCount();
        return extent;
    }
    for (int i = 0; i < block.SegmentCnt(); ++i) {
        Extent channel;
        for (const Block* const part : Nested(*block.Segment(i))) {
            const Extent its = ExtentOf(*part);
            channel = {channel.samples + its.samples, its.samplerate};
        }
        if (channel.samples > extent.samples) extent = channel;
    }
    return extent;
}

// Calls it for the block, or for each block of each channel of a bus, with the samples of that channel
// before.
template <class Function>
void ForEachPart(Block& block, Function&& function) {
    if (block.GetTI() != nullptr) return function(block, 0, true);
    for (int i = 0; i < block.SegmentCnt(); ++i) {
        const std::span<Block* const> parts = Nested(*block.Segment(i));
        int before = 0;
        for (std::size_t part = 0; part < parts.size(); ++part) {
            const int length =
                parts[part]->Segment(0) != nullptr ? parts[part]->Segment(0)->GetElementCount() : 0;
            function(*parts[part], before, part + 1 == parts.size());
            before += length;
        }
    }
}

// At most so many samples of each channel; none has a block after its end.
void Keep(Block& block, int samples) {
    ForEachPart(block, [&](Block& part, int before, bool) {
        auto* const values = const_cast<TCIOStream::DataSegment*>(part.Segment(0));
        if (values != nullptr) tc::SegmentIndex::Shorten(*values, std::max(samples - before, 0));
    });
}

void EndSignal(Block& block) {
    ForEachPart(block, [](Block& part, int, bool isLast) {
        if (part.GetTI() == nullptr || !isLast) return;
        TCTypeInfo ti = *part.GetTI();
        ti.SetState(tc::BlockState(tc::BeginsSignal(ti.GetState()), true));
        part.SetTI(&ti);
    });
}

void CountSignal(Block& block, LineCount& count) {
    bool isOpen = false;
    bool ends = false;
    ForEachPart(block, [&](Block& part, int, bool isLast) {
        if (!isLast || part.GetTI() == nullptr) return;
        const bool isEnd = tc::EndsSignal(part.GetTI()->GetState());
        ends = ends || isEnd;
        isOpen = isOpen || !isEnd;
    });
    count.isOpen = isOpen;
    count.signals += ends && !isOpen ? 1 : 0;
}

// The number before the word; 0 when it is no whole number above 0, or another word.
std::int64_t CountOf(const std::string& text, const std::string& word) {
    for (const std::string& ending : {word + "s", word}) {
        if (!text.ends_with(ending)) continue;
        std::string number = text.substr(0, text.size() - ending.size());
        while (number.ends_with(' ')) number.pop_back();
        std::int64_t count = 0;
        const auto [end, code] = std::from_chars(number.data(), number.data() + number.size(), count);
        return code == std::errc() && end == number.data() + number.size() ? count : 0;
    }
    return 0;
}

}  // namespace

bool RunLimit::Read(const std::string& text, RunLimit& limit, std::string& error) {
    RunLimit read;
    read.samples = CountOf(text, "sample");
    read.signals = CountOf(text, "signal");
    double seconds = 0.0;
    std::string ignored;
    if (!read.IsAny() && tc::ReadQuantity(text, "s", seconds, ignored) && std::isfinite(seconds))
        read.milliseconds = std::max(0.0, seconds * 1000.0);
    if (read.IsAny()) {
        limit = read;
        return true;
    }
    error = Bilingual(
                "'%1' is not valid; expected a time, as 10s or 2min, or a number, as 48000samples or "
                "3signals",
                "'%1' ist nicht gültig; erwartet wird eine Zeit, wie 10s oder 2min, oder eine Anzahl, wie "
                "48000samples oder 3signals")
                .With({text});
    return false;
}

void RunLimit::Take(TCIOStream::Block& block, bool isTimed, LineCount& count) const {
    const Extent extent = ExtentOf(block);
    const double period = extent.samplerate > 0.0 ? 1000.0 / extent.samplerate : 0.0;
    std::int64_t room = extent.samples;
    if (samples > 0) room = samples - count.samples;
    if (milliseconds > 0.0 && period > 0.0)
        room = static_cast<std::int64_t>(std::ceil((milliseconds - count.milliseconds) / period - NEARLY));
    count.samples += extent.samples;
    count.milliseconds += static_cast<double>(extent.samples) * period;
    const bool isReached = (samples > 0 || (milliseconds > 0.0 && period > 0.0)) && room <= extent.samples;
    if (isReached && isTimed) Keep(block, static_cast<int>(std::max<std::int64_t>(room, 1)));
    if (isReached) EndSignal(block);
    CountSignal(block, count);
    count.isFull = isReached || (signals > 0 && count.signals >= signals);
}

void DropBlocks(TCIOStream& receiver, int first) {
    TCIOStream all;
    TCIOStream one;
    TCIOStream relay;
    TCIOStream::Block* held = nullptr;
    all.SetInputStream(0)->CopyBlockRefs(receiver);
    relay.AddOutputStream(one.SetInputStream(0));
    while (receiver.ExchangeBinary(&held, true) == 1) continue;
    for (int i = 0; i < first && relay.ForwardBlock(all) == 1; ++i) {
        receiver.CopyBlockRefs(one);
        one.ExchangeBinary(&held, true);
    }
    while (all.ExchangeBinary(&held, true) == 1) continue;
    all.ExchangeBinary(&held, false);
}

}  // namespace host
