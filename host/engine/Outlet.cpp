#include "host/engine/Outlet.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <limits>
#include <map>
#include <mutex>
#include <utility>

#include "host/engine/EngineImpl.h"

namespace host::engine {
namespace {

using tc::Bilingual;

constexpr int NO_MESSAGE = 10037;
constexpr int STORE_FAILED = 10077;  // its text says that the stream is full
constexpr std::size_t BYTES_IN_FLIGHT = 8 << 20;
constexpr std::int64_t SHARE_IN_FLIGHT = 8;
constexpr auto RESEND_AFTER = 3s;
constexpr auto LAST_WAIT = 2s;  // of a run that is to end, for what is under way

struct Pending {
    std::uint64_t number = 0;
    std::string subject;
    std::string piece;
    std::uint64_t before = 0;  // bytes of all that were made before it
    bool mustBeSent = true;
    Clock::time_point sent;
};

// What an outlet shares with the threads of the library, which may still call when it is gone.
struct Flight {
    std::mutex mutex;
    std::condition_variable landed;
    std::deque<Pending> pending;  // in the order of their numbers
    std::uint64_t made = 0;       // bytes, of all so far
    bool isFull = false;
    bool hasRoom = false;  // it was full, and is no more: what was refused may be sent
    std::string refusal;

    void Land(std::uint64_t number);
    void Repeat(std::uint64_t number, jsErrCode code, const std::string& text);
};

void Flight::Land(std::uint64_t number) {
    const std::lock_guard lock(mutex);
    const auto found = std::ranges::find(pending, number, &Pending::number);
    if (found == pending.end()) return;
    pending.erase(found);
    hasRoom = std::exchange(isFull, false);
    refusal.clear();
    landed.notify_all();
}

void Flight::Repeat(std::uint64_t number, jsErrCode code, const std::string& text) {
    const std::lock_guard lock(mutex);
    const auto found = std::ranges::find(pending, number, &Pending::number);
    if (found == pending.end()) return;
    found->mustBeSent = true;
    isFull = code == STORE_FAILED && text.find("maximum") != std::string::npos;
    refusal = text;
    landed.notify_all();
}

std::mutex flightsMutex;
std::map<std::uintptr_t, std::shared_ptr<Flight>> flights;  // by what the library gets

std::uintptr_t Register(const std::shared_ptr<Flight>& flight) {
    static std::uintptr_t last = 0;
    const std::lock_guard lock(flightsMutex);
    flights[++last] = flight;
    return last;
}

void OnAcknowledged(jsCtx*, natsMsg* raw, jsPubAck*, jsPubAckErr* failure, void* closure) {
    const NatsMessage message(raw);
    std::shared_ptr<Flight> flight;
    {
        const std::lock_guard lock(flightsMutex);
        const auto found = flights.find(reinterpret_cast<std::uintptr_t>(closure));
        if (found != flights.end()) flight = found->second;
    }
    std::uint64_t number = 0, digest = 0;
    if (flight == nullptr || !ReadPieceNumber(Data(raw), number, digest)) return;
    if (failure == nullptr)
        flight->Land(number);
    else
        flight->Repeat(number, failure->ErrCode,
                       failure->ErrText != nullptr ? failure->ErrText : natsStatus_GetText(failure->Err));
}

}  // namespace

struct Outlet::Impl {
    Impl(Engine::Impl& ofRun, std::string target, std::vector<std::string> ways)
        : engine(ofRun), to(std::move(target)), allWays(std::move(ways)) {}

    Engine::Impl& engine;
    std::string to;
    std::vector<std::string> lines;
    std::vector<std::string> allWays;
    std::shared_ptr<Flight> flight = std::make_shared<Flight>();
    std::uintptr_t id = Register(flight);
    Context context;         // for what is sent; requests use the engine's
    std::uint64_t wire = 0;  // the number of the connection that it is of
    PieceMaker pieces;
    std::map<std::uint64_t, std::uint64_t> known;  // digests, by number, that the stream has
    std::uint64_t skipped = 0;                     // the first pieces, which it surely has
    Clock::time_point lastRoom = Clock::now();

