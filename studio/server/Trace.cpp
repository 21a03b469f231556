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

// Takes the values into the range; NaN is passed over. Several ranges at once, for none waits for another.
template <class Number>
void Widen(const Number* values, std::int64_t count, double& low, double& high) {
    constexpr int LANES = 8;
    double least[LANES];
    double most[LANES];
    std::fill_n(least, LANES, low);
    std::fill_n(most, LANES, high);
    std::int64_t i = 0;
    for (; i + LANES <= count; i += LANES)
        for (int lane = 0; lane < LANES; ++lane) {
            const auto value = static_cast<double>(values[i + lane]);
            least[lane] = value < least[lane] ? value : least[lane];
            most[lane] = value > most[lane] ? value : most[lane];
        }
    for (; i < count; ++i) {
        const auto value = static_cast<double>(values[i]);
        least[0] = value < least[0] ? value : least[0];
        most[0] = value > most[0] ? value : most[0];
    }
    low = *std::min_element(least, least + LANES);
    high = *std::max_element(most, most + LANES);
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
    const auto samples = static_cast<std::size_t>(wish.samples);
    switch (wish.kind) {
        case Wish::Texts:
            texts.resize(std::clamp<std::size_t>(samples, 1, 1000));
            break;
        case Wish::Spectrogram:
            break;
        case Wish::Samples:
            low.resize(std::max<std::size_t>(samples, 1));
            break;
        default:
            low.resize(wish.kind == Wish::Level ? LEVELS : COLUMNS);
            high.resize(low.size());
    }
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
    const double columns = wish.kind == Wish::Envelope ? static_cast<double>(COLUMNS) : 1.0;
    const double wanted = std::ceil(now.rate * wish.seconds / columns - 1e-9);
    const bool isSingle = wish.kind == Wish::Samples || wish.kind == Wish::Texts;
    now.perColumn = isSingle ? 1 : static_cast<std::int64_t>(std::clamp(wanted, 1.0, 1e15));
    now.window = static_cast<std::int64_t>(low.size());
    if (wish.kind == Wish::Envelope && now.hasRate)
        now.window = static_cast<std::int64_t>(
            std::clamp(std::ceil(now.rate * wish.seconds / static_cast<double>(now.perColumn) - 1e-9), 2.0,
                       static_cast<double>(COLUMNS)));
    if (wish.kind != Wish::Spectrogram) return;
    now.window = static_cast<std::int64_t>(SPECTRUM_COLUMNS);
    segments.Begin(now.signals, now.rate, wish.seconds);
    now.perColumn = segments.PerColumn();
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
    else if (segment != nullptr && segment->GetStrings() != nullptr && wish.kind == Wish::Texts)
        AddTexts(segment->GetStrings(), segment->GetElementCount());
    if (state == STOP || state == COMPLETE) now.ended = true;
    if (asked.load(std::memory_order_relaxed)) Publish();
}

template <class Number>
void Trace::AddValues(const Number* values, std::int64_t count) {
    switch (wish.kind) {
        case Wish::Envelope:
            return AddColumns(values, count);
        case Wish::Samples:
            return AddSamples(values, count);
        case Wish::Level:
            return AddLevels(values, count);
        case Wish::Spectrogram:
            segments.Add(values, count);
            now.newest += count;
            return;
        case Wish::Texts:
            return;  // numbers are none
    }
}

// Where samples are left out because they are no numbers, they count as zeros in the root mean square.
template <class Number>
void Trace::AddLevels(const Number* values, std::int64_t count) {
    const auto columns = static_cast<std::int64_t>(LEVELS);
    for (std::int64_t i = 0; i < count;) {
        const std::int64_t inside = now.newest % now.perColumn;
        const auto column = static_cast<std::size_t>(now.newest / now.perColumn % columns);
        if (inside == 0) low[column] = high[column] = 0.0;
        const std::int64_t end = std::min(count, i + now.perColumn - inside);
        double sum = 0.0;
        double most = high[column];
        now.newest += end - i;
        for (; i < end; ++i) {
            const double value = std::abs(static_cast<double>(values[i]));
            if (!std::isfinite(value)) continue;
            sum += value * value;
            most = std::max(most, value);
        }
        low[column] += sum;
        high[column] = most;
    }
}

