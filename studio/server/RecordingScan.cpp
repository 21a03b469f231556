#include "studio/server/RecordingScan.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

#include "sigweave/services/Bilingual.h"
#include "sigweave/signal/UnitText.h"

namespace studio {
namespace {

using Json = nlohmann::ordered_json;
using tc::Bilingual;

constexpr double INFINITE = std::numeric_limits<double>::infinity();
constexpr Bilingual NO_SIGNAL("the recording %1 has no such signal yet",
                              "die Aufzeichnung %1 hat noch kein solches Signal");

// Calls `take` with the numbers of the block's first segment; others have none.
template <class Visit>
void VisitNumbers(TCIOStream::Block& block, Visit visit) {
    const TCIOStream::DataSegment* const segment = block.SegmentCnt() > 0 ? block.Segment(0) : nullptr;
    if (segment == nullptr) return;
    if (const double* const doubles = segment->GetDoubles())
        visit(doubles, static_cast<std::int64_t>(segment->GetElementCount()));
    else if (const int* const ints = segment->GetInts())
        visit(ints, static_cast<std::int64_t>(segment->GetElementCount()));
}

void AddRange(Json& low, Json& high, double least, double most) {
    const bool isThere = least <= most && std::isfinite(least) && std::isfinite(most);
    low.push_back(isThere ? Json(least) : Json());
    high.push_back(isThere ? Json(most) : Json());
}

}  // namespace

bool RecordingScan::ReadOn(int milliseconds, std::string& error) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    if (isOpen && !reader.Refresh()) isOpen = false;  // another recording of the name
    if (!isOpen) {
        tracks.clear();
        isOpen = reader.Open(path.c_str()) && finder.Open(path.c_str());
        error = reader.GetError();
    }
    if (!isOpen) return false;
    isWhole = false;
    for (int count = 0; !isWhole; ++count) {
        const int code = reader.Next();
        isWhole = code == 0;
        if (code == 1) Take(reader);
        if (count % 16 == 0 && std::chrono::steady_clock::now() >= end) break;
    }
    return true;
}

void RecordingScan::Take(tc::RecordingReader& from) {
    const auto index = static_cast<std::size_t>(from.GetSignal());
    if (index >= tracks.size()) tracks.resize(index + 1);
    Track& track = tracks[index];
    TCIOStream::Block& block = from.GetBlock();
    if (track.samples == 0 && block.GetTI() != nullptr) track.start = block.GetTI()->GetTimestamp();
    const std::int64_t before = track.samples;
    VisitNumbers(block, [&](const auto* values, std::int64_t count) {
        for (std::int64_t i = 0; i < count;) {
            if (track.samples % track.perPart == 0) {
                if (track.parts.size() == MOST_PARTS) Thin(track);
                if (track.samples % track.perPart == 0)
                    track.parts.push_back({INFINITE, -INFINITE, from.GetBlockNumber(), before});
            }
            Part& part = track.parts.back();
            const std::int64_t end = std::min(count, i + track.perPart - track.samples % track.perPart);
            track.samples += end - i;
            for (; i < end; ++i) {
                const auto value = static_cast<double>(values[i]);
                part.low = value < part.low ? value : part.low;
                part.high = value > part.high ? value : part.high;
            }
        }
    });
}

// Parts twice as long, half as many.
void RecordingScan::Thin(Track& track) {
    std::size_t kept = 0;
    for (std::size_t i = 0; i < track.parts.size(); i += 2) {
        Part part = track.parts[i];
        if (i + 1 < track.parts.size()) {
            part.low = std::min(part.low, track.parts[i + 1].low);
            part.high = std::max(part.high, track.parts[i + 1].high);
        }
        track.parts[kept++] = part;
    }
    track.parts.resize(kept);
    track.perPart *= 2;
}

