#include "host/engine/EnginePlace.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <numeric>

#include "host/EngineSection.h"
#include "host/FileWait.h"
#include "host/OpenGraph.h"
#include "host/Places.h"
#include "host/engine/Inlet.h"
#include "host/engine/Outlet.h"
#include "sigweave/recording/RecordingWriter.h"
#include "sigweave/services/Bilingual.h"

namespace host::engine {
namespace {

using tc::Bilingual;

// How a place ended, as the bytes of the last unit.
constexpr std::string_view ENDED = "ended";
constexpr std::string_view INTERRUPTED = "interrupted";
constexpr std::string_view FAILED = "failed ";  // and the number of the place

class EnginePlace final : public PlaceRun, public PartLink {
 public:
    EnginePlace(const PlacePlan& placePlan, const EngineRun& engineRun, std::unique_ptr<Engine> joined)
        : PlaceRun(placePlan), run(engineRun), engine(std::move(joined)) {}

    // `cutLines`: the most that lead from one place to another.
    Outcome Begin(std::uint32_t cutLines, std::string& why) {
        const std::vector<std::string>& places = Plan().places;
        const int own = Plan().own;
        const int count = static_cast<int>(places.size());
        std::vector<std::string> ways;
        for (int place = 0; place + 1 < count; ++place)
            ways.push_back(WayName(PlaceAt(place), PlaceAt(ReceiverOf(place))));
        bareTurn = cutLines;
        std::vector<std::uint32_t> lines(cutLines + (own < Plan().joining ? 1 : 0));
        std::iota(lines.begin(), lines.end(), 0U);
        Outcome outcome = Outcome::Done;
        if (own + 1 < count) {
            outlet = std::make_unique<Outlet>(*engine, PlaceAt(ReceiverOf(own)), lines, ways);
            outcome = outlet->Begin(why);
        }
        inlets.resize(places.size());
        for (int place = 0; place < own && outcome == Outcome::Done; ++place)
            if (ReceiverOf(place) == own) outcome = BeginInlet(place, why);
        return outcome;
    }

    Got Receive(int from, PartDelivery& delivery) override {
        Way& way = inlets[static_cast<std::size_t>(from)];
        if (!JoinsPlaces()) way.inlet->SetDone(way.done);
        const std::uint64_t before = delivery.before = way.last;
        bool hasMore = true;
        while (hasMore) {
            const Outcome outcome = Next(from);
            if (outcome == Outcome::Interrupted) wasInterrupted = true;
            if (outcome != Outcome::Done) return outcome == Outcome::Failed ? Got::Failed : Got::Interrupted;
            way.last = unit.lastPiece;
            if (!Take(from, delivery)) return Got::Failed;
            hasMore = unit.hasMore;
        }
        way.hasEnded = delivery.kind != PartDelivery::Kind::Blocks;
        // Before a source's step all modules have made theirs; when the next delivery is asked for they have.
        if (delivery.place < 0) way.done = before;
        return Got::Delivery;
    }

    void SetDone(int from, std::uint64_t before) override {
        const Way& way = inlets[static_cast<std::size_t>(from)];
        way.inlet->SetDone(before == EVERYTHING ? way.last : before);
    }

    PartLink* Next() override { return outlet != nullptr ? this : nullptr; }

    // A delivery without blocks is told with the next one: places only get smaller.
    bool Send(PartDelivery& delivery) override {
        smallest = std::min(smallest, delivery.place);
        const bool isEnd = delivery.kind != PartDelivery::Kind::Blocks;
        const std::size_t count = delivery.PieceCount();
        for (std::size_t i = 0; i < count; ++i) {
            PartDelivery::Piece& piece = delivery.PieceAt(i);
            const bool isLast = i + 1 == count;
            const bool endsTurn = isLast && delivery.turn.source >= 0;
            sent.kind = endsTurn ? Unit::Turn : Unit::Block;
            sent.hasMore = isEnd || !isLast;
            sent.line = static_cast<std::uint32_t>(piece.cut);
            sent.step = smallest;
            sent.bytes = endsTurn ? WriteTurn(delivery.turn) : "";
            sent.bytes.append(piece.frame.data(), piece.frame.size());
            if (!Send()) return false;
        }
        if (count == 0 && delivery.turn.source >= 0) {
            sent = {Unit::Turn, isEnd, bareTurn, std::exchange(smallest, INT_MAX), WriteTurn(delivery.turn)};
            if (!Send()) return false;
        }
        if (isEnd) return SendEnd(delivery.kind == PartDelivery::Kind::Failed ? delivery.failedPart : -1);
        if (count > 0) smallest = INT_MAX;
        return true;
    }