void Trace::AddTexts(const TCString* values, std::int64_t count) {
    const auto size = static_cast<std::int64_t>(texts.size());
    for (std::int64_t i = std::max<std::int64_t>(0, count - size); i < count; ++i) {
        PictureText& place = texts[static_cast<std::size_t>((now.newest + i) % size)];
        place.at = now.newest + i;
        place.text.assign(tc::ViewOf(values[i]).substr(0, LONGEST_TEXT));
    }
    now.newest += count;
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
    const std::int64_t columns = now.window;
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
        now.newest += end - i;
        Widen(values + i, end - i, low[column], high[column]);
        i = end;
        if (wish.triggers && now.newest - origin >= columns * now.perColumn) EndSweep();
    }
}

void Trace::EndSweep() {
    Fill(sweep);
    hasSweep = true;
    isArmed = true;
    last = INFINITE;
}

// The last one only when it is whole or the only one.
void Trace::FillLevels(Picture& picture) const {
    const auto size = static_cast<std::int64_t>(LEVELS);
    const std::int64_t whole = now.newest / now.perColumn;
    const std::int64_t end = whole > 0 ? whole : (now.newest > 0 ? 1 : 0);
    const std::int64_t begin = std::max<std::int64_t>(0, end - size + 1);
    picture.first = begin * now.perColumn;
    for (std::int64_t column = begin; column < end; ++column) {
        const auto at = static_cast<std::size_t>(column % size);
        const auto count = static_cast<double>(whole > 0 ? now.perColumn : now.newest);
        picture.low.push_back(std::sqrt(low[at] / count));
        picture.high.push_back(high[at]);
    }
}

void Trace::FillTexts(Picture& picture) const {
    const auto size = static_cast<std::int64_t>(texts.size());
    picture.first = std::max<std::int64_t>(0, now.newest - size);
    for (std::int64_t at = picture.first; at < now.newest; ++at)
        picture.texts.push_back(texts[static_cast<std::size_t>(at % size)]);
}

void Trace::Fill(Picture& picture) const {
    picture = now;
    if (wish.kind == Wish::Level) return FillLevels(picture);
    if (wish.kind == Wish::Texts) return FillTexts(picture);
    if (wish.kind == Wish::Spectrogram) return;
    const std::int64_t size = now.window;
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
    if (wish.kind == Wish::Spectrogram) segments.Give(fresh);
    published.newest = now.newest;
    published.ended = now.ended;
    isNew = true;
    asked.store(false, std::memory_order_relaxed);
}

bool Trace::Take(Picture& picture) {
    SpectrumSegments newSegments;
    {
        const std::lock_guard lock(mutex);
        const bool taken = isNew;
        if (taken) std::swap(picture, published);
        std::swap(newSegments, fresh);
        isNew = false;
        asked.store(true, std::memory_order_relaxed);
        if (!taken) return false;
    }
    if (wish.kind != Wish::Spectrogram) return true;
    if (newSegments.samples.empty() && spectrogram.Bins() > 0 && !picture.ended) return false;
    spectrogram.Add(newSegments);
    picture.first = spectrogram.First() * picture.perColumn;
    picture.bins = spectrogram.Bins();
    picture.levels = spectrogram.Levels(picture.top);
    return true;
}

std::string Encode(const Picture& picture, int key, Wish::Kind kind) {
    const double base = BaseOf(picture);
    const bool isSpectrogram = kind == Wish::Spectrogram;
    const std::size_t columns =
        isSpectrogram && picture.bins > 0 ? picture.levels.size() / picture.bins : picture.low.size();
    nlohmann::ordered_json header = {{"key", key},
                                     {"kind", WordOf(kind)},
                                     {"columns", columns},
                                     {"window", picture.window},
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
    if (isSpectrogram) {
        header["bins"] = picture.bins;
        header["top"] = picture.top;
        header["step"] = Spectrogram::STEP;
    }
    for (const PictureText& text : picture.texts) header["texts"].push_back({text.at, text.text});
    std::string text = header.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    while (text.size() % 4 != 0) text += ' ';
    std::string bytes;
    const auto length = static_cast<std::uint32_t>(text.size());
    for (unsigned shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(length >> shift & 0xFFU);
    bytes += text;
    Append(bytes, picture.low, base);
    Append(bytes, picture.high, base);
    bytes.append(picture.levels.begin(), picture.levels.end());
    return bytes;
}

}  // namespace studio