Json RecordingScan::Describe(int wanted) const {
    Json json = {{"ok", true}, {"signal", wanted}, {"whole", isWhole}, {"growing", reader.IsBeingWritten()}};
    json["signals"] = Json::array();
    for (std::size_t i = 0; i < reader.GetSignals().size(); ++i) {
        const tc::RecordingSignal& signal = reader.GetSignals()[i];
        const bool isRead = i < tracks.size();
        json["signals"].push_back({{"name", signal.name},
                                   {"port", signal.port},
                                   {"unit", signal.unit},
                                   {"rate", signal.rate},
                                   {"samples", isRead ? tracks[i].samples : 0},
                                   {"start", isRead ? tracks[i].start : 0.0}});
    }
    return json;
}

Json RecordingScan::Show(int signal, std::int64_t first, std::int64_t count) {
    Json json = Describe(signal);
    if (signal < 0 || static_cast<std::size_t>(signal) >= tracks.size()) {
        if (signal == 0) return json;
        return {{"ok", false}, {"text", NO_SIGNAL.With({path})}};
    }
    const Track& track = tracks[static_cast<std::size_t>(signal)];
    first = std::clamp<std::int64_t>(first, 0, track.samples);
    const std::int64_t left = track.samples - first;
    const std::int64_t end = first + (count > 0 ? std::min(count, left) : left);
    json["low"] = Json::array();
    json["high"] = Json::array();
    if (end - first >= COLUMNS * track.perPart)
        ShowParts(track, first, end, json);
    else
        ShowSamples(signal, track, first, end, json);
    return json;
}

void RecordingScan::ShowParts(const Track& track, std::int64_t first, std::int64_t end, Json& json) const {
    const std::int64_t begin = first / track.perPart;
    const std::int64_t parts = (end + track.perPart - 1) / track.perPart - begin;
    const std::int64_t together = (parts + COLUMNS - 1) / COLUMNS;
    json["first"] = begin * track.perPart;
    json["perColumn"] = together * track.perPart;
    for (std::int64_t at = begin; at < begin + parts; at += together) {
        double least = INFINITE;
        double most = -INFINITE;
        const std::int64_t stop =
            std::min({at + together, begin + parts, static_cast<std::int64_t>(track.parts.size())});
        for (std::int64_t i = at; i < stop; ++i) {
            least = std::min(least, track.parts[static_cast<std::size_t>(i)].low);
            most = std::max(most, track.parts[static_cast<std::size_t>(i)].high);
        }
        AddRange(json["low"], json["high"], least, most);
    }
}

// A signal that began later is known after it is opened again.
bool RecordingScan::Find(int signal, std::int64_t block) {
    if (finder.Refresh() && finder.Seek(signal, block)) return true;
    return finder.Open(path.c_str()) && finder.Seek(signal, block);
}

void RecordingScan::ShowSamples(int signal, const Track& track, std::int64_t first, std::int64_t end,
                                Json& json) {
    const std::int64_t per = std::max<std::int64_t>(1, (end - first + COLUMNS - 1) / COLUMNS);
    const auto columns = static_cast<std::size_t>((end - first + per - 1) / per);
    std::vector<double> low(columns, INFINITE);
    std::vector<double> high(columns, -INFINITE);
    const auto index = static_cast<std::size_t>(first / track.perPart);
    if (columns > 0 && index < track.parts.size() && Find(signal, track.parts[index].block)) {
        std::int64_t at = track.parts[index].before;
        for (int code = 1; at < end && code != 0;) {
            code = finder.Next();
            if (code != 1 || finder.GetSignal() != signal) continue;
            VisitNumbers(finder.GetBlock(), [&](const auto* values, std::int64_t count) {
                const std::int64_t stop = std::min(count, end - at);
                for (std::int64_t i = std::max<std::int64_t>(0, first - at); i < stop; ++i) {
                    const auto column = static_cast<std::size_t>((at + i - first) / per);
                    const auto value = static_cast<double>(values[i]);
                    low[column] = value < low[column] ? value : low[column];
                    high[column] = value > high[column] ? value : high[column];
                }
                at += count;
            });
        }
    }
    json["first"] = first;
    json["perColumn"] = per;
    for (std::size_t i = 0; i < columns; ++i) AddRange(json["low"], json["high"], low[i], high[i]);
}

}  // namespace studio
