#include "python/src/PackedRecording.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "sigweave/persistence/TCSerializeHelper.h"
#include "sigweave/services/Bilingual.h"

namespace python {
namespace {

using tc::Bilingual;
using tc::RecordingReader;

constexpr std::int64_t LARGEST_CHECKED_VIEW = 4 << 20;  // bytes: one of them takes less than a millisecond
constexpr std::size_t MOST_LOSSES = 1000;               // that are put into words
constexpr int FIRST_BLOCKS =
    10000;  // within which the first of each signal is looked for in the order of the file
constexpr double CLOCK = 1e-6;  // seconds; differences below are the rounding of timestamps

Kind KindOf(int type) {
    switch (type) {
        case TCIOStream::INT:
            return Kind::Ints;
        case TCIOStream::DOUBLE:
            return Kind::Doubles;
        case TCIOStream::STRING:
            return Kind::Texts;
        default:
            return Kind::Empty;
    }
}

std::int64_t SizeOf(Kind kind) {
    return kind == Kind::Ints ? sizeof(int) : sizeof(double);
}

Place PlaceOf(const FrameArray& array, const RecordingReader& reader) {
    return {.frame = reader.GetFrameOffset(),
            .frameSize = static_cast<std::int32_t>(reader.GetFrameSize()),
            .dataAt = array.dataAt,
            .infoAt = array.infoAt,
            .count = array.count,
            .rows = array.rows,
            .columns = array.columns};
}

// Of places that are in order, the one that holds the element; the end for one behind them.
std::vector<Place>::const_iterator PlaceWith(const std::vector<Place>& places, std::int64_t element) {
    const auto after = std::ranges::upper_bound(places, element, {}, &Place::first);
    if (after == places.begin()) return after;
    const auto before = after - 1;
    return element < before->first + before->count ? before : after;
}

}  // namespace

std::shared_ptr<PackedRecording> PackedRecording::Open(const std::string& path, std::string& error) {
    std::shared_ptr<PackedRecording> made(new PackedRecording);
    return made->Begin(path, error) ? made : nullptr;
}

bool PackedRecording::Begin(const std::string& name, std::string& error) {
    path = name;
    if (!reader.Open(path.c_str())) {
        error = reader.GetError();
        return false;
    }
    file = reader.Map();
    if (file == nullptr) {
        error = Bilingual("%1 cannot be mapped into memory; copy it to a local disk",
                          "%1 lässt sich nicht in den Speicher abbilden; kopieren Sie sie auf eine lokale "
                          "Platte")
                    .With({path});
        return false;
    }
    FindParts();
    return true;
}

std::size_t PackedRecording::PartCount() const {
    const std::lock_guard guard(mutex);
    return parts.size();
}

RecordedPart PackedRecording::Part(std::size_t index) const {
    const std::lock_guard guard(mutex);
    const RecordedPart& found = parts.at(index);
    RecordedPart copy;
    copy.signal = found.signal;
    copy.channel = found.channel;
    copy.kind = found.kind;
    copy.dimensions = found.dimensions;
    copy.isSpectrum = found.isSpectrum;
    copy.isAlone = found.isAlone;
    copy.hasPlaces = found.hasPlaces;
    copy.isByBlock = found.isByBlock;
    copy.info = found.info;
    return copy;
}

tc::RecordingSignal PackedRecording::SignalOf(const RecordedPart& part) const {
    const std::lock_guard guard(mutex);
    return reader.GetSignals()[static_cast<std::size_t>(part.signal)];
}

// By the first block of each signal, in the order of the signals.
void PackedRecording::FindParts() {
    const std::size_t count = reader.GetSignals().size();
    std::vector<std::int64_t> firstOf(count, -1);
    std::size_t found = 0;
    for (std::size_t i = 0; i < count; ++i)
        if (reader.GetSignals()[i].blocks == 0) ++found;
    int step = 0;
    for (int i = 0; i < FIRST_BLOCKS && found < count && (step = reader.NextPlace()) != 0; ++i) {
        const auto signal = static_cast<std::size_t>(std::max(reader.GetSignal(), 0));
        if (step < 0 || signal >= count || firstOf[signal] >= 0) continue;
        firstOf[signal] = reader.GetFrameOffset();
        const std::string_view frame = Frame(reader.GetFrameOffset(), reader.GetFrameSize());
        if (ReadFrame(frame, arrays)) AddParts(static_cast<int>(signal), arrays, frame);
        ++found;
    }
    for (std::size_t i = 0; i < count; ++i)
        if (firstOf[i] < 0 && reader.GetSignals()[i].blocks > 0) FindPartsAt(i);
    std::ranges::stable_sort(parts, {}, &RecordedPart::signal);
    reader.Rewind();
}

void PackedRecording::FindPartsAt(std::size_t signal) {
    if (!reader.Seek(static_cast<int>(signal), 1) || reader.NextPlace() <= 0) return;
    const std::string_view frame = Frame(reader.GetFrameOffset(), reader.GetFrameSize());
    if (ReadFrame(frame, arrays)) AddParts(static_cast<int>(signal), arrays, frame);
}

void PackedRecording::AddParts(int signal, const std::vector<FrameArray>& found, std::string_view frame) {
    for (const FrameArray& array : found) PartFor(signal, array, frame);
    if (found.size() != 1) return;
    RecordedPart& part = parts.back();
    part.isAlone = (part.kind == Kind::Doubles || part.kind == Kind::Ints) && part.dimensions == 1 &&
                   !part.isSpectrum && part.channel.empty();
}

RecordedPart& PackedRecording::PartFor(int signal, const FrameArray& array, std::string_view frame) {
    for (RecordedPart& part : parts)
        if (part.signal == signal && part.segment == array.name) return part;
    const auto isInFrame = [this](const std::string& segment) {
        return std::ranges::find(arrays, std::string_view(segment), &FrameArray::name) != arrays.end();
    };
    const std::string channel =
        Distinct(NameOf(TCString(std::string(array.name).c_str())), [&](const std::string& tried) {
            return std::ranges::any_of(parts, [&](const RecordedPart& part) {
                return part.signal == signal && part.channel == tried && isInFrame(part.segment);
            });
        });
    for (RecordedPart& part : parts)
        if (part.signal == signal && part.channel == channel) return part;
    RecordedPart& made = parts.emplace_back();
    made.signal = signal;
    made.segment = array.name;
    made.channel = channel;
    made.kind = KindOf(array.type);
    made.dimensions = array.dimensions;
    made.isSpectrum =
        reader.GetSignals()[static_cast<std::size_t>(signal)].type.find("{FREQ_DOMAIN}") != std::string::npos;
    if (array.infoAt >= 0) TCSerializeHelper::DeSerializeWithStatus(made.info, frame.data() + array.infoAt);
    return made;
}

// All parts at once: to pass the blocks of the others takes as long.
void PackedRecording::FindAllPlaces() {
    for (RecordedPart& part : parts) part.places.clear();
    std::vector<bool> isAfterLoss(reader.GetSignals().size(), false);
    reader.Rewind();
    for (int step = 0; (step = reader.NextPlace()) != 0;) {
        if (step > 0) {
            AddPlaces(isAfterLoss);
            continue;
        }
        Lose(reader.GetError());
        const int signal = reader.GetDamages().back().signal;
        if (signal < 0)
            isAfterLoss.assign(isAfterLoss.size(), true);
        else if (static_cast<std::size_t>(signal) < isAfterLoss.size())
            isAfterLoss[static_cast<std::size_t>(signal)] = true;
    }
    for (RecordedPart& part : parts) Number(part);
}

void PackedRecording::AddPlaces(std::vector<bool>& isAfterLoss) {
    const int signal = reader.GetSignal();
    isAfterLoss.resize(std::max(isAfterLoss.size(), static_cast<std::size_t>(signal) + 1), false);
    const std::string_view frame = Frame(reader.GetFrameOffset(), reader.GetFrameSize());
    const auto position = static_cast<std::size_t>(signal);
    if (!ReadFrame(frame, arrays)) {
        isAfterLoss[position] = true;
        LoseBlock();
        return;
    }
    for (const FrameArray& array : arrays) {
        RecordedPart& part = PartFor(signal, array, frame);
        if (part.kind == Kind::Empty) part.kind = KindOf(array.type);
        part.dimensions = std::max(part.dimensions, array.dimensions);
        Place place = PlaceOf(array, reader);
        if (KindOf(array.type) != part.kind) place.count = place.rows = place.columns = 0;
        if (part.isAlone) place.first = reader.GetSampleCount() - place.count;
        place.isAfterLoss = isAfterLoss[position];
        part.places.push_back(place);
    }
    isAfterLoss[position] = false;
}

void PackedRecording::Number(RecordedPart& part) {
    const Place none;
    const Place& like = part.places.empty() ? none : part.places.front();
    part.hasPlaces = true;
    part.isByBlock = (part.isSpectrum || part.dimensions == 2) && !part.places.empty() &&
                     std::ranges::all_of(part.places, [&](const Place& place) {
                         return place.rows == like.rows && place.columns == like.columns;
                     });
    std::int64_t next = 0;
    for (Place& place : part.places) {
        if (!part.isAlone || part.isByBlock) place.first = next;
        next = part.isByBlock ? next + 1 : place.first + place.count;
    }
}

std::int64_t PackedRecording::LengthOf(RecordedPart& part) {
    if (part.isAlone && !part.hasPlaces)
        return reader.GetSignals()[static_cast<std::size_t>(part.signal)].samples;
    if (!part.hasPlaces) FindAllPlaces();
    if (part.isByBlock) return std::ssize(part.places);
    return part.places.empty() ? 0 : part.places.back().first + part.places.back().count;
}

std::int64_t PackedRecording::Length(std::size_t index) {
    const std::lock_guard guard(mutex);
    return LengthOf(parts.at(index));
}

std::pair<int, int> PackedRecording::RowShape(std::size_t index) {
    const std::lock_guard guard(mutex);
    LengthOf(parts.at(index));
    const RecordedPart& part = parts.at(index);
    if (!part.hasPlaces || !part.isByBlock) return {0, 0};
    return {part.places.front().rows, part.places.front().columns};
}

RecordedSlice PackedRecording::Find(std::size_t index, std::int64_t begin, std::int64_t end) {
    const std::lock_guard guard(mutex);
    RecordedSlice slice;
    if (begin >= end) return slice;
    const bool takesMuch = (end - begin) > LengthOf(parts.at(index)) / 4 || passed > BlockCount();
    if (!parts.at(index).hasPlaces && takesMuch) FindAllPlaces();
    const RecordedPart& part = parts.at(index);
    if (!part.hasPlaces) {
        FindFew(part, begin, end, slice);
    } else if (part.isByBlock) {
        slice.places.assign(part.places.begin() + begin, part.places.begin() + end);
    } else {
        auto last = part.places.begin();
        for (auto at = PlaceWith(part.places, begin); at != part.places.end() && at->first < end; last = ++at)
            if (at->count > 0) slice.places.push_back(*at);
    }
    std::int64_t reached = begin;
    for (const Place& place : slice.places) {
        if (part.isByBlock) {
            slice.count += place.count;
            continue;
        }
        const std::int64_t from = std::max(place.first, begin);
        if (&place == slice.places.data()) slice.skip = from - place.first;
        slice.isLossy = slice.isLossy || from > reached || (place.isAfterLoss && from > begin);
        reached = place.first + place.count;
        slice.count += std::min(reached, end) - from;
    }
    slice.isLossy = slice.isLossy || (!part.isByBlock && reached < end);
    return slice;
}

void PackedRecording::FindFew(const RecordedPart& part, std::int64_t begin, std::int64_t end,
                              RecordedSlice& slice) {
    slice.isLossy = !reader.SeekSample(part.signal, begin);
    if (slice.isLossy) return;
    bool isAfterLoss = false;
    for (int step = 0; (step = reader.NextPlace()) != 0;) {
        if (step < 0) Lose(reader.GetError());
        isAfterLoss = isAfterLoss || step < 0;
        ++passed;
        if (step < 0 || reader.GetSignal() != part.signal) continue;
        if (!ReadFrame(Frame(reader.GetFrameOffset(), reader.GetFrameSize()), arrays) || arrays.empty() ||
            KindOf(arrays[0].type) != part.kind) {
            LoseBlock();
            isAfterLoss = true;
            continue;
        }
        Place place = PlaceOf(arrays[0], reader);
        place.first = reader.GetSampleCount() - place.count;
        place.isAfterLoss = isAfterLoss;
        isAfterLoss = false;
        if (place.first >= end) return;
        if (place.count > 0) slice.places.push_back(place);
        if (place.first + place.count >= end) return;
    }
}

const char* PackedRecording::View(const RecordedPart& part, RecordedSlice& slice) const {
    if (slice.places.size() != 1) return nullptr;
    const Place& place = slice.places.front();
    const std::int64_t at = place.frame + place.dataAt;
    if (at % SizeOf(part.kind) != 0) return nullptr;
    if (place.frameSize <= LARGEST_CHECKED_VIEW && !IsWhole(Frame(place))) return nullptr;
    return file.get() + at + slice.skip * SizeOf(part.kind);
}

void PackedRecording::Copy(const RecordedPart& part, RecordedSlice& slice, char* to) {
    const std::int64_t size = SizeOf(part.kind);
    std::vector<Place> whole;
    std::int64_t left = slice.count;
    std::int64_t done = 0;
    std::int64_t skip = slice.skip;
    for (const Place& place : slice.places) {
        const std::int64_t count = std::min(place.count - skip, left);
        const std::string_view frame = Frame(place);
        char* const target = to + done * size;
        bool isGood = false;
        if (count == place.count) {
            isGood = CopyWhole(frame, place.dataAt, target, count * size);
        } else if ((isGood = IsWhole(frame))) {
            const char* const from = frame.data() + place.dataAt + skip * size;
            std::copy(from, from + count * size, target);
        }
        left -= count;
        if (isGood) {
            if (whole.empty()) slice.skip = skip;
            whole.push_back(place);
            done += count;
        } else {
            const std::lock_guard guard(mutex);
            slice.isLossy = true;
            Lose(Bilingual("%1: the block of '%2' at byte %3 is damaged, and its values are left out",
                           "%1: der Block von '%2' bei Byte %3 ist beschädigt, seine Werte fehlen")
                     .With({path, reader.GetSignals()[static_cast<std::size_t>(part.signal)].name,
                            std::to_string(place.frame)}));
        }
        skip = 0;
    }
    slice.places = std::move(whole);
    slice.count = done;
}

std::vector<Place> PackedRecording::Places(std::size_t index) {
    const std::lock_guard guard(mutex);
    if (!parts.at(index).hasPlaces) FindAllPlaces();
    return parts.at(index).places;
}

// By the rate where the signal has no gap up to there, as in a signal that was kept; else by its blocks.
std::int64_t PackedRecording::Locate(std::size_t index, double seconds) {
    const std::int64_t length = Length(index);
    const RecordedPart part = Part(index);
    const double rate = part.info.GetSamplerate();
    if (length == 0 || std::isnan(seconds)) return length;
    const double start = part.info.GetTimestamp() / 1000.0;
    const auto first = [seconds](double begin, double perSecond, std::int64_t from, std::int64_t to) {
        const double estimate = std::ceil((seconds - begin) * perSecond);
        auto at = static_cast<std::int64_t>(std::clamp(estimate, 0.0, static_cast<double>(to - from)));
        const auto time = [&](std::int64_t i) { return begin + static_cast<double>(i) / perSecond; };
        while (at > 0 && time(at - 1) >= seconds) --at;
        while (at < to - from && time(at) < seconds) ++at;
        return from + at;
    };
    if (!(rate > 0)) return first(0.0, 1.0, 0, length);
    const std::int64_t nominal = first(0.0, rate, 0, length);
    const std::int64_t probed = std::min(nominal, length - 1);
    const RecordedSlice slice = Find(index, probed, probed + 1);
    if (!slice.places.empty()) {
        const Place& place = slice.places.front();
        const double expected = start + static_cast<double>(place.first) / rate;
        if (std::abs(TimeOf(place).start - expected) <= std::max(0.5 / rate, CLOCK)) return nominal;
    }
    for (const Place& place : Places(index)) {
        const FrameTime time = TimeOf(place);
        if (place.count == 0 || !(time.rate > 0)) continue;
        const double begin = time.start - start;
        if (begin + place.count / time.rate < seconds) continue;
        const std::int64_t found = first(begin, time.rate, place.first, place.first + place.count);
        if (found < place.first + place.count) return found;
    }
    return length;
}

FrameTime PackedRecording::TimeOf(const Place& place) const {
    return place.infoAt < 0 ? FrameTime{} : ReadTime(file.get() + place.frame + place.infoAt);
}

TCTypeInfo PackedRecording::InfoAt(const Place& place) const {
    TCTypeInfo info;
    if (place.infoAt >= 0)
        TCSerializeHelper::DeSerializeWithStatus(info, file.get() + place.frame + place.infoAt);
    return info;
}

void PackedRecording::Lose(const std::string& what) {
    if (lost.size() < MOST_LOSSES && std::ranges::find(lost, what) == lost.end()) lost.push_back(what);
}

// The one that the reader is at.
void PackedRecording::LoseBlock() {
    Lose(path + ": " +
         reader.Describe({tc::RecordingDamage::BLOCK, reader.GetFrameOffset(), reader.GetFrameSize(),
                          reader.GetSignal(), reader.GetBlockNumber(), 0}));
}

std::int64_t PackedRecording::BlockCount() const {
    std::int64_t blocks = 0;
    for (const tc::RecordingSignal& signal : reader.GetSignals()) blocks += signal.blocks;
    return blocks;
}

bool PackedRecording::IsBeingWritten() const {
    const std::lock_guard guard(mutex);
    return !reader.IsClosed() && reader.IsBeingWritten();
}

void PackedRecording::CheckIsThere() const {
    const std::lock_guard guard(mutex);
    if (!reader.IsShorter()) return;
    throw std::length_error(Bilingual("%1 has become shorter since it was opened; open it again",
                                      "%1 ist kürzer geworden, seit sie geöffnet wurde; öffnen Sie sie neu")
                                .With({path}));
}

std::string PackedRecording::Missing() const {
    static constexpr Bilingual GROWS("%1 has %2 blocks and is being written",
                                     "%1 hat %2 Blöcke und wird gerade geschrieben");
    static constexpr Bilingual UNCLOSED("%1 ends after block %2; it was not closed",
                                        "%1 endet nach Block %2; sie wurde nicht abgeschlossen");
    static constexpr Bilingual REMAINS("%1 ends after block %2; %3 bytes behind it are no block",
                                       "%1 endet nach Block %2; %3 Byte dahinter sind kein Block");
    const bool grows = IsBeingWritten();
    const std::lock_guard guard(mutex);
    const std::int64_t behind = reader.GetBytesBehind();
    std::string text;
    if (grows || behind > 0 || !reader.IsClosed())
        text = (grows        ? GROWS
                : behind > 0 ? REMAINS
                             : UNCLOSED)
                   .With({path, std::to_string(BlockCount()), std::to_string(behind)});
    for (const std::string& one : lost) text += (text.empty() ? "" : "\n") + one;
    return text;
}

std::vector<std::string> CheckRecording(const std::string& path, std::string& error) {
    std::vector<std::string> found;
    RecordingReader reader;
    if (!reader.Open(path.c_str(), RecordingReader::Opening::BY_SCAN)) {
        error = reader.GetError();
        return found;
    }
    for (int step = 0; (step = reader.Next()) != 0;)
        if (step < 0) found.push_back(reader.GetError());
    return found;
}

Track DecodeSignal(const std::string& path, int signal, std::string& error) {
    Track track;
    RecordingReader reader;
    if (!reader.Open(path.c_str())) {
        error = reader.GetError();
        return track;
    }
    track.SetSpectrum(reader.GetSignals()[static_cast<std::size_t>(signal)].type.find("{FREQ_DOMAIN}") !=
                      std::string::npos);
    for (int step = 0; (step = reader.Next()) != 0;)
        if (step > 0 && reader.GetSignal() == signal) track.Append(reader.GetBlock());
    return track;
}

}  // namespace python
