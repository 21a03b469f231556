#include "host/parts/Stems.h"

#include <algorithm>
#include <utility>

#include "sigweave/services/Bilingual.h"

namespace host {

using tc::Bilingual;

Stems::Stems(PlaceRun& placeRun) : place(placeRun) {
    for (int part = 0; part < place.Plan().joining; ++part) ways.emplace_back().from = part;
    for (const PlaceRun::Source& source : place.Sources()) {
        const auto way = static_cast<std::size_t>(source.part);
        sources.push_back({.place = source.place, .way = way});
        ++ways[way].sources;
    }
}

Stems::Source& Stems::At(int source) {
    return *std::ranges::find(sources, source, &Source::place);
}

bool Stems::Next(int source, PartDelivery& delivery) {
    Source& asked = At(source);
    Way& way = ways[asked.way];
    delivery.Clear();
    while (asked.kept.empty() && !way.hasEnded)
        if (!Read(way)) return false;
    if (asked.kept.empty()) {
        delivery.kind = way.failedPart >= 0 ? PartDelivery::Kind::Failed : PartDelivery::Kind::Ended;
        delivery.failedPart = way.failedPart;
        delivery.place = way.endPlace;
        return true;
    }
    std::swap(delivery, asked.kept.front());
    spare.push_back(std::move(asked.kept.front()));
    asked.kept.pop_front();
    bytes -= delivery.Bytes();
    asked.isOver = asked.isOver || delivery.turn.isOver;
    return true;
}

// One delivery.
bool Stems::Read(Way& way) {
    PartDelivery delivery;
    if (!spare.empty()) {
        delivery = std::move(spare.back());
        spare.pop_back();
    }
    delivery.Clear();
    if (place.Receive(way.from, delivery) != PlaceRun::Got::Delivery) return false;
    if (delivery.kind != PartDelivery::Kind::Blocks) {
        way.hasEnded = true;
        way.failedPart = delivery.failedPart;
        way.endPlace = delivery.place;
        // A turn in which a module failed; with several sources it does not say whose.
        const auto index = static_cast<std::size_t>(&way - ways.data());
        if (way.sources == 1) Keep(way, std::ranges::find(sources, index, &Source::way)->place);
        return true;
    }
    const int source = delivery.turn.source;
    bytes += delivery.Bytes();
    way.open.push_back(std::move(delivery));
    if (source >= 0) Keep(way, source);
    if (bytes <= MOST_KEPT) return true;
    error = Bilingual(
                "more than 1 GB of blocks from %1 wait for those of another source; put the sources of %1 at "
                "places of their own",
                "mehr als 1 GB an Blöcken von %1 warten auf die einer anderen Quelle; setzen Sie die Quellen "
                "von %1 an eigene Orte")
                .With({place.Plan().places[static_cast<std::size_t>(way.from)]});
    return false;
}

void Stems::Keep(Way& way, int source) {
    for (PartDelivery& delivery : way.open) At(source).kept.push_back(std::move(delivery));
    way.open.clear();
}

void Stems::TellDone() {
    for (std::size_t way = 0; way < ways.size(); ++way) {
        std::uint64_t before = PlaceRun::EVERYTHING;
        for (const Source& source : sources)
            if (source.way == way && !source.kept.empty())
                before = std::min(before, source.kept.front().before);
        if (!ways[way].open.empty()) before = std::min(before, ways[way].open.front().before);
        place.SetDone(ways[way].from, before);
    }
}

bool Stems::AreOver(std::size_t way) const {
    return std::ranges::all_of(sources,
                               [&](const Source& source) { return source.way != way || source.isOver; });
}

int Stems::Finish(bool& isOver) {
    isOver = false;
    for (std::size_t way = 0; way < ways.size(); ++way) {
        while (!ways[way].hasEnded && AreOver(way))
            if (!Read(ways[way])) return -1;
        if (ways[way].failedPart >= 0) return ways[way].failedPart;
    }
    isOver = true;
    return -1;
}

}  // namespace host