    void GiveUp() override {
        if (outlet != nullptr && !hasEnded && error.empty()) SendEnd(Plan().own);
    }

    const std::string& GetError() const override { return error; }
    bool WasInterrupted() const override { return wasInterrupted; }

 private:
    struct Way {
        std::unique_ptr<Inlet> inlet;
        std::uint64_t last = 0;  // piece that was received
        std::uint64_t done = 0;  // the last piece of which nothing is left to do
        bool hasEnded = false;
    };

    const std::string& PlaceAt(int place) const { return Plan().places[static_cast<std::size_t>(place)]; }
    int ReceiverOf(int place) const { return std::max(place + 1, Plan().joining); }
    bool JoinsPlaces() const { return Plan().joining > 0 && Plan().own == Plan().joining; }

    Outcome BeginInlet(int place, std::string& why) {
        Way& way = inlets[static_cast<std::size_t>(place)];
        way.inlet = std::make_unique<Inlet>(*engine, PlaceAt(place), JoinsPlaces());
        return way.inlet->Begin(why);
    }

    // The next unit of a place. Meanwhile none of the others may be missing.
    Outcome Next(int from) {
        Inlet& inlet = *inlets[static_cast<std::size_t>(from)].inlet;
        for (;;) {
            bool isThere = false;
            const Outcome outcome = inlet.Look(unit, isThere, error);
            if (outcome != Outcome::Done || isThere) return outcome;
            for (const Way& other : inlets)
                if (other.inlet != nullptr && !other.hasEnded && other.inlet->IsMissing(error))
                    return Outcome::Failed;
        }
    }

    bool Send() {
        const Outcome outcome = outlet->Send(sent, error);
        wasInterrupted = wasInterrupted || outcome == Outcome::Interrupted;
        return outcome == Outcome::Done;
    }

    bool SendEnd(int failedPart) {
        hasEnded = true;
        const bool isInterrupted =
            wasInterrupted || (run.interruption != nullptr && run.interruption->IsRaised());
        sent = {Unit::End, false, 0, smallest, std::string(isInterrupted ? INTERRUPTED : ENDED)};
        if (failedPart >= 0 && !isInterrupted) sent.bytes = std::string(FAILED) + std::to_string(failedPart);
        return Send() && outlet->Finish(error) == Outcome::Done;
    }

    // Nothing of a unit is believed that this place could not have been sent.
    bool Take(int from, PartDelivery& delivery) {
        const bool isPlace = unit.step >= -1 && unit.step <= INT_MAX;
        const bool isTaken = unit.kind == Unit::Block  ? TakeFrame(unit.bytes, delivery)
                             : unit.kind == Unit::Turn ? TakeTurn(from, delivery)
                                                       : TakeEnd(from, delivery);
        if (!isPlace || !isTaken) {
            error = Bilingual(
                        "what came from the place before, %1, is no block of this graph; begin a new run "
                        "with --new-run at the place that is started first",
                        "was vom Ort davor, %1, kam, ist kein Block dieses Graphen; beginnen Sie mit "
                        "--new-run einen neuen Lauf, an dem Ort, der zuerst gestartet wird")
                        .With({PlaceAt(from)});
            return false;
        }
        delivery.place = static_cast<int>(unit.step);
        return true;
    }

    bool TakeFrame(std::string_view frame, PartDelivery& delivery) const {
        if (frame.empty() || unit.line >= static_cast<std::uint32_t>(CutCount())) return false;
        delivery.Add(static_cast<int>(unit.line)).frame.assign(frame.begin(), frame.end());
        return true;
    }

    // Of a source that is there.
    bool TakeTurn(int from, PartDelivery& delivery) const {
        if (unit.hasMore || !ReadTurn(unit.bytes, delivery.turn)) return false;
        const std::string_view frame = std::string_view(unit.bytes).substr(TURN_SIZE);
        const bool isKnown = std::ranges::any_of(Sources(), [&](const Source& source) {
            return source.part == from && source.place == delivery.turn.source;
        });
        return isKnown && (frame.empty() ? unit.line == bareTurn : TakeFrame(frame, delivery));
    }

