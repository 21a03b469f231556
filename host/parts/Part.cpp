#include "host/parts/Part.h"

#include <algorithm>
#include <utility>

#include "host/Console.h"
#include "host/parts/TextCapture.h"
#include "sigweave/services/Bilingual.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr const Bilingual* SEVERITIES[] = {&console::ERROR_WORD, &console::WARNING_WORD, &console::NOTE_WORD};

}  // namespace

Part::Part(int partNumber, SchedulerParts parts, const RunOptions& runOptions,
           std::vector<std::unique_ptr<CutOutput>>& allCuts)
    : number(partNumber),
      feed(parts.feed),
      exit(parts.exit),
      feedOf(std::move(parts.feedOf)),
      hasSources(parts.hasSources),
      original(runOptions),
      options(MakeOptions(runOptions)),
      cuts(allCuts) {
    for (int cut = 0; cut < static_cast<int>(cuts.size()); ++cut)
        if (cuts[static_cast<std::size_t>(cut)]->part == number) own.push_back(cut);
    scheduler = std::make_unique<Scheduler>(std::move(parts.wiring), std::move(parts.nodes),
                                            std::move(parts.lines), options, this);
    if (feed >= 0) scheduler->NeverSteps(feed);
    if (exit >= 0) scheduler->NeverSteps(exit);
}

// What concerns sources is for the parts that have some; what is said goes to the last one.
RunOptions Part::MakeOptions(const RunOptions& runOptions) {
    RunOptions made = runOptions;
    if (!hasSources) {
        made.interruption = nullptr;
        made.gauge = nullptr;
        made.changes = nullptr;
        made.onProgress = nullptr;
    }
    const auto say = [this](PartText::Kind kind, const std::string& who, const std::string& text) {
        PartText said;
        said.kind = kind;
        said.who = who;
        said.text = text;
        outgoing.texts.push_back(std::move(said));
    };
    made.onState = [say](const std::string& instance, const std::string& text) {
        say(PartText::Kind::State, instance, text);
    };
    made.onWarning = [say](const std::string& text) { say(PartText::Kind::Warning, "", text); };
    made.onError = [say](const std::string& text) { say(PartText::Kind::Error, "", text); };
    return made;
}

void Part::Run() {
    if (!HasGone(Go(-1, true))) return;
    place = -1;
    End();
}

void Part::RunJoined(Stems& stems) {
    for (;;) {
        const Scheduler::End end = Go(-1, true);
        if (end != Scheduler::End::Elsewhere && !HasGone(end)) return;
        if (end != Scheduler::End::Elsewhere) break;
        if (!TakeTurn(scheduler->Position(), stems)) return;
    }
    bool isOver = false;
    const int failed = stems.Finish(isOver);
    place = -1;
    if (failed >= 0) return Fail(failed);
    if (isOver) return End();
    state = State::Stopped;
}

// False when the part is over.
bool Part::TakeTurn(int node, Stems& stems) {
    stems.TellDone();
    const int source = scheduler->Nodes()[static_cast<std::size_t>(node)].place;
    do {
        if (!stems.Next(source, fromElsewhere)) {
            state = State::Stopped;
            ownFailure = stems.GetError();
            if (!ownFailure.empty()) Fail(number);
            return false;
        }
        if (fromElsewhere.kind == PartDelivery::Kind::Ended)
            fromElsewhere.turn = {.source = source, .isOver = true};
        else if (!TakeOfTurn(fromElsewhere, node))
            return false;
    } while (fromElsewhere.turn.source < 0);
    scheduler->HasTurned(node, fromElsewhere.turn);
    return true;
}

// Before the first delivery of a turn nothing of this part has work but sources.
bool Part::TakeOfTurn(PartDelivery& delivery, int node) {
    if (!HasGone(Go(delivery.place, false))) return false;
    place = std::min(place, delivery.place);
    return Accept(delivery, node);
}

bool Part::Take(PartDelivery& delivery) {
    if (!HasGone(Go(delivery.place, true))) return false;
    place = std::min(place, delivery.place);
    if (delivery.place < 0 && scheduler->IsHeldUp()) {
        End();
        return false;
    }
    return Accept(delivery, feed);
}

// False when the part is over.
bool Part::Accept(PartDelivery& delivery, int from) {
    for (PartText& text : delivery.texts) outgoing.texts.push_back(std::move(text));
    if (delivery.kind == PartDelivery::Kind::Failed) {
        Fail(delivery.failedPart);
        return false;
    }
    if (!Unpack(delivery, from)) {
        ownFailure = Bilingual("a block is damaged, or there is no memory for it",
                               "ein Block ist beschädigt, oder es fehlt der Speicher für ihn")
                         .Text();
        Fail(number);
        return false;
    }
    if (delivery.kind == PartDelivery::Kind::Ended) {
        End();
        return false;
    }
    if (outgoing.IsEmpty() || HandOn()) return true;
    state = State::Stopped;
    return false;
}

void Part::End() {
    outgoing.kind = PartDelivery::Kind::Ended;
    state = State::Ended;
    HandOn();
}