    Outcome FindKnown(const std::string& subject, std::string& error);
    bool IsAsBefore(std::string& error) const;
    void UseConnection();
    void Publish(Pending& message);
    void PublishAgain(Clock::time_point now);
    Outcome WaitUntil(std::uint64_t after, std::size_t mostBytes, std::string& error);
    // From the first message that is not acknowledged on. Where a full stream refuses that one and takes
    // later ones, these are only a part of what it can hold, or nothing could be freed for the first.
    std::size_t MostBytes() const {
        return std::min(BYTES_IN_FLIGHT, static_cast<std::size_t>(engine.run.keep / SHARE_IN_FLIGHT));
    }
    bool MakeRoom();
    std::string WhyHeld() const;
    std::string SlowPlaces() const;
};

Outlet::Outlet(Engine& engine, std::string to, std::vector<std::uint32_t> lines,
               std::vector<std::string> allWays)
    : impl(new Impl(*engine.impl, std::move(to), std::move(allWays))) {
    for (const std::uint32_t line : lines) impl->lines.push_back(std::to_string(line));
    impl->lines.emplace_back("end");
}

Outlet::~Outlet() {
    const std::lock_guard lock(flightsMutex);
    flights.erase(impl->id);
}

Outcome Outlet::Begin(std::string& error) {
    constexpr std::int64_t MOST_HEADERS = 4096;
    const std::int64_t largest = natsConnection_GetMaxPayload(impl->engine.wire->connection.get());
    if (largest < static_cast<std::int64_t>(LARGEST_PIECE) + MOST_HEADERS) {
        error = Bilingual("the engine %1 takes messages of at most %2 bytes; set its max_payload to 1MB",
                          "die Engine %1 nimmt Nachrichten von höchstens %2 Byte; setzen Sie ihr max_payload "
                          "auf 1MB")
                    .With({impl->engine.run.address.url, std::to_string(largest)});
        return Outcome::Failed;
    }
    for (const std::string& line : impl->lines) {
        const Outcome found =
            impl->FindKnown(impl->engine.Subject(impl->to, impl->engine.run.place, line), error);
        if (found != Outcome::Done) return found;
    }
    const std::uint64_t last = impl->known.empty() ? 0 : impl->known.rbegin()->first;
    impl->skipped = last - std::min<std::uint64_t>(last, MOST_IN_FLIGHT);
    return Outcome::Done;
}

Outcome Outlet::Impl::FindKnown(const std::string& subject, std::string& error) {
    natsMsg* found = nullptr;
    natsStatus status = NATS_OK;
    jsErrCode code = static_cast<jsErrCode>(0);
    const Outcome asked = engine.Ask(
        [&] {
            return js_GetLastMsg(&found, engine.JetStream(), engine.Stream().c_str(), subject.c_str(),
                                 nullptr, &code);
        },
        status, error);
    const NatsMessage message(found);
    if (asked != Outcome::Done) return asked;
    if (status == NATS_NOT_FOUND || code == NO_MESSAGE) return Outcome::Done;
    std::uint64_t number = 0, digest = 0;
    if (status == NATS_OK && ReadPieceNumber(Data(found), number, digest)) {
        known[number] = digest;
        return Outcome::Done;
    }
    error =
        Bilingual("the engine %1 has something in the run that is no block (%2); forget it with --new-run",
                  "die Engine %1 hat etwas im Lauf, das kein Block ist (%2); verwerfen Sie ihn mit --new-run")
            .With({engine.run.address.url, subject});
    return Outcome::Failed;
}

bool Outlet::Impl::IsAsBefore(std::string& error) const {
    const auto found = known.find(pieces.LastNumber());
    if (found == known.end() || found->second == pieces.LastDigest()) return true;
    error = Bilingual(
                "%1 makes other blocks than before in this run: what it reads has changed; begin a new run "
                "with --new-run at the place that is started first",
                "%1 erzeugt andere Blöcke als zuvor in diesem Lauf: was es liest, hat sich geändert; "
                "beginnen Sie mit --new-run einen neuen Lauf, an dem Ort, der zuerst gestartet wird")
                .With({engine.run.place});
    return false;
}

// Another connection has lost what was under way on the one before it.
void Outlet::Impl::UseConnection() {
    if (wire == engine.Number()) return;
    wire = engine.Number();
    jsOptions options;
    jsOptions_Init(&options);
    options.PublishAsync.AckHandler = OnAcknowledged;
    options.PublishAsync.AckHandlerClosure = reinterpret_cast<void*>(id);
    jsCtx* made = nullptr;
    natsConnection_JetStream(&made, engine.wire->connection.get(), &options);
    context.reset(made);
    const std::lock_guard lock(flight->mutex);
    for (Pending& message : flight->pending) message.mustBeSent = true;
}

void Outlet::Impl::Publish(Pending& message) {
    // The server knows the messages of a run that was forgotten for two minutes more.
    const std::string messageId = WayName(engine.run.place, to) + "." + std::to_string(engine.firstMessage) +
                                  "." + std::to_string(message.number);
    constexpr std::int64_t GIVE_UP = 5000;  // the library's own wait for an acknowledgement
    jsPubOptions options;
    jsPubOptions_Init(&options);
    options.MsgId = messageId.c_str();
    options.MaxWait = GIVE_UP;
    natsMsg* made = nullptr;
    natsStatus status = natsMsg_Create(&made, message.subject.c_str(), nullptr, message.piece.data(),
                                       static_cast<int>(message.piece.size()));
    if (status == NATS_OK) status = js_PublishMsgAsync(context.get(), &made, &options);
    natsMsg_Destroy(made);
    message.mustBeSent = status != NATS_OK;
    if (IsLoss(status)) engine.connection.Drop(wire);
    message.sent = Clock::now();
}

// What was refused, what the connection may have lost, and what nobody has answered for long. While the
// stream is full only the first is tried.
void Outlet::Impl::PublishAgain(Clock::time_point now) {
    if (!engine.IsConnected()) return;
    UseConnection();
    const std::lock_guard lock(flight->mutex);
    for (Pending& message : flight->pending) {
        message.mustBeSent = message.mustBeSent || now - message.sent > RESEND_AFTER;
        if (!message.mustBeSent) continue;
        Publish(message);
        if (flight->isFull) return;
    }
}

// Removes from a full stream what all readers have taken; false when there is nothing.
bool Outlet::Impl::MakeRoom() {
    jsErrCode code = static_cast<jsErrCode>(0);
    std::uint64_t taken = std::numeric_limits<std::uint64_t>::max();
    for (const std::string& way : allWays) {
        jsConsumerInfo* found = nullptr;
        const natsStatus status = js_GetConsumerInfo(&found, engine.JetStream(), engine.Stream().c_str(),
                                                     way.c_str(), nullptr, &code);
        const ConsumerInfo info(found);
        if (status != NATS_OK) return false;
        if (info->NumPending == 0 && info->NumAckPending == 0) continue;
        taken = std::min(taken, info->AckFloor.Stream);
    }
    jsStreamInfo* found = nullptr;
    if (js_GetStreamInfo(&found, engine.JetStream(), engine.Stream().c_str(), nullptr, &code) != NATS_OK)
        return false;
    const StreamInfo info(found);
    const std::uint64_t first = info->State.FirstSeq, last = info->State.LastSeq;
    constexpr std::uint64_t SHARE = 8;  // of the stream, at once
    const std::uint64_t end = std::min({taken, last, first + (last - first) / SHARE});
    if (end < first || taken < first) return false;
    jsOptions options;
    jsOptions_Init(&options);
    options.Stream.Purge.Sequence = end + 1;
    return js_PurgeStream(engine.JetStream(), engine.Stream().c_str(), &options, &code) == NATS_OK;
}

std::string Outlet::Impl::SlowPlaces() const {
    std::string names;
    for (const std::string& way : allWays) {
        jsConsumerInfo* found = nullptr;
        jsErrCode code = static_cast<jsErrCode>(0);
        const natsStatus status = js_GetConsumerInfo(&found, engine.JetStream(), engine.Stream().c_str(),
                                                     way.c_str(), nullptr, &code);
        const ConsumerInfo info(found);
        if (status == NATS_OK && info->NumPending == 0) continue;
        const std::string place = way.substr(way.find('-') + 1);
        if ((", " + names + ",").find(", " + place + ",") != std::string::npos) continue;
        names += (names.empty() ? "" : ", ") + place;
    }
    return names;
}

std::string Outlet::Impl::WhyHeld() const {
    const std::string slow = SlowPlaces();
    if (flight->isFull)
        return Bilingual(
                   "the run's stream has been full for %1 s (keep=%2 bytes), for these places do not take "
                   "what is in it: %3; "
                   "start them with 'sigweave run %4 --place ...', or raise keep= in [engine]",
                   "der Strom des Laufs ist seit %1 s voll (keep=%2 Byte), denn diese Orte nehmen nichts ab: "
                   "%3; starten Sie "
                   "sie mit 'sigweave run %4 --place ...', oder erhöhen Sie keep= in [engine]")
            .With({Seconds(engine.run.patience), std::to_string(engine.run.keep), slow.empty() ? to : slow,
                   engine.run.graph});
    return Bilingual(
               "the engine %1 has acknowledged nothing for %2 s (%3); look at its log, and run this part "
               "again: it goes on",
               "die Engine %1 bestätigt seit %2 s nichts (%3); sehen Sie in ihr Protokoll, und starten Sie "
               "diesen Teil neu: "
               "er macht weiter")
        .With({engine.run.address.url, Seconds(engine.run.patience),
               flight->refusal.empty() ? "-" : flight->refusal});
}

// Until all messages up to that one are acknowledged, and the rest has at most that many bytes.
Outcome Outlet::Impl::WaitUntil(std::uint64_t after, std::size_t mostBytes, std::string& error) {
    std::unique_lock lock(flight->mutex);
    const auto isDone = [&] {
        return flight->pending.empty() || (flight->pending.front().number > after &&
                                           flight->made - flight->pending.front().before <= mostBytes);
    };
    std::size_t before = flight->pending.size();
    lastRoom = Clock::now();
    while (!isDone()) {
        flight->landed.wait_for(lock, POLL,
                                [&] { return isDone() || std::exchange(flight->hasRoom, false); });
        if (isDone()) break;
        const auto now = Clock::now();
        if (flight->pending.size() != std::exchange(before, flight->pending.size())) lastRoom = now;
        const bool isFull = flight->isFull;
        lock.unlock();
        if (!engine.MayWait(error) && (!error.empty() || now - lastRoom > LAST_WAIT))
            return Engine::Impl::Ended(error);
        if (!engine.IsUp()) lastRoom = engine.IsInterrupted() ? lastRoom : now;
        if (isFull && MakeRoom()) lastRoom = now;
        PublishAgain(now);
        lock.lock();
        if (now - lastRoom <= engine.run.patience) continue;
        lock.unlock();
        error = WhyHeld();
        return Outcome::Failed;
    }
    return Outcome::Done;
}

Outcome Outlet::Send(const Unit& unit, std::string& error) {
    const std::string line = unit.kind == Unit::End ? "end" : std::to_string(unit.line);
    const std::string subject = impl->engine.Subject(impl->to, impl->engine.run.place, line);
    impl->pieces.Begin(unit);
    for (std::string piece; impl->pieces.Take(piece);) {
        if (!impl->IsAsBefore(error)) return Outcome::Failed;
        if (impl->pieces.LastNumber() <= impl->skipped) continue;
        const std::uint64_t number = impl->pieces.LastNumber();
        const Outcome waited =
            impl->WaitUntil(number - std::min<std::uint64_t>(number, MOST_IN_FLIGHT),
                            impl->MostBytes() - std::min(piece.size(), impl->MostBytes()), error);
        if (waited != Outcome::Done) return waited;
        impl->UseConnection();
        const std::lock_guard lock(impl->flight->mutex);
        Pending& message = impl->flight->pending.emplace_back();
        message.before = std::exchange(impl->flight->made, impl->flight->made + piece.size());
        message.number = number;
        message.subject = subject;
        message.piece = std::move(piece);
        if (!impl->flight->isFull && impl->engine.IsConnected()) impl->Publish(message);
    }
    return Outcome::Done;
}

Outcome Outlet::Finish(std::string& error) {
    return impl->WaitUntil(std::numeric_limits<std::uint64_t>::max(), 0, error);
}

}  // namespace host::engine
