#include "host/engine/Engine.h"

#include <nats/nats.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <iterator>
#include <limits>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "sigweave/services/Bilingual.h"

namespace host::engine {
namespace {

using tc::Bilingual;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr int NO_STREAM = 10059;
constexpr int NO_MESSAGE = 10037;
constexpr int NO_CONSUMER = 10014;
constexpr int STORE_FAILED = 10077;             // its text says that the stream is full
constexpr std::int64_t SECOND = 1'000'000'000;  // nanoseconds, in configurations
constexpr std::int64_t REQUEST_WAIT = 2000;     // ms
constexpr std::size_t BYTES_IN_FLIGHT = 8 << 20;
constexpr int TAKEN_AT_ONCE = 128;  // messages that the server sends before the first is acknowledged
constexpr int ACKNOWLEDGE_EVERY = 32;
constexpr auto POLL = 100ms;
constexpr auto RESEND_AFTER = 3s;
constexpr auto LAST_WAIT = 2s;  // of a run that is to end, for what is under way

template <class Type, auto DESTROY>
struct Destroyer {
    void operator()(Type* object) const { DESTROY(object); }
};
template <class Type, auto DESTROY>
using Owned = std::unique_ptr<Type, Destroyer<Type, DESTROY>>;

using Options = Owned<natsOptions, natsOptions_Destroy>;
using Connection = Owned<natsConnection, natsConnection_Destroy>;
using Context = Owned<jsCtx, jsCtx_Destroy>;
using NatsMessage = Owned<natsMsg, natsMsg_Destroy>;
using Subscription = Owned<natsSubscription, natsSubscription_Destroy>;
using StreamInfo = Owned<jsStreamInfo, jsStreamInfo_Destroy>;
using ConsumerInfo = Owned<jsConsumerInfo, jsConsumerInfo_Destroy>;
using MetaData = Owned<jsMsgMetaData, jsMsgMetaData_Destroy>;

std::string Reason(natsStatus status) {
    natsStatus last = NATS_OK;
    const char* const text = nats_GetLastError(&last);
    return text != nullptr && *text != '\0' && last == status ? text : natsStatus_GetText(status);
}

std::string Seconds(std::chrono::milliseconds time) {
    return std::to_string((time.count() + 999) / 1000);
}

std::string_view Data(natsMsg* message) {
    const char* const data = natsMsg_GetData(message);
    return data != nullptr ? std::string_view(data, static_cast<std::size_t>(natsMsg_GetDataLength(message)))
                           : std::string_view();
}

bool IsRefusal(natsStatus status) {
    return status == NATS_CONNECTION_AUTH_FAILED || status == NATS_NOT_PERMITTED;
}

// What a broken connection makes of a request.
bool IsLoss(natsStatus status) {
    constexpr natsStatus LOSSES[] = {
        NATS_TIMEOUT,          NATS_CONNECTION_DISCONNECTED, NATS_CONNECTION_CLOSED,   NATS_NO_RESPONDERS,
        NATS_IO_ERROR,         NATS_STALE_CONNECTION,        NATS_INSUFFICIENT_BUFFER, NATS_NO_SERVER,
        NATS_NOT_YET_CONNECTED};
    return std::ranges::find(LOSSES, status) != std::end(LOSSES);
}

std::string WhyNoConnection(const EngineRun& run, natsStatus status) {
    const std::string reason = Reason(status);
    if (IsRefusal(status))
        return Bilingual(
                   "the engine %1 refuses this user: set SIGWEAVE_ENGINE_USER and _PASSWORD, _TOKEN or "
                   "_CREDENTIALS as "
                   "its administrator says",
                   "die Engine %1 lehnt diesen Benutzer ab: setzen Sie SIGWEAVE_ENGINE_USER und _PASSWORD, "
                   "_TOKEN oder "
                   "_CREDENTIALS nach Angabe ihres Verwalters")
            .With({run.address.url});
    if (status == NATS_SSL_ERROR || status == NATS_SECURE_CONNECTION_REQUIRED ||
        status == NATS_SECURE_CONNECTION_WANTED)
        return Bilingual(
                   "the engine %1: its certificate or this one's is refused (%2); name the authority with "
                   "SIGWEAVE_ENGINE_CA, and check tls:// and the host's name",
                   "die Engine %1: ihr Zertifikat oder das eigene wird abgelehnt (%2); nennen Sie die "
                   "Zertifizierungsstelle "
                   "mit SIGWEAVE_ENGINE_CA, und prüfen Sie tls:// und den Namen des Rechners")
            .With({run.address.url, reason});
    return Bilingual(
               "the engine %1 has not answered for %2 s (%3); start nats-server there with JetStream, or "
               "name another "
               "one with --engine",
               "die Engine %1 antwortet seit %2 s nicht (%3); starten Sie dort nats-server mit JetStream, "
               "oder nennen Sie "
               "mit --engine eine andere")
        .With({run.address.url, Seconds(run.patience), reason});
}

void OnError(natsConnection*, natsSubscription*, natsStatus, void*) {}

natsStatus SetServers(natsOptions* options, const std::string& urls) {
    std::vector<std::string> all;
    for (std::size_t begin = 0; begin <= urls.size();) {
        const std::size_t end = std::min(urls.find(',', begin), urls.size());
        all.push_back(urls.substr(begin, end - begin));
        begin = end + 1;
    }
    std::vector<const char*> texts;
    for (const std::string& each : all) texts.push_back(each.c_str());
    return natsOptions_SetServers(options, texts.data(), static_cast<int>(texts.size()));
}

}  // namespace

struct Engine::Impl {
    explicit Impl(const EngineRun& engineRun) : run(engineRun) {}
    ~Impl();