Scheduler::End Part::Go(int bound, bool withSources) {
    const TextCapture capture(&outgoing.texts);
    return withSources ? scheduler->RunBeyond(bound) : scheduler->RunModulesBeyond(bound);
}

// False when the part is over.
bool Part::HasGone(Scheduler::End end) {
    if (end == Scheduler::End::NothingToDo) return true;
    state = State::Stopped;
    if (end == Scheduler::End::Stopped && ownFailure.empty()) return false;
    place = std::min(place, scheduler->LastPlace());
    Fail(number);
    return false;
}

bool Part::HasStepped(int stepPlace) {
    place = std::min(place, stepPlace);
    hasBegun = hasBegun || stepPlace < 0;
    if (!Pack()) return false;
    if (stem != nullptr) return EndTurn();
    const bool goesOn = outgoing.IsEmpty() || HandOn();
    if (std::exchange(hasShared, false)) {
        for (const int cut : own) cuts[static_cast<std::size_t>(cut)]->sink.RemoveContents(true);
        scheduler->HasTaken(exit);
    }
    return goesOn;
}

// Of a stem, if its turn is over. Before the first one there is nobody to whom blocks belong.
bool Part::EndTurn() {
    if (!hasBegun && outgoing.PieceCount() > 0) {
        ownFailure = Bilingual(
                         "it makes blocks before its source does; put it at the place where signals of "
                         "several sources meet",
                         "es erzeugt Blöcke vor seiner Quelle; setzen Sie es an den Ort, an dem die "
                         "Signale mehrerer Quellen zusammenkommen")
                         .Text();
        return false;
    }
    if (!outgoing.IsEmpty() && !HandOn()) return false;
    if (!scheduler->IsTurnOfSources()) return true;
    const SourceTurn turn = scheduler->TakeTurn();
    return turn.source < 0 || stem->EndTurn(turn);
}

// What the step wrote for other parts.
bool Part::Pack() {
    bool any = false;
    for (const int cut : own) {
        if (cuts[static_cast<std::size_t>(cut)]->sink.GetBlockCnt(nullptr) == 0) continue;
        any = any || packs;
        if (!packs)
            Share(cut);
        else if (!PackEach(cut))
            return false;
    }
    if (any) scheduler->HasTaken(exit);
    return true;
}

bool Part::PackEach(int cut) {
    CutOutput& output = *cuts[static_cast<std::size_t>(cut)];
    while (output.sink.GetBlockCnt(nullptr) > 0) {
        if (output.Take(outgoing.Add(cut).frame)) continue;
        ownFailure = Bilingual("a block cannot be handed to another thread; with --threads 1 it need not be",
                               "ein Block lässt sich keinem anderen Thread übergeben; mit --threads 1 muss "
                               "er das nicht")
                         .Text();
        return false;
    }
    return true;
}

// A piece without a frame.
void Part::Share(int cut) {
    outgoing.Add(cut).frame.clear();
    hasShared = true;
}

// Blocks for this part go into its lines, those for later ones are handed on.
bool Part::Unpack(PartDelivery& delivery, int from) {
    bool any = false;
    for (std::size_t i = 0; i < delivery.PieceCount(); ++i) {
        PartDelivery::Piece& piece = delivery.PieceAt(i);
        CutOutput& cut = *cuts[static_cast<std::size_t>(piece.cut)];
        if (feedOf[static_cast<std::size_t>(cut.module)] != from) return false;
        CutOutput::Feed* const here = cut.feeds[static_cast<std::size_t>(number)].get();
        if (here != nullptr && !(piece.frame.empty() ? here->Share(cut.sink) : here->Give(piece.frame)))
            return false;
        any = any || here != nullptr;
        if (cut.lastPart > number) std::swap(outgoing.Add(piece.cut).frame, piece.frame);
    }
    if (any) scheduler->HasMade(from);
    return true;
}

// The last part has nobody to hand on to: it says what was said.
bool Part::HandOn() {
    if (next == nullptr) {
        Say(outgoing.texts);
        outgoing.Clear();
        return true;
    }
    // While it waits for room it is in no module, which might be taken to wait for its file.
    if (options.gauge != nullptr) options.gauge->Calls(-1);
    outgoing.place = std::exchange(place, INT_MAX);
    outgoing.failedPart = failedPart;
    const bool taken = next->Send(outgoing);
    outgoing.Clear();
    return taken;
}

void Part::Fail(int part) {
    state = part == number ? State::Failed : State::Ended;
    failedPart = part;
    outgoing.kind = PartDelivery::Kind::Failed;
    HandOn();
}

void Part::Say(std::vector<PartText>& texts) const {
    const TextCapture none(nullptr);
    for (const PartText& said : texts) {
        if (said.kind == PartText::Kind::State && original.onState) original.onState(said.who, said.text);
        if (said.kind == PartText::Kind::Warning && original.onWarning) original.onWarning(said.text);
        if (said.kind == PartText::Kind::Error && original.onError) original.onError(said.text);
        if (said.kind == PartText::Kind::Module)
            console::FromModule(said.severity >= 0 ? SEVERITIES[said.severity] : nullptr, said.level,
                                said.who.c_str(), said.text.c_str());
    }
}

}  // namespace host
