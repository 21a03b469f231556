#include <algorithm>
#include <iterator>
#include <vector>

#include "host/engine/EngineImpl.h"

namespace host::engine {
namespace {

using tc::Bilingual;

constexpr int NO_STREAM = 10059;
constexpr std::int64_t SECOND = 1'000'000'000;  // nanoseconds, in configurations

bool IsRefusal(natsStatus status) {
    return status == NATS_CONNECTION_AUTH_FAILED || status == NATS_NOT_PERMITTED;
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

bool IsLoss(natsStatus status) {
    constexpr natsStatus LOSSES[] = {
        NATS_TIMEOUT,          NATS_CONNECTION_DISCONNECTED, NATS_CONNECTION_CLOSED,   NATS_NO_RESPONDERS,
        NATS_IO_ERROR,         NATS_STALE_CONNECTION,        NATS_INSUFFICIENT_BUFFER, NATS_NO_SERVER,
        NATS_NOT_YET_CONNECTED};
    return std::ranges::find(LOSSES, status) != std::end(LOSSES);
}

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

}  // namespace host::engine
