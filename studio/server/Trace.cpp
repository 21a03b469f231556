#include "studio/server/Trace.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>

#include "sigweave/signal/UnitText.h"

namespace studio {
namespace {

static_assert(std::endian::native == std::endian::little, "pictures are sent in this order");

constexpr double INFINITE = std::numeric_limits<double>::infinity();

std::string UnitOf(const TCTypeInfo& info) {
    return tc::DisplayUnit(info.GetUnit());
}

void Append(std::string& bytes, const std::vector<double>& values, double base) {
    for (const double value : values) {
        const float small = static_cast<float>(value - base);
        char raw[sizeof small];
        std::memcpy(raw, &small, sizeof small);
        bytes.append(raw, sizeof raw);
    }
}

// A value in the middle of the finite ones: differences from it keep their digits.
double BaseOf(const Picture& picture) {
    double least = INFINITE;
    double most = -INFINITE;
    for (const auto* values : {&picture.low, &picture.high})
        for (const double value : *values) {
            if (!std::isfinite(value)) continue;
            least = std::min(least, value);
            most = std::max(most, value);
        }
    return least <= most ? least / 2 + most / 2 : 0.0;
}

}  // namespace

Trace::Trace(const Wish& traceWish) : wish(traceWish) {
    const std::size_t size = wish.kind == Wish::Samples ? static_cast<std::size_t>(wish.samples) : COLUMNS;
    low.resize(size);
    high.resize(wish.kind == Wish::Samples ? 0 : size);
}

void Trace::Begin(const TCTypeInfo* info) {
    ++now.signals;
    now.newest = 0;
    now.ended = false;
    origin = 0;
    last = INFINITE;
    isArmed = wish.triggers;
    hasSweep = false;
    now.name.clear();
    now.unit.clear();
    if (info != nullptr) {
        now.name = info->GetSignalname();
        now.unit = UnitOf(*info);
        now.start = info->GetTimestamp();
    }
    now.hasRate = info != nullptr && info->GetSamplerate() > 0.0;
    now.rate = now.hasRate ? info->GetSamplerate() : 1.0;
    const double wanted = std::ceil(now.rate * wish.seconds / static_cast<double>(COLUMNS) - 1e-9);
    now.perColumn = wish.kind == Wish::Samples ? 1 : static_cast<std::int64_t>(std::clamp(wanted, 1.0, 1e15));
}

void Trace::Add(const TCIOStream::Block& block) {
    const TCTypeInfo* const info = block.GetTI();
    const int state = info != nullptr ? info->GetState() : BUSY;
    if (now.signals == 0 || state == START || state == COMPLETE) Begin(info);
    const TCIOStream::DataSegment* const segment = block.SegmentCnt() > 0 ? block.Segment(0) : nullptr;
    if (segment != nullptr && segment->GetDoubles() != nullptr)
        AddValues(segment->GetDoubles(), segment->GetElementCount());
    else if (segment != nullptr && segment->GetInts() != nullptr)
        AddValues(segment->GetInts(), segment->GetElementCount());
    if (state == STOP || state == COMPLETE) now.ended = true;
    if (asked.load(std::memory_order_relaxed)) Publish();
}

template <class Number>
void Trace::AddValues(const Number* values, std::int64_t count) {
    wish.kind == Wish::Samples ? AddSamples(values, count) : AddColumns(values, count);
}

template <class Number>
void Trace::AddSamples(const Number* values, std::int64_t count) {
    const auto size = static_cast<std::int64_t>(low.size());
    for (std::int64_t i = std::max<std::int64_t>(0, count - size); i < count; ++i)
        low[static_cast<std::size_t>((now.newest + i) % size)] = static_cast<double>(values[i]);
    now.newest += count;
}

template <class Number>
void Trace::AddColumns(const Number* values, std::int64_t count) {
    const auto columns = static_cast<std::int64_t>(COLUMNS);
    for (std::int64_t i = 0; i < count;) {
        if (isArmed) {
            const double value = static_cast<double>(values[i]);
            const bool rises = last < wish.level && value >= wish.level;
            last = value;
            if (!rises) {
                ++i;
                ++now.newest;
                continue;
            }
            isArmed = false;
            origin = now.newest;
        }
        const std::int64_t inside = (now.newest - origin) % now.perColumn;
        const auto column = static_cast<std::size_t>((now.newest - origin) / now.perColumn % columns);
        if (inside == 0) {
            low[column] = INFINITE;
            high[column] = -INFINITE;
        }
        const std::int64_t end = std::min(count, i + now.perColumn - inside);
        double least = low[column];
        double most = high[column];
        now.newest += end - i;
        for (; i < end; ++i) {
            const double value = static_cast<double>(values[i]);
            least = value < least ? value : least;
            most = value > most ? value : most;
        }
        low[column] = least;
        high[column] = most;
        if (wish.triggers && now.newest - origin >= columns * now.perColumn) EndSweep();
    }
}

void Trace::EndSweep() {
    Fill(sweep);
    hasSweep = true;
    isArmed = true;
    last = INFINITE;
}

void Trace::Fill(Picture& picture) const {
    picture = now;
    const auto size = static_cast<std::int64_t>(low.size());
    const std::int64_t since = now.newest - origin;
    const std::int64_t filled = isArmed ? 0 : (since + now.perColumn - 1) / now.perColumn;
    const std::int64_t begin = std::max<std::int64_t>(0, filled - size);
    picture.first = origin + begin * now.perColumn;
    for (std::int64_t column = begin; column < filled; ++column) {
        picture.low.push_back(low[static_cast<std::size_t>(column % size)]);
        if (!high.empty()) picture.high.push_back(high[static_cast<std::size_t>(column % size)]);
    }
}

void Trace::Publish() {
    const std::unique_lock lock(mutex, std::try_to_lock);
    if (!lock.owns_lock()) return;
    if (wish.triggers && hasSweep)
        published = sweep;
    else
        Fill(published);
    published.newest = now.newest;
    published.ended = now.ended;
    isNew = true;
    asked.store(false, std::memory_order_relaxed);
}

bool Trace::Take(Picture& picture) {
    const std::lock_guard lock(mutex);
    const bool taken = isNew;
    if (taken) std::swap(picture, published);
    isNew = false;
    asked.store(true, std::memory_order_relaxed);
    return taken;
}

std::string Encode(const Picture& picture, int key, Wish::Kind kind) {
    const double base = BaseOf(picture);
    const nlohmann::ordered_json header = {{"key", key},
                                           {"kind", kind == Wish::Samples ? "samples" : "envelope"},
                                           {"columns", picture.low.size()},
                                           {"first", picture.first},
                                           {"perColumn", picture.perColumn},
                                           {"newest", picture.newest},
                                           {"start", picture.start},
                                           {"rate", picture.rate},
                                           {"hasRate", picture.hasRate},
                                           {"ended", picture.ended},
                                           {"signals", picture.signals},
                                           {"name", picture.name},
                                           {"unit", picture.unit},
                                           {"base", base}};
    std::string text = header.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    while (text.size() % 4 != 0) text += ' ';
    std::string bytes;
    const auto length = static_cast<std::uint32_t>(text.size());
    for (unsigned shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(length >> shift & 0xFFU);
    bytes += text;
    Append(bytes, picture.low, base);
    Append(bytes, picture.high, base);
    return bytes;
}

}  // namespace studio