    Outcome Connect(std::string& error);
    natsStatus Prepare(natsOptions* options);
    Outcome OpenStream(std::string& error);
    Outcome MakeStream(std::string& error);
    std::string WhyNotThisRun(const jsStreamConfig& config) const;
    void BeHere();
    // Whether to wait on; `error` says why not, and stays empty after an interruption.
    bool MayWait(std::string& error);
    bool IsInterrupted() const { return run.interruption != nullptr && run.interruption->IsRaised(); }
    bool IsConnected() const { return natsConnection_Status(connection.get()) == NATS_CONN_STATUS_CONNECTED; }
    // The outcome of an operation for which `MayWait` was false.
    static Outcome Ended(const std::string& error) {
        return error.empty() ? Outcome::Interrupted : Outcome::Failed;
    }
    // Tries until it is neither a lost connection nor a timeout.
    template <class Request>
    Outcome Ask(Request request, natsStatus& status, std::string& error);
    std::uint64_t Reconnects() const;
    std::string Stream() const { return "sigweave-" + run.name; }
    std::string Subject(const std::string& to, const std::string& from, const std::string& line) const {
        return "sigweave." + run.name + "." + to + "." + from + "." + line;
    }
    std::string Here(const std::string& place) const { return "sigweave-here." + run.name + "." + place; }

