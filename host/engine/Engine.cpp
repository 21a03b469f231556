#include <algorithm>
#include <sstream>
#include <utility>

#include "host/engine/EngineImpl.h"
#include "host/engine/FramePieces.h"

namespace host::engine {
namespace {

using tc::Bilingual;

constexpr int NO_PEERS = 10005;
constexpr int NO_STREAM = 10059;
constexpr std::int64_t SECOND = 1'000'000'000;  // nanoseconds, in configurations

// The description of a stream: the run's digest, the number of its first message, and what people read.
struct StreamDescription {
    std::string digest;
    std::uint64_t firstMessage = 1;
    std::string about;

    static StreamDescription Read(const std::string& text) {
        StreamDescription read;
        std::istringstream words(text);
        words >> read.digest >> read.firstMessage >> std::ws;
        std::getline(words, read.about);
        return read;
    }
    std::string Text() const { return digest + " " + std::to_string(firstMessage) + " " + about; }
};

// What a run asks of its stream. Points into itself.
class StreamRequest {
 public:
    StreamRequest(const EngineRun& run, const std::string& streamName, std::uint64_t firstMessage)
        : name(streamName),
          subject("sigweave." + run.name + ".>"),
          about(StreamDescription{run.digest, firstMessage, run.about}.Text()) {
        constexpr std::int64_t MOST_HEADERS = 4096;
        jsStreamConfig_Init(&config);
        config.Name = name.c_str();
        config.Description = about.c_str();
        config.Subjects = subjects;
        config.SubjectsLen = 1;
        config.Storage = js_FileStorage;
        config.Discard = js_DiscardNew;
        config.MaxBytes = run.keep;
        config.Replicas = run.replicas;
        config.MaxMsgSize = static_cast<std::int32_t>(LARGEST_PIECE + MOST_HEADERS);
        config.Duplicates = 2 * 60 * SECOND;
    }
    StreamRequest(const StreamRequest&) = delete;
    StreamRequest& operator=(const StreamRequest&) = delete;
    jsStreamConfig* Get() { return &config; }

