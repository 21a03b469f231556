#include "host/parts/PartedRun.h"

#include <algorithm>
#include <ctime>
#include <system_error>

#include "host/Messages.h"
#include "host/SteppedGraph.h"
#include "host/parts/PlaceRun.h"

namespace host {
namespace {

// In processor time, so that other programs do not matter.
double Spent() {
    return 1000.0 * static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

// How long a run is measured, what handing over takes when the other thread must be woken, and the share of
// the whole time that the longest part may have with it, so that threads pay.
constexpr double MEASURED = 10.0;      // ms
constexpr double HANDING_OVER = 0.01;  // ms, on either side
constexpr double MOST_OF_WHOLE = 0.85;

std::size_t Index(int number) {
    return static_cast<std::size_t>(number);
}

void Serve(Part& part, RingLink& link) {
    PartDelivery delivery;
    do {
        delivery.Clear();
        link.Receive(delivery);
    } while (part.Take(delivery));
    link.Close();
}

}  // namespace

PartedRun::PartedRun(int partCount, std::vector<int> modulesParts, const std::vector<RunLine>& runLines)
    : count(partCount), partOf(std::move(modulesParts)), cutOf(runLines.size()) {
    for (int number = 0; number < static_cast<int>(runLines.size()); ++number) {
        const RunLine& line = runLines[Index(number)];
        const int to = PartOf(line.to);
        if (PartOf(line.from) == to) continue;
        auto known = std::ranges::find_if(
            cuts, [&](const auto& cut) { return cut->module == line.from && cut->output == line.output; });
        if (known == cuts.end()) {
            known = cuts.insert(cuts.end(), std::make_unique<CutOutput>());
            (*known)->module = line.from;
            (*known)->output = line.output;
            (*known)->part = PartOf(line.from);
            (*known)->feeds.resize(Index(count));
            firstLines.push_back(number);
        }
        CutOutput& cut = **known;
        cut.lastPart = std::max(cut.lastPart, to);
        if (cut.feeds[Index(to)] == nullptr) cut.feeds[Index(to)] = std::make_unique<CutOutput::Feed>();
        cut.feeds[Index(to)]->lines.push_back(number);
        cutOf[Index(number)] = &cut;
    }
}

bool PartedRun::IsFirst(int line) const {
    return std::ranges::find(firstLines, line) != firstLines.end();
}

void PartedRun::SetReceiver(int line, TCIOStream* receiver) {
    for (const auto& feed : CutOf(line)->feeds)
        if (feed != nullptr && std::ranges::find(feed->lines, line) != feed->lines.end())
            feed->receivers.push_back(receiver);
}

void PartedRun::PassOn() {
    std::vector<char> frame;
    for (const auto& cut : cuts)
        while (cut->sink.GetBlockCnt(nullptr) > 0) {
            if (!cut->Take(frame)) {
                cut->sink.RemoveContents(false);
                continue;
            }
            for (const auto& feed : cut->feeds)
                if (feed != nullptr) feed->Give(frame);
        }
}

// Null when the machine has no more threads.
std::unique_ptr<tc::Thread> PartedRun::Start(int part) {
    messages::Collection* const collection = messages::Collection::Current();
    try {
        return std::make_unique<tc::Thread>(("part " + std::to_string(part + 1)).c_str(),
                                            [this, part, collection] {
                                                const messages::Collection::Shared shared(collection);
                                                Serve(*parts[Index(part)], *rings[Index(part - 1)]);
                                            });
    } catch (const std::system_error&) {
        return nullptr;
    }
}

// The last thread is made first: a part without one is called by the part before it.
void PartedRun::StartAll() {
    for (int part = count - 1; part > 0; --part) {
        auto thread = Start(part);
        PartLink* link = directs[Index(part - 1)].get();
        if (thread != nullptr) link = rings[Index(part - 1)].get();
        parts[Index(part - 1)]->SetNext(link);
        if (thread != nullptr) threads.push_back(std::move(thread));
    }
}

bool PartedRun::DirectLink::Send(PartDelivery& delivery) {
    Part& receiver = *run.parts[Index(part)];
    if (!run.isMeasured) return receiver.Take(delivery);
    const double before = Spent();
    const bool goesOn = receiver.Take(delivery);
    milliseconds += Spent() - before;
    ++deliveries;
    if (goesOn && part == 1 && before - run.measuredSince > MEASURED) run.Decide();
    return goesOn;
}

// Called by the first part between two steps, when all others have taken what it made.
void PartedRun::Decide() {
    isMeasured = false;
    if (Pays(Spent() - measuredSince)) return StartAll();
    for (const auto& part : parts) part->SetPacking(false);
}

// Whether the part that needs most time leaves enough to the others.
bool PartedRun::Pays(double whole) const {
    double longest = 0.0;
    double here = whole;  // of a part and all after it
    double handedOver = 0.0;
    for (const auto& link : directs) {
        const double own = link->deliveries * HANDING_OVER;
        longest = std::max(longest, here - link->milliseconds + handedOver + own);
        here = link->milliseconds;
        handedOver = own;
    }
    return std::max(longest, here + handedOver) < MOST_OF_WHOLE * whole;
}

void PartedRun::Run(const std::function<SchedulerParts(int part)>& make, const RunOptions& options) {
    for (int part = 0; part < count; ++part)
        parts.push_back(std::make_unique<Part>(part, make(part), options, cuts));
    for (int part = 1; part < count; ++part) {
        rings.push_back(std::make_unique<RingLink>());
        rings.back()->onHandOver = options.onHandOver;
        directs.push_back(std::make_unique<DirectLink>(*this, part));
        parts[Index(part - 1)]->SetNext(directs.back().get());
    }
    measuredSince = Spent();
    isMeasured = options.threads == 0;
    if (!isMeasured) StartAll();
    parts.front()->Run();
    for (auto& thread : threads) thread = nullptr;  // waits for it
}

bool PartedRun::PlaceLink::Send(PartDelivery& delivery) {
    part.Say(delivery.texts);
    delivery.texts.clear();
    return next.Send(delivery);
}

// The sources of other places whose turns are taken here.
void PartedRun::TellSources(const Part& part, PlaceRun& place) const {
    std::vector<PlaceRun::Source> sources;
    for (const Scheduler::Node& node : part.GetScheduler().Nodes())
        if (node.source && node.module == nullptr) sources.push_back({node.place, PartOf(node.number)});
    place.SetSources(std::move(sources));
}

void PartedRun::StepPlace(Part& part, PlaceRun& place) const {
    const int own = place.Plan().own;
    const int joining = place.Plan().joining;
    if (own < joining || own == 0) return part.Run();
    if (own == joining) {
        TellSources(part, place);
        Stems stems(place);
        return part.RunJoined(stems);
    }
    PartDelivery delivery;
    while (place.Receive(own - 1, delivery) == PlaceRun::Got::Delivery && part.Take(delivery))
        delivery.Clear();
}

void PartedRun::RunPlace(const std::function<SchedulerParts(int part)>& make, const RunOptions& options) {
    PlaceRun& place = *options.place;
    const int own = place.Plan().own;
    place.SetCutCount(static_cast<int>(cuts.size()));
    parts.resize(Index(count));
    parts[Index(own)] = std::make_unique<Part>(own, make(own), options, cuts);
    Part& part = *parts[Index(own)];
    std::unique_ptr<StemLink> stem;
    std::unique_ptr<PlaceLink> link;
    PartLink* next = place.Next();
    if (next != nullptr && own < place.Plan().joining)
        next = (stem = std::make_unique<StemLink>(*next)).get();
    if (next != nullptr) link = std::make_unique<PlaceLink>(part, *next);
    part.SetNext(link.get());
    part.SetStem(stem.get());
    StepPlace(part, place);
    if (part.GetState() == Part::State::Runs || part.GetState() == Part::State::Stopped) place.GiveUp();
    part.SetNext(nullptr);
}

}  // namespace host