    const EngineRun run;
    Connection connection;
    Context context;
    Clock::time_point lastConnected = Clock::now();
    std::mutex mutex;
    std::condition_variable wake;
    bool ends = false;  // under the mutex
    std::thread here;
};

Engine::Impl::~Impl() {
    {
        const std::lock_guard lock(mutex);
        ends = true;
    }
    wake.notify_all();
    if (here.joinable()) here.join();
    context.reset();
    if (connection != nullptr) natsConnection_Close(connection.get());
}

natsStatus Engine::Impl::Prepare(natsOptions* options) {
    const EngineAddress& address = run.address;
    natsStatus status = SetServers(options, address.url);
    const auto then = [&](natsStatus next) { status = status == NATS_OK ? next : status; };
    constexpr int FOR_EVER = -1;
    constexpr std::int64_t CONNECT_WAIT = 2000, RETRY = 100, JITTER = 50, PING = 2000;
    then(natsOptions_SetName(options, ("sigweave " + run.place).c_str()));
    then(natsOptions_SetTimeout(options, CONNECT_WAIT));
    then(natsOptions_SetMaxReconnect(options, FOR_EVER));
    then(natsOptions_SetReconnectWait(options, RETRY));
    then(natsOptions_SetReconnectJitter(options, JITTER, JITTER));
    then(natsOptions_SetPingInterval(options, PING));
    then(natsOptions_SetFailRequestsOnDisconnect(options, true));
    then(natsOptions_SetErrorHandler(options, OnError, nullptr));
    if (!address.user.empty())
        then(natsOptions_SetUserInfo(options, address.user.c_str(), address.password.c_str()));
    if (!address.token.empty()) then(natsOptions_SetToken(options, address.token.c_str()));
    if (!address.credentials.empty())
        then(natsOptions_SetUserCredentialsFromFiles(options, address.credentials.c_str(), nullptr));
    if (address.url.find("tls://") != std::string::npos || !address.authority.empty())
        then(natsOptions_SetSecure(options, true));
    if (!address.authority.empty())
        then(natsOptions_LoadCATrustedCertificates(options, address.authority.c_str()));
    if (!address.certificate.empty())
        then(natsOptions_LoadCertificatesChain(options, address.certificate.c_str(), address.key.c_str()));
    return status;
}

Outcome Engine::Impl::Connect(std::string& error) {
    natsOptions* made = nullptr;
    natsStatus status = natsOptions_Create(&made);
    const Options options(made);
    if (status == NATS_OK) status = Prepare(options.get());
    if (status != NATS_OK) {
        error = Bilingual("the engine's address or secrets cannot be used: %1",
                          "Adresse oder Geheimnisse der Engine sind nicht brauchbar: %1")
                    .With({Reason(status)});
        return Outcome::Failed;
    }
    for (const auto begin = Clock::now();;) {
        natsConnection* connected = nullptr;
        status = natsConnection_Connect(&connected, options.get());
        connection.reset(connected);
        if (status == NATS_OK) break;
        if (IsInterrupted()) return Outcome::Interrupted;
        if (IsRefusal(status) || status == NATS_SSL_ERROR || Clock::now() - begin > run.patience) {
            error = WhyNoConnection(run, status);
            return Outcome::Failed;
        }
        std::this_thread::sleep_for(POLL);
    }
    lastConnected = Clock::now();
    jsOptions wait;
    jsOptions_Init(&wait);
    wait.Wait = REQUEST_WAIT;
    jsCtx* js = nullptr;
    status = natsConnection_JetStream(&js, connection.get(), &wait);
    context.reset(js);
    if (status == NATS_OK) return Outcome::Done;
    error = Reason(status);
    return Outcome::Failed;
}

bool Engine::Impl::MayWait(std::string& error) {
    error.clear();
    if (IsInterrupted()) return false;
    const auto now = Clock::now();
    if (IsConnected()) lastConnected = now;
    if (now - lastConnected <= run.patience &&
        natsConnection_Status(connection.get()) != NATS_CONN_STATUS_CLOSED)
        return true;
    const char* text = nullptr;
    const natsStatus last = natsConnection_GetLastError(connection.get(), &text);
    error = WhyNoConnection(run, last == NATS_OK ? NATS_NO_SERVER : last);
    return false;
}

template <class Request>
Outcome Engine::Impl::Ask(Request request, natsStatus& status, std::string& error) {
    for (const auto begin = Clock::now();;) {
        status = request();
        const bool isLost =
            IsLoss(status) || (status != NATS_OK && status != NATS_NOT_FOUND && !IsConnected());
        if (!isLost) return Outcome::Done;
        if (!MayWait(error)) return Ended(error);
        if (Clock::now() - begin > run.patience) {
            error = Bilingual(
                        "the engine %1 has no JetStream, or does not answer for %2 s (%3); start nats-server "
                        "with "
                        "--jetstream",
                        "die Engine %1 hat kein JetStream oder antwortet seit %2 s nicht (%3); starten Sie "
                        "nats-server mit "
                        "--jetstream")
                        .With({run.address.url, Seconds(run.patience), Reason(status)});
            return Outcome::Failed;
        }
        std::this_thread::sleep_for(POLL);
    }
}

std::uint64_t Engine::Impl::Reconnects() const {
    natsStatistics* statistics = nullptr;
    std::uint64_t reconnects = 0;
    if (natsStatistics_Create(&statistics) != NATS_OK) return 0;
    if (natsConnection_GetStats(connection.get(), statistics) == NATS_OK)
        natsStatistics_GetCounts(statistics, nullptr, nullptr, nullptr, nullptr, &reconnects);
    natsStatistics_Destroy(statistics);
    return reconnects;
}

// What a stream of that name must have been made for.
std::string Engine::Impl::WhyNotThisRun(const jsStreamConfig& config) const {
    const std::string about = config.Description != nullptr ? config.Description : "";
    if (about.starts_with(run.digest + " ")) return "";
    const std::string other = about.substr(std::min(about.find(' ') + 1, about.size()));
    return Bilingual(
               "the engine has the run '%1' already, of another graph, version or other settings (%2; here: "
               "%3); give all "
               "places the same, or this run another name with name= in [engine], or forget the old one with "
               "--new-run",
               "die Engine hat den Lauf '%1' schon, mit anderem Graphen, anderer Version oder anderen "
               "Einstellungen (%2; "
               "hier: %3); geben Sie allen Orten dasselbe, diesem Lauf mit name= in [engine] einen anderen "
               "Namen, oder "
               "verwerfen Sie den alten mit --new-run")
        .With({run.name, other.empty() ? "?" : other, run.about});
}

Outcome Engine::Impl::MakeStream(std::string& error) {
    const std::string name = Stream();
    const std::string subject = "sigweave." + run.name + ".>";
    const std::string about = run.digest + " " + run.about;
    const char* subjects[] = {subject.c_str()};
    constexpr std::int64_t MOST_HEADERS = 4096;
    jsStreamConfig config;
    jsStreamConfig_Init(&config);
    config.Name = name.c_str();
    config.Description = about.c_str();
    config.Subjects = subjects;
    config.SubjectsLen = 1;
    config.Storage = js_FileStorage;
    config.Discard = js_DiscardNew;
    config.MaxBytes = run.keep;
    config.MaxMsgSize = static_cast<std::int32_t>(LARGEST_PIECE + MOST_HEADERS);
    config.Duplicates = 2 * 60 * SECOND;
    jsErrCode code = static_cast<jsErrCode>(0);
    natsStatus status = NATS_OK;
    const Outcome asked =
        Ask([&] { return js_AddStream(nullptr, context.get(), &config, nullptr, &code); }, status, error);
    if (asked != Outcome::Done || status == NATS_OK) return asked;
    error = Bilingual(
                "the engine did not make room for the run: %1; it was asked for keep=%2 bytes, write less in "
                "[engine]",
                "die Engine hat für den Lauf keinen Platz angelegt: %1; verlangt waren keep=%2 Byte, "
                "schreiben Sie weniger in [engine]")
                .With({Reason(status), std::to_string(run.keep)});
    return Outcome::Failed;
}

Outcome Engine::Impl::OpenStream(std::string& error) {
    const std::string name = Stream();
    natsStatus status = NATS_OK;
    jsErrCode code = static_cast<jsErrCode>(0);
    if (run.anew) {
        const Outcome asked =
            Ask([&] { return js_DeleteStream(context.get(), name.c_str(), nullptr, &code); }, status, error);
        if (asked != Outcome::Done) return asked;
    }
    for (int trial = 0;; ++trial) {
        jsStreamInfo* found = nullptr;
        const Outcome asked =
            Ask([&] { return js_GetStreamInfo(&found, context.get(), name.c_str(), nullptr, &code); }, status,
                error);
        const StreamInfo info(found);
        if (asked != Outcome::Done) return asked;
        if (status == NATS_OK) {
            error = WhyNotThisRun(*info->Config);
            return error.empty() ? Outcome::Done : Outcome::Failed;
        }
        if (code != NO_STREAM && status != NATS_NOT_FOUND) break;
        // Another place may make it at the same time, and of another graph: what is there then is looked at.
        const Outcome made = MakeStream(error);
        if (made == Outcome::Interrupted || (made == Outcome::Failed && trial > 0)) return made;
    }
    error = Bilingual("the engine %1: %2", "die Engine %1: %2").With({run.address.url, Reason(status)});
    return Outcome::Failed;
}

void Engine::Impl::BeHere() {
    const std::string subject = Here(run.place);
    std::unique_lock lock(mutex);
    while (!ends) {
        lock.unlock();
        natsConnection_Publish(connection.get(), subject.c_str(), nullptr, 0);
        lock.lock();
        wake.wait_for(lock, 500ms, [this] { return ends; });
    }
}

std::unique_ptr<Engine> Engine::Join(const EngineRun& run, std::string& error) {
    auto engine = std::make_unique<Engine>();
    engine->impl = std::make_unique<Impl>(run);
    error.clear();
    if (engine->impl->Connect(error) != Outcome::Done || engine->impl->OpenStream(error) != Outcome::Done)
        return nullptr;
    engine->impl->here = std::thread([impl = engine->impl.get()] { impl->BeHere(); });
    return engine;
}

Engine::~Engine() = default;

std::string WayName(const std::string& from, const std::string& to) {
    return from + "-" + to;
}

// --- Sending

namespace {

struct Pending {
    std::uint64_t number = 0;
    std::string subject;
    std::string piece;
    bool mustBeSent = true;
    Clock::time_point sent;
};

// What an outlet shares with the threads of the library, which may still call when it is gone.
struct Flight {
    std::mutex mutex;
    std::condition_variable landed;
    std::deque<Pending> pending;  // in the order of their numbers
    std::size_t bytes = 0;
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
    bytes -= found->piece.size();
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
    Context context;
    PieceMaker pieces;
    std::map<std::uint64_t, std::uint64_t> known;  // digests, by number, that the stream has
    std::uint64_t skipped = 0;                     // the first pieces, which it surely has
    std::uint64_t reconnects = 0;
    Clock::time_point lastRoom = Clock::now();