    bool TakeEnd(int from, PartDelivery& delivery) {
        if (unit.hasMore) return false;
        delivery.kind = PartDelivery::Kind::Ended;
        const bool isInterrupted = unit.bytes == INTERRUPTED;
        wasInterrupted = wasInterrupted || isInterrupted;
        if (!unit.bytes.starts_with(FAILED)) return isInterrupted || unit.bytes == ENDED;
        delivery.kind = PartDelivery::Kind::Failed;
        const char* const end = unit.bytes.data() + unit.bytes.size();
        const auto read = std::from_chars(unit.bytes.data() + FAILED.size(), end, delivery.failedPart);
        return read.ec == std::errc() && read.ptr == end && delivery.failedPart >= 0 &&
               (JoinsPlaces() ? delivery.failedPart == from : delivery.failedPart < Plan().own);
    }

    const EngineRun run;
    std::unique_ptr<Engine> engine;
    std::unique_ptr<Outlet> outlet;
    std::vector<Way> inlets;     // by place
    std::uint32_t bareTurn = 0;  // stands for the line of a turn without a frame
    Unit unit;
    Unit sent;
    int smallest = INT_MAX;  // place since the last delivery
    bool hasEnded = false;
    bool wasInterrupted = false;
    std::string error;
};

void Destroy(PlaceRun* place) {
    delete static_cast<EnginePlace*>(place);
}

std::string UrlOf(const PlaceRequest& request, const EngineSection& section) {
    if (!request.url.empty()) return request.url;
    const char* const variable = std::getenv("SIGWEAVE_ENGINE");
    return variable != nullptr && *variable != '\0' ? variable : section.url;
}

std::string WhyNoEngine(const EngineRun& run) {
    if (!run.address.url.empty()) return WhyNoUrl(run.address.url);
    return Bilingual(
               "nothing says which engine joins the places: write url=nats://HOST:4222 in [engine], or use "
               "--engine or "
               "SIGWEAVE_ENGINE",
               "nichts sagt, welche Engine die Orte verbindet: schreiben Sie url=nats://HOST:4222 in "
               "[engine], oder "
               "benutzen Sie --engine oder SIGWEAVE_ENGINE")
        .Text();
}

std::uint32_t CountCutLines(const OpenGraph& open, const PlacePlan& plan) {
    const auto at = [&](int module) { return plan.partOf[static_cast<std::size_t>(module)]; };
    return static_cast<std::uint32_t>(std::ranges::count_if(
        open.graph.Lines(), [&](const RunLine& line) { return at(line.from) != at(line.to); }));
}

}  // namespace

std::unique_ptr<PlaceRun, void (*)(PlaceRun*)> JoinPlace(const OpenGraph& open, const PlacePlan& plan,
                                                         const EngineSection& section,
                                                         const PlaceRequest& request, std::string& error) {
    std::unique_ptr<PlaceRun, void (*)(PlaceRun*)> joined(nullptr, Destroy);
    const std::string path = open.file.GetPath();
    EngineRun run;
    run.address.url = UrlOf(request, section);
    run.name = section.name;
    run.digest = DigestRun(open.file, section.name);
    run.about = std::filesystem::path(path).filename().string() + ", sigweave " SIGWEAVE_VERSION;
    run.place = plan.places[static_cast<std::size_t>(plan.own)];
    run.graph = path;
    run.keep = section.keep;
    run.patience = section.patience;
    run.replicas = section.replicas;
    if (section.acknowledgesRecorded) run.record = tc::RecordingWriter::SyncAll;
    run.anew = request.anew;
    run.interruption = request.interruption;
    run.onWait = [](const std::string& what) { TellWait("", what); };
    error = WhyNoEngine(run);
    if (!error.empty() || !AddSecrets(run.address, error)) return joined;
    std::unique_ptr<Engine> engine = Engine::Join(run, error);
    if (engine == nullptr) return joined;
    auto place = std::make_unique<EnginePlace>(plan, run, std::move(engine));
    if (place->Begin(CountCutLines(open, plan), error) == Outcome::Done) joined.reset(place.release());
    return joined;
}

}  // namespace host::engine