 private:
    const std::string name, subject, about;
    const char* subjects[1] = {subject.c_str()};
    jsStreamConfig config;
};

std::string WhyNoConnection(const EngineRun& run, const EngineConnection::Failure& failure) {
    if (failure.IsOfUser())
        return Bilingual(
                   "the engine %1 refuses this user: set SIGWEAVE_ENGINE_USER and _PASSWORD, _TOKEN or "
                   "_CREDENTIALS as "
                   "its administrator says",
                   "die Engine %1 lehnt diesen Benutzer ab: setzen Sie SIGWEAVE_ENGINE_USER und _PASSWORD, "
                   "_TOKEN oder "
                   "_CREDENTIALS nach Angabe ihres Verwalters")
            .With({run.address.url});
    if (failure.status == NATS_SECURE_CONNECTION_WANTED)
        return Bilingual(
                   "the engine %1 has no TLS; write nats:// in place of tls:// and name no "
                   "SIGWEAVE_ENGINE_CA, "
                   "or let its administrator set it up",
                   "die Engine %1 hat kein TLS; schreiben Sie nats:// statt tls:// und nennen Sie kein "
                   "SIGWEAVE_ENGINE_CA, oder lassen Sie es von ihrem Verwalter einrichten")
            .With({run.address.url});
    // A server that wants this one's certificate only ends the connection.
    const bool isEnded = failure.status == NATS_PROTOCOL_ERROR && run.address.url.starts_with("tls://");
    if (failure.IsOfCertificate() || isEnded)
        return Bilingual(
                   "the engine %1: its certificate or this one's is refused (%2); name the authority with "
                   "SIGWEAVE_ENGINE_CA, and check tls:// and the host's name",
                   "die Engine %1: ihr Zertifikat oder das eigene wird abgelehnt (%2); nennen Sie die "
                   "Zertifizierungsstelle "
                   "mit SIGWEAVE_ENGINE_CA, und prüfen Sie tls:// und den Namen des Rechners")
            .With({run.address.url, failure.reason});
    if (failure.IsFinal())
        return Bilingual("the engine's address or secrets cannot be used: %1",
                         "Adresse oder Geheimnisse der Engine sind nicht brauchbar: %1")
            .With({failure.reason});
    return Bilingual(
               "the engine %1 has not answered for %2 s (%3); start nats-server there with JetStream, or "
               "name another "
               "one with --engine",
               "die Engine %1 antwortet seit %2 s nicht (%3); starten Sie dort nats-server mit JetStream, "
               "oder nennen Sie "
               "mit --engine eine andere")
        .With({run.address.url, Seconds(run.patience), failure.reason.empty() ? "-" : failure.reason});
}

std::string WhyNoRoom(const EngineRun& run, natsStatus status) {
    return Bilingual(
               "the engine did not make room for the run: %1; it was asked for keep=%2 bytes and "
               "replicas=%3: write less in [engine], or delete the streams of old runs, which keep theirs",
               "die Engine hat für den Lauf keinen Platz angelegt: %1; verlangt waren keep=%2 Byte und "
               "replicas=%3: schreiben Sie weniger in [engine], oder löschen Sie die Ströme alter Läufe, "
               "die ihren behalten")
        .With({Reason(status), std::to_string(run.keep), std::to_string(run.replicas)});
}

}  // namespace

std::string Seconds(std::chrono::milliseconds time) {
    return std::to_string((time.count() + 999) / 1000);
}

void Engine::Impl::TellWait(const std::string& what, Clock::time_point since) {
    constexpr auto UNTOLD = 1500ms;
    if (run.onWait && Clock::now() - since > UNTOLD && told.insert(what).second) run.onWait(what);
}

Outcome Engine::Impl::Connect(std::string& error) {
    for (const auto begin = Clock::now(); MayWait(error);) {
        if (wire != nullptr) return Outcome::Done;
        TellWait(run.address.url, begin);
        Pause();
    }
    return Ended(error);
}

bool Engine::Impl::MayWait(std::string& error) {
    error.clear();
    std::shared_ptr<Wire> current = connection.Current();
    if (current != nullptr) wire = std::move(current);
    if (wire != nullptr && !IsConnected()) connection.Drop(wire->number);
    if (IsInterrupted()) return false;
    if (IsUp()) return true;
    const EngineConnection::Failure failure = connection.LastFailure();
    if (!failure.IsFinal() && connection.Silence() <= run.patience) return true;
    error = WhyNoConnection(run, failure);
    return false;
}

// What a stream of that name must have been made for.
std::string Engine::Impl::WhyNotThisRun(const std::string& about) const {
    const StreamDescription found = StreamDescription::Read(about);
    if (found.digest == run.digest) return "";
    const std::string& other = found.about;
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
    StreamRequest request(run, Stream(), 1);
    jsErrCode code = static_cast<jsErrCode>(0);
    natsStatus status = NATS_OK;
    // Servers of a cluster that have just been started do not know each other yet.
    for (const auto begin = Clock::now();; Pause()) {
        const Outcome asked = Ask(
            [&] { return js_AddStream(nullptr, JetStream(), request.Get(), nullptr, &code); }, status, error);
        if (asked != Outcome::Done || status == NATS_OK) return asked;
        if (code != NO_PEERS || Clock::now() - begin > run.patience) break;
        if (!MayWait(error)) return Ended(error);
    }
    error = WhyNoRoom(run, status);
    return Outcome::Failed;
}

// For a new run. The stream is not deleted and made anew: while another place opens it, a server (2.9.10)
// then takes messages into one that nobody reads. But with another number of replicas it is, for a single
// server refuses these only then.
Outcome Engine::Impl::EmptyStream(const jsStreamInfo& info, std::string& error) {
    const std::string name = Stream();
    const jsStreamState& state = info.State;
    const bool isKept = info.Config->Replicas == run.replicas;
    StreamRequest request(run, name, state.LastSeq + 1);
    jsOptions upTo;
    jsOptions_Init(&upTo);
    upTo.Stream.Purge.Sequence = state.LastSeq + 1;
    natsStatus status = NATS_OK;
    jsErrCode code = static_cast<jsErrCode>(0);
    const Outcome asked = Ask(
        [&] {
            if (!isKept) return js_DeleteStream(JetStream(), name.c_str(), nullptr, &code);
            const natsStatus purged =
                state.LastSeq > 0 ? js_PurgeStream(JetStream(), name.c_str(), &upTo, &code) : NATS_OK;
            if (purged != NATS_OK) return purged;
            return js_UpdateStream(nullptr, JetStream(), request.Get(), nullptr, &code);
        },
        status, error);
    if (asked != Outcome::Done || status == NATS_OK) return asked;
    error = WhyNoRoom(run, status);
    return Outcome::Failed;
}

Outcome Engine::Impl::OpenStream(std::string& error) {
    const std::string name = Stream();
    natsStatus status = NATS_OK;
    jsErrCode code = static_cast<jsErrCode>(0);
    bool isOld = run.anew;
    for (int trial = 0;; ++trial) {
        jsStreamInfo* found = nullptr;
        const Outcome asked =
            Ask([&] { return js_GetStreamInfo(&found, JetStream(), name.c_str(), nullptr, &code); }, status,
                error);
        const StreamInfo info(found);
        if (asked != Outcome::Done) return asked;
        if (status == NATS_OK && std::exchange(isOld, false)) {
            const Outcome emptied = EmptyStream(*info, error);
            if (emptied != Outcome::Done) return emptied;
            continue;
        }
        isOld = false;
        if (status == NATS_OK) {
            const std::string about = info->Config->Description != nullptr ? info->Config->Description : "";
            firstMessage = StreamDescription::Read(about).firstMessage;
            error = WhyNotThisRun(about);
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

std::unique_ptr<Engine> Engine::Join(const EngineRun& run, std::string& error) {
    auto engine = std::make_unique<Engine>();
    engine->impl = std::make_unique<Impl>(run);
    error.clear();
    if (engine->impl->Connect(error) != Outcome::Done || engine->impl->OpenStream(error) != Outcome::Done)
        return nullptr;
    return engine;
}

Engine::~Engine() = default;

std::string WayName(const std::string& from, const std::string& to) {
    return from + "-" + to;
}

}  // namespace host::engine