    Outcome FindKnown(const std::string& subject, std::string& error);
    bool IsAsBefore(std::string& error) const;
    void Publish(Pending& message);
    void PublishAgain(Clock::time_point now);
    Outcome WaitUntil(std::uint64_t after, std::size_t mostBytes, std::string& error);
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
    jsOptions options;
    jsOptions_Init(&options);
    options.Wait = REQUEST_WAIT;
    options.PublishAsync.AckHandler = OnAcknowledged;
    options.PublishAsync.AckHandlerClosure = reinterpret_cast<void*>(impl->id);
    jsCtx* context = nullptr;
    const natsStatus status = natsConnection_JetStream(&context, impl->engine.connection.get(), &options);
    impl->context.reset(context);
    if (status != NATS_OK) {
        error = Reason(status);
        return Outcome::Failed;
    }
    for (const std::string& line : impl->lines) {
        const Outcome found =
            impl->FindKnown(impl->engine.Subject(impl->to, impl->engine.run.place, line), error);
        if (found != Outcome::Done) return found;
    }
    const std::uint64_t last = impl->known.empty() ? 0 : impl->known.rbegin()->first;
    impl->skipped = last - std::min<std::uint64_t>(last, MOST_IN_FLIGHT);
    impl->reconnects = impl->engine.Reconnects();
    return Outcome::Done;
}

Outcome Outlet::Impl::FindKnown(const std::string& subject, std::string& error) {
    natsMsg* found = nullptr;
    natsStatus status = NATS_OK;
    jsErrCode code = static_cast<jsErrCode>(0);
    const Outcome asked = engine.Ask(
        [&] {
            return js_GetLastMsg(&found, context.get(), engine.Stream().c_str(), subject.c_str(), nullptr,
                                 &code);
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
                "with --new-run at "
                "all places",
                "%1 erzeugt andere Blöcke als zuvor in diesem Lauf: was es liest, hat sich geändert; "
                "beginnen Sie an allen "
                "Orten mit --new-run einen neuen Lauf")
                .With({engine.run.place});
    return false;
}

void Outlet::Impl::Publish(Pending& message) {
    const std::string messageId = WayName(engine.run.place, to) + "." + std::to_string(message.number);
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
    message.sent = Clock::now();
}

// What was refused, what the connection may have lost, and what nobody has answered for long. While the
// stream is full only the first is tried.
void Outlet::Impl::PublishAgain(Clock::time_point now) {
    const std::uint64_t count = engine.Reconnects();
    const bool isNew = count != std::exchange(reconnects, count);
    if (!engine.IsConnected()) return;
    const std::lock_guard lock(flight->mutex);
    for (Pending& message : flight->pending) {
        message.mustBeSent = message.mustBeSent || isNew || now - message.sent > RESEND_AFTER;
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
        const natsStatus status =
            js_GetConsumerInfo(&found, context.get(), engine.Stream().c_str(), way.c_str(), nullptr, &code);
        const ConsumerInfo info(found);
        if (status != NATS_OK) return false;
        if (info->NumPending == 0 && info->NumAckPending == 0) continue;
        taken = std::min(taken, info->AckFloor.Stream);
    }
    jsStreamInfo* found = nullptr;
    if (js_GetStreamInfo(&found, context.get(), engine.Stream().c_str(), nullptr, &code) != NATS_OK)
        return false;
    const StreamInfo info(found);
    const std::uint64_t first = info->State.FirstSeq, last = info->State.LastSeq;
    constexpr std::uint64_t SHARE = 8;  // of the stream, at once
    const std::uint64_t end = std::min({taken, last, first + (last - first) / SHARE});
    if (end < first || taken < first) return false;
    jsOptions options;
    jsOptions_Init(&options);
    options.Stream.Purge.Sequence = end + 1;
    return js_PurgeStream(context.get(), engine.Stream().c_str(), &options, &code) == NATS_OK;
}

std::string Outlet::Impl::SlowPlaces() const {
    std::string names;
    for (const std::string& way : allWays) {
        jsConsumerInfo* found = nullptr;
        jsErrCode code = static_cast<jsErrCode>(0);
        const natsStatus status =
            js_GetConsumerInfo(&found, context.get(), engine.Stream().c_str(), way.c_str(), nullptr, &code);
        const ConsumerInfo info(found);
        if (status == NATS_OK && info->NumPending == 0) continue;
        names += (names.empty() ? "" : ", ") + way.substr(way.find('-') + 1);
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

// Until all messages up to that one are acknowledged, and at most that many bytes are in flight.
Outcome Outlet::Impl::WaitUntil(std::uint64_t after, std::size_t mostBytes, std::string& error) {
    std::unique_lock lock(flight->mutex);
    const auto isDone = [&] {
        return flight->pending.empty() ||
               (flight->pending.front().number > after && flight->bytes <= mostBytes);
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
        if (!engine.IsConnected()) lastRoom = engine.IsInterrupted() ? lastRoom : now;
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
                            BYTES_IN_FLIGHT - std::min(piece.size(), BYTES_IN_FLIGHT), error);
        if (waited != Outcome::Done) return waited;
        const std::lock_guard lock(impl->flight->mutex);
        impl->flight->bytes += piece.size();
        Pending& message = impl->flight->pending.emplace_back();
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

// --- Receiving

struct Inlet::Impl {
    Impl(Engine::Impl& ofRun, std::string source) : engine(ofRun), from(std::move(source)) {}

    Engine::Impl& engine;
    std::string from;
    PieceOrder order;
    Subscription messages;
    Subscription presence;
    std::uint64_t nextSequence = 1;  // of the stream, from which on it is read again
    std::uint64_t reconnects = 0;
    std::uint64_t readAgain = 0;  // from this piece on, since then
    Clock::time_point firstAsked = Clock::now();
    int unacknowledged = 0;
    bool hasLost = false;  // the stream no longer has its first frames
    NatsMessage last;
    Clock::time_point lastHeard = Clock::now();
    Clock::time_point lastMessage = Clock::now();

    Outcome Subscribe(std::string& error);
    Outcome MakeConsumer(std::string& error);
    void Unsubscribe();
    Outcome Receive(std::string& error);
    Outcome Take(NatsMessage message, std::string& error);
    Outcome ReadAgain(std::string& error);
    Outcome BeIdle(std::string& error);
    bool IsStuck();
    void Acknowledge();
    void HearPresence();
    std::string WhyMissing() const;
    std::string WhyGone() const;
};

Inlet::Inlet(Engine& engine, std::string from) : impl(new Impl(*engine.impl, std::move(from))) {}

Inlet::~Inlet() {
    impl->Unsubscribe();
}

// The subscription is destroyed only when nothing comes to it any more.
void Inlet::Impl::Unsubscribe() {
    constexpr std::int64_t WAIT = 1000;
    last.reset();
    if (messages == nullptr) return;
    natsSubscription_DrainTimeout(messages.get(), WAIT);
    natsSubscription_WaitForDrainCompletion(messages.get(), 1);
    for (natsMsg* rest = nullptr; natsSubscription_NextMsg(&rest, messages.get(), 1) == NATS_OK;)
        natsMsg_Destroy(rest);
    natsSubscription_WaitForDrainCompletion(messages.get(), WAIT);
    messages.reset();
}

Outcome Inlet::Impl::MakeConsumer(std::string& error) {
    const std::string stream = engine.Stream();
    const std::string name = WayName(from, engine.run.place);
    const std::string filter = engine.Subject(engine.run.place, from, ">");
    jsErrCode code = static_cast<jsErrCode>(0);
    natsStatus status = NATS_OK;
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
    config.AckWait = 30 * SECOND;
    config.MaxAckPending = TAKEN_AT_ONCE;
    config.FilterSubject = filter.c_str();
    Outcome asked = engine.Ask(
        [&] { return js_DeleteConsumer(engine.context.get(), stream.c_str(), name.c_str(), nullptr, &code); },
        status, error);
    if (asked != Outcome::Done) return asked;
    asked = engine.Ask(
        [&] {
            return js_AddConsumer(nullptr, engine.context.get(), stream.c_str(), &config, nullptr, &code);
        },
        status, error);
    if (asked != Outcome::Done || status == NATS_OK) return asked;
    error = Reason(status);
    return Outcome::Failed;
}

// From the first frame that was not taken yet.
Outcome Inlet::Impl::Subscribe(std::string& error) {
    const std::string stream = engine.Stream();
    const std::string name = WayName(from, engine.run.place);
    const std::string filter = engine.Subject(engine.run.place, from, ">");
    Unsubscribe();
    reconnects = engine.Reconnects();
    const Outcome made = MakeConsumer(error);
    if (made != Outcome::Done) return made;
    jsSubOptions options;
    jsSubOptions_Init(&options);
    options.Stream = stream.c_str();
    options.Consumer = name.c_str();
    options.ManualAck = true;
    natsSubscription* subscribed = nullptr;
    jsErrCode code = static_cast<jsErrCode>(0);
    natsStatus status = NATS_OK;
    const Outcome asked = engine.Ask(
        [&] {
            return js_SubscribeSync(&subscribed, engine.context.get(), filter.c_str(), nullptr, &options,
                                    &code);
        },
        status, error);
    messages.reset(subscribed);
    if (asked != Outcome::Done) return asked;
    lastMessage = Clock::now();
    unacknowledged = 0;
    if (status == NATS_OK) {
        natsSubscription_SetPendingLimits(messages.get(), -1, -1);
        return Outcome::Done;
    }
    error = Reason(status);
    return Outcome::Failed;
}

Outcome Inlet::Begin(std::string& error) {
    Engine::Impl& engine = impl->engine;
    jsStreamInfo* found = nullptr;
    natsStatus status = NATS_OK;
    jsErrCode code = static_cast<jsErrCode>(0);
    const Outcome asked = engine.Ask(
        [&] {
            return js_GetStreamInfo(&found, engine.context.get(), engine.Stream().c_str(), nullptr, &code);
        },
        status, error);
    const StreamInfo info(found);
    if (asked != Outcome::Done) return asked;
    impl->hasLost = status == NATS_OK && info->State.FirstSeq > 1;
    natsSubscription* subscribed = nullptr;
    if (natsConnection_SubscribeSync(&subscribed, engine.connection.get(), engine.Here(impl->from).c_str()) ==
        NATS_OK)
        impl->presence.reset(subscribed);
    impl->lastHeard = Clock::now();
    return impl->Subscribe(error);
}

Outcome Inlet::Next(Unit& unit, std::string& error) {
    while (!impl->order.Take(unit)) {
        const Outcome received = impl->Receive(error);
        if (received != Outcome::Done) return received;
    }
    return Outcome::Done;
}

Outcome Inlet::Impl::Receive(std::string& error) {
    if (reconnects != engine.Reconnects() && engine.IsConnected()) {
        const Outcome subscribed = Subscribe(error);
        if (subscribed != Outcome::Done) return subscribed;
    }
    natsMsg* found = nullptr;
    natsStatus status = natsSubscription_NextMsg(&found, messages.get(), 1);
    if (status == NATS_TIMEOUT) {
        Acknowledge();
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
    last = std::move(message);
    if (++unacknowledged >= ACKNOWLEDGE_EVERY) Acknowledge();
    return Outcome::Done;
}

// What was lost on its way comes again. What the server itself has lost never does.
Outcome Inlet::Impl::ReadAgain(std::string& error) {
    const auto now = Clock::now();
    if (std::exchange(readAgain, order.First()) != order.First()) firstAsked = now;
    if (now - firstAsked <= engine.run.patience || !order.IsHolding()) return Subscribe(error);
    error = Bilingual(
                "the engine %1 has lost message %2 of the run from %3 to %4, perhaps when its power failed; "
                "begin a new "
                "run with --new-run at all places, and keep replicas on several servers",
                "die Engine %1 hat die Nachricht %2 des Laufs von %3 an %4 verloren, vielleicht bei einem "
                "Stromausfall; "
                "beginnen Sie an allen Orten mit --new-run einen neuen Lauf, und halten Sie Kopien auf "
                "mehreren Servern")
                .With({engine.run.address.url, std::to_string(order.First()), from, engine.run.place});
    return Outcome::Failed;
}

// All up to the last one.
void Inlet::Impl::Acknowledge() {
    if (last == nullptr || unacknowledged == 0) return;
    natsMsg_Ack(last.get(), nullptr);
    last.reset();
    unacknowledged = 0;
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
    const natsStatus status = js_GetConsumerInfo(&found, engine.context.get(), engine.Stream().c_str(),
                                                 WayName(from, engine.run.place).c_str(), nullptr, &code);
    const ConsumerInfo info(found);
    if (status != NATS_OK) return code == NO_CONSUMER || status == NATS_NOT_FOUND;
    return info->NumPending > 0 || info->NumAckPending > 0 || !info->PushBound;
}

Outcome Inlet::Impl::BeIdle(std::string& error) {
    if (!engine.MayWait(error)) return Engine::Impl::Ended(error);
    const auto now = Clock::now();
    HearPresence();
    if (!engine.IsConnected()) {
        lastHeard = now;
        return Outcome::Done;
    }
    if (now - lastMessage > 1s) {
        lastMessage = now;
        if (hasLost && order.First() == 1 && order.IsHolding()) {
            error = WhyGone();
            return Outcome::Failed;
        }
        if (IsStuck()) return ReadAgain(error);
    }
    if (now - lastHeard <= engine.run.patience) return Outcome::Done;
    error = WhyMissing();
    return Outcome::Failed;
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

std::string Inlet::Impl::WhyGone() const {
    return Bilingual(
               "the engine no longer has the first blocks from %1, for the run has more than keep=%2 bytes: "
               "%3 cannot begin "
               "again; begin a new run with --new-run at all places, and raise keep= in [engine]",
               "die Engine hat die ersten Blöcke von %1 nicht mehr, denn der Lauf hat mehr als keep=%2 Byte: "
               "%3 kann nicht "
               "von vorn beginnen; beginnen Sie an allen Orten mit --new-run einen neuen Lauf, und erhöhen "
               "Sie keep= in "
               "[engine]")
        .With({from, std::to_string(engine.run.keep), engine.run.place});
}

}  // namespace host::engine
