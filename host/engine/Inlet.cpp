#include "host/engine/Inlet.h"

#include <algorithm>
#include <deque>
#include <utility>

#include "host/engine/EngineImpl.h"

namespace host::engine {
namespace {

using tc::Bilingual;

constexpr int NO_CONSUMER = 10014;
constexpr std::int64_t SECOND = 1'000'000'000;  // nanoseconds, in configurations
constexpr std::size_t ACKNOWLEDGE_EVERY = 32;
constexpr std::string_view ACKNOWLEDGE = "+ACK";

// What acknowledges a message, and the number of its piece.
struct Receipt {
    std::uint64_t number = 0;
    std::string subject;
};

}  // namespace

struct Inlet::Impl {
    Impl(Engine::Impl& ofRun, std::string source, bool several)
        : engine(ofRun), from(std::move(source)), isOneOfSeveral(several) {}

    Engine::Impl& engine;
    std::string from;
    bool isOneOfSeveral;
    PieceOrder order;
    Subscription messages;
    Subscription presence;
    std::uint64_t nextSequence = 1;  // of the stream, from which on it is read again
    std::uint64_t wire = 0;          // the number of the connection that they are of
    std::uint64_t readAgain = 0;     // from this piece on, since then
    Clock::time_point firstAsked = Clock::now();
    std::deque<Receipt> receipts;  // of what is not acknowledged, in the stream's order
    std::uint64_t done = 0;        // the last piece of which nothing is left to do
    bool hasLost = false;          // the stream no longer has its first frames
    Clock::time_point lastHeard = Clock::now();
    Clock::time_point lastMessage = Clock::now();

    Outcome Bind(natsStatus& status, std::string& error);
    Outcome Subscribe(std::string& error);
    Outcome MakeConsumer(natsStatus& status, std::string& error);
    void Unsubscribe();
    Outcome Receive(std::string& error);
    Outcome Take(NatsMessage message, std::string& error);
    Outcome ReadAgain(std::string& error);
    Outcome BeIdle(std::string& error);
    bool IsStuck();
    // Messages that the server sends before the first is acknowledged.
    std::size_t Window() const { return engine.run.record ? 1024 : 128; }
    std::size_t CountDone() const;
    Outcome Acknowledge(std::size_t least, std::string& error);
    void ListenForPresence();
    void HearPresence();
    bool IsMissing(std::string& error);
    std::string WhyMissing() const;
    std::string WhyGone() const;
    std::string WhyTooLarge() const;
};

Inlet::Inlet(Engine& engine, std::string from, bool isOneOfSeveral)
    : impl(new Impl(*engine.impl, std::move(from), isOneOfSeveral)) {}

Inlet::~Inlet() {
    impl->Unsubscribe();
}

// The subscription is destroyed only when nothing comes to it any more.
void Inlet::Impl::Unsubscribe() {
    constexpr std::int64_t WAIT = 1000;
    receipts.clear();
    if (messages == nullptr) return;
    if (wire != engine.Number() || !engine.IsConnected()) return messages.reset();
    natsSubscription_DrainTimeout(messages.get(), WAIT);
    natsSubscription_WaitForDrainCompletion(messages.get(), 1);
    for (natsMsg* rest = nullptr; natsSubscription_NextMsg(&rest, messages.get(), 1) == NATS_OK;)
        natsMsg_Destroy(rest);
    natsSubscription_WaitForDrainCompletion(messages.get(), WAIT);
    messages.reset();
}

Outcome Inlet::Impl::MakeConsumer(natsStatus& status, std::string& error) {
    const std::string stream = engine.Stream();
    const std::string name = WayName(from, engine.run.place);
    const std::string filter = engine.Subject(engine.run.place, from, ">");
    jsErrCode code = static_cast<jsErrCode>(0);
    natsInbox* inbox = nullptr;
    if (natsInbox_Create(&inbox) != NATS_OK) return Outcome::Failed;
    const Owned<char, natsInbox_Destroy> target(inbox);
    jsConsumerConfig config;
    jsConsumerConfig_Init(&config);
    config.Durable = name.c_str();
    config.DeliverSubject = target.get();
    config.DeliverPolicy = nextSequence > 1 ? js_DeliverByStartSequence : js_DeliverAll;
    config.OptStartSeq = nextSequence > 1 ? nextSequence : 0;
    config.AckPolicy = js_AckAll;
    // What waits here unread must not come again and again. (What is lost is noticed without that.)
    config.AckWait = isOneOfSeveral ? 86400 * SECOND : 30 * SECOND;
    config.MaxAckPending = static_cast<std::int64_t>(Window());
    config.FilterSubject = filter.c_str();
    const Outcome asked = engine.Ask(
        [&] { return js_DeleteConsumer(engine.JetStream(), stream.c_str(), name.c_str(), nullptr, &code); },
        status, error);
    if (asked != Outcome::Done) return asked;
    return engine.Ask(
        [&] { return js_AddConsumer(nullptr, engine.JetStream(), stream.c_str(), &config, nullptr, &code); },
        status, error);
}

// One attempt; `status` is the library's answer.
Outcome Inlet::Impl::Bind(natsStatus& status, std::string& error) {
    const Outcome made = MakeConsumer(status, error);
    if (made != Outcome::Done || status != NATS_OK) return made;
    const std::string stream = engine.Stream();
    const std::string name = WayName(from, engine.run.place);
    const std::string filter = engine.Subject(engine.run.place, from, ">");
    jsSubOptions options;
    jsSubOptions_Init(&options);
    options.Stream = stream.c_str();
    options.Consumer = name.c_str();
    options.ManualAck = true;
    natsSubscription* subscribed = nullptr;
    jsErrCode code = static_cast<jsErrCode>(0);
    const Outcome asked = engine.Ask(
        [&] {
            return js_SubscribeSync(&subscribed, engine.JetStream(), filter.c_str(), nullptr, &options,
                                    &code);
        },
        status, error);
    messages.reset(subscribed);
    return asked;
}

// From the first frame that was not taken yet. A refusal is not the last word: servers that choose a new
// leader may still know the reader of before, or not know the new one yet.
Outcome Inlet::Impl::Subscribe(std::string& error) {
    Unsubscribe();
    if (std::exchange(wire, engine.Number()) != engine.Number()) {
        ListenForPresence();
        lastHeard = Clock::now();
    }
    std::string refusal;
    for (const auto begin = Clock::now(); Clock::now() - begin <= engine.run.patience; engine.Pause()) {
        natsStatus status = NATS_OK;
        const Outcome bound = Bind(status, error);
        if (bound != Outcome::Done) return bound;
        lastMessage = Clock::now();
        if (status == NATS_OK) {
            natsSubscription_SetPendingLimits(messages.get(), -1, -1);
            return Outcome::Done;
        }
        refusal = Reason(status);
        if (!engine.MayWait(error)) return Engine::Impl::Ended(error);
    }
    error =
        Bilingual(
            "the engine %1 does not let %2 read what %3 sends: %4; look at its log, and at the user's "
            "permissions",
            "die Engine %1 lässt %2 nicht lesen, was %3 sendet: %4; sehen Sie in ihr Protokoll, und prüfen "
            "Sie die Rechte des Benutzers")
            .With({engine.run.address.url, engine.run.place, from, refusal});
    return Outcome::Failed;
}

Outcome Inlet::Begin(std::string& error) {
    Engine::Impl& engine = impl->engine;
    jsStreamInfo* found = nullptr;
    natsStatus status = NATS_OK;
    jsErrCode code = static_cast<jsErrCode>(0);
    const Outcome asked = engine.Ask(
        [&] { return js_GetStreamInfo(&found, engine.JetStream(), engine.Stream().c_str(), nullptr, &code); },
        status, error);
    const StreamInfo info(found);
    if (asked != Outcome::Done) return asked;
    impl->hasLost = status == NATS_OK && info->State.FirstSeq > impl->engine.firstMessage;
    impl->lastHeard = Clock::now();
    return impl->Subscribe(error);
}

Outcome Inlet::Next(Unit& unit, std::string& error) {
    for (bool isThere = false; !isThere;) {
        const Outcome looked = Look(unit, isThere, error);
        if (looked != Outcome::Done) return looked;
    }
    return Outcome::Done;
}

Outcome Inlet::Look(Unit& unit, bool& isThere, std::string& error) {
    isThere = impl->order.Take(unit);
    if (isThere) return Outcome::Done;
    const Outcome received = impl->Receive(error);
    isThere = received == Outcome::Done && impl->order.Take(unit);
    return received;
}

bool Inlet::IsMissing(std::string& error) {
    int waiting = 0;
    natsSubscription_GetPending(impl->messages.get(), &waiting, nullptr);
    if (waiting > 0 || impl->wire != impl->engine.Number()) impl->lastHeard = Clock::now();
    return impl->IsMissing(error);
}

void Inlet::SetDone(std::uint64_t piece) {
    impl->done = piece;
}

Outcome Inlet::Impl::Receive(std::string& error) {
    if (wire != engine.Number()) {
        const Outcome subscribed = Subscribe(error);
        if (subscribed != Outcome::Done) return subscribed;
    }
    natsMsg* found = nullptr;
    natsStatus status = natsSubscription_NextMsg(&found, messages.get(), 1);
    if (status == NATS_TIMEOUT) {
        if (Acknowledge(1, error) != Outcome::Done) return Outcome::Failed;
        status = natsSubscription_NextMsg(&found, messages.get(), POLL / 1ms);
    }
    if (status == NATS_OK) return Take(NatsMessage(found), error);
    return BeIdle(error);
}

Outcome Inlet::Impl::Take(NatsMessage message, std::string& error) {
    jsMsgMetaData* found = nullptr;
    if (natsMsg_GetMetaData(&found, message.get()) != NATS_OK) return Outcome::Done;  // none of the stream
    const MetaData meta(found);
    lastHeard = lastMessage = Clock::now();
    std::uint64_t number = 0, digest = 0;
    ReadPieceNumber(Data(message.get()), number, digest);
    const PieceOrder::Outcome put = order.Put(std::string(Data(message.get())));
    if (!order.GetError().empty()) {
        error = Bilingual("from %1: %2", "von %1: %2").With({from, order.GetError()});
        return Outcome::Failed;
    }
    if (put == PieceOrder::Outcome::TooEarly) {
        if (hasLost && order.First() == 1) {
            error = WhyGone();
            return Outcome::Failed;
        }
        return ReadAgain(error);
    }
    if (!order.IsHolding()) nextSequence = std::max(nextSequence, meta->Sequence.Stream + 1);
    receipts.push_back({number, natsMsg_GetReply(message.get())});
    return Acknowledge(ACKNOWLEDGE_EVERY, error);
}

// What was lost on its way comes again. What the server itself has lost never does.
Outcome Inlet::Impl::ReadAgain(std::string& error) {
    const auto now = Clock::now();
    if (std::exchange(readAgain, order.First()) != order.First()) firstAsked = now;
    if (now - firstAsked <= engine.run.patience || !order.IsHolding()) return Subscribe(error);
    error = Bilingual(
                "the engine %1 has lost message %2 of the run from %3 to %4, perhaps when its power failed; "
                "begin a new "
                "run with --new-run at the place that is started first, and keep replicas on several servers",
                "die Engine %1 hat die Nachricht %2 des Laufs von %3 an %4 verloren, vielleicht bei einem "
                "Stromausfall; "
                "beginnen Sie mit --new-run einen neuen Lauf, an dem Ort, der zuerst gestartet wird, und "
                "halten Sie Kopien auf "
                "mehreren Servern")
                .With({engine.run.address.url, std::to_string(order.First()), from, engine.run.place});
    return Outcome::Failed;
}

// How many messages may be acknowledged.
std::size_t Inlet::Impl::CountDone() const {
    if (!engine.run.record) return receipts.size();
    const auto first =
        std::ranges::find_if(receipts, [this](const Receipt& receipt) { return receipt.number > done; });
    return static_cast<std::size_t>(first - receipts.begin());
}

// All that may be, when it is at least that many: the server takes the last one's for those before it too.
Outcome Inlet::Impl::Acknowledge(std::size_t least, std::string& error) {
    if (receipts.size() < least) return Outcome::Done;
    const std::size_t count = CountDone();
    if (count < least) return Outcome::Done;
    if (engine.run.record && !engine.run.record(error)) return Outcome::Failed;
    const std::string& subject = receipts[count - 1].subject;
    natsConnection_Publish(engine.wire->connection.get(), subject.c_str(), ACKNOWLEDGE.data(),
                           static_cast<int>(ACKNOWLEDGE.size()));
    receipts.erase(receipts.begin(), receipts.begin() + static_cast<std::ptrdiff_t>(count));
    return Outcome::Done;
}

void Inlet::Impl::ListenForPresence() {
    natsSubscription* subscribed = nullptr;
    presence.reset();
    if (natsConnection_SubscribeSync(&subscribed, engine.wire->connection.get(), engine.Here(from).c_str()) ==
        NATS_OK)
        presence.reset(subscribed);
}

void Inlet::Impl::HearPresence() {
    for (natsMsg* heard = nullptr;
         presence != nullptr && natsSubscription_NextMsg(&heard, presence.get(), 1) == NATS_OK;) {
        natsMsg_Destroy(heard);
        lastHeard = Clock::now();
    }
}

// The server has something for this reader and does not send it, or has forgotten the reader. (What is
// missing although everything came is what the sender sends again.)
bool Inlet::Impl::IsStuck() {
    jsConsumerInfo* found = nullptr;
    jsErrCode code = static_cast<jsErrCode>(0);
    const natsStatus status = js_GetConsumerInfo(&found, engine.JetStream(), engine.Stream().c_str(),
                                                 WayName(from, engine.run.place).c_str(), nullptr, &code);
    const ConsumerInfo info(found);
    if (status != NATS_OK) return code == NO_CONSUMER || status == NATS_NOT_FOUND;
    const auto unacknowledged = static_cast<std::int64_t>(receipts.size());
    return info->NumPending > 0 || info->NumAckPending > unacknowledged || !info->PushBound;
}

Outcome Inlet::Impl::BeIdle(std::string& error) {
    if (!engine.MayWait(error)) return Engine::Impl::Ended(error);
    const auto now = Clock::now();
    if (!engine.IsUp()) {
        lastHeard = now;
        if (!engine.IsConnected()) engine.Pause();
        return Outcome::Done;
    }
    if (now - lastMessage > 1s) {
        lastMessage = now;
        if (hasLost && order.First() == 1 && order.IsHolding()) {
            error = WhyGone();
            return Outcome::Failed;
        }
        if (receipts.size() >= Window()) {
            error = WhyTooLarge();
            return Outcome::Failed;
        }
        if (IsStuck()) return ReadAgain(error);
    }
    return IsMissing(error) ? Outcome::Failed : Outcome::Done;
}

// Of a server that does not answer nothing can be heard.
bool Inlet::Impl::IsMissing(std::string& error) {
    constexpr std::int64_t ANSWER_WAIT = 1000;
    HearPresence();
    if (!engine.IsUp()) lastHeard = Clock::now();
    engine.TellWait(from, lastHeard);
    if (Clock::now() - lastHeard <= engine.run.patience ||
        natsConnection_FlushTimeout(engine.wire->connection.get(), ANSWER_WAIT) != NATS_OK)
        return false;
    error = WhyMissing();
    return true;
}

std::string Inlet::Impl::WhyMissing() const {
    return Bilingual(
               "place %1 is missing: nothing was heard of it for %2 s; start it with 'sigweave run %3 "
               "--place %1', where it "
               "goes on",
               "der Ort %1 fehlt: seit %2 s war nichts von ihm zu hören; starten Sie ihn mit 'sigweave run "
               "%3 --place %1', "
               "er macht dann weiter")
        .With({from, Seconds(engine.run.patience), engine.run.graph});
}

// What belongs together is more than the server sends before an acknowledgement.
std::string Inlet::Impl::WhyTooLarge() const {
    return Bilingual(
               "the blocks from %1 are too large for acknowledge=recorded: a step makes more than %2 "
               "messages; "
               "write acknowledge=taken in [engine], or make smaller blocks",
               "die Blöcke von %1 sind zu groß für acknowledge=recorded: ein Schritt macht mehr als %2 "
               "Nachrichten; schreiben Sie acknowledge=taken in [engine], oder machen Sie kleinere Blöcke")
        .With({from, std::to_string(Window())});
}

std::string Inlet::Impl::WhyGone() const {
    return Bilingual(
               "the engine no longer has the first blocks from %1, for the run has more than keep=%2 bytes: "
               "%3 cannot begin "
               "again; begin a new run with --new-run at the place that is started first, and raise keep= in "
               "[engine]",
               "die Engine hat die ersten Blöcke von %1 nicht mehr, denn der Lauf hat mehr als keep=%2 Byte: "
               "%3 kann nicht "
               "von vorn beginnen; beginnen Sie mit --new-run einen neuen Lauf, an dem Ort, der zuerst "
               "gestartet wird, und erhöhen "
               "Sie keep= in "
               "[engine]")
        .With({from, std::to_string(engine.run.keep), engine.run.place});
}

}  // namespace host::engine
