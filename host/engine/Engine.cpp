#include <algorithm>
#include <utility>

#include "host/engine/EngineImpl.h"
#include "host/engine/FramePieces.h"

namespace host::engine {
namespace {

using tc::Bilingual;

constexpr int NO_PEERS = 10005;
constexpr int NO_STREAM = 10059;
constexpr std::int64_t SECOND = 1'000'000'000;  // nanoseconds, in configurations

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
    // A server that wants this one's certificate only ends the connection.
    const bool isEnded = failure.status == NATS_PROTOCOL_ERROR && run.address.url.starts_with("tls://");
    if (failure.IsOfCertificate() || isEnded || failure.status == NATS_SECURE_CONNECTION_REQUIRED ||
        failure.status == NATS_SECURE_CONNECTION_WANTED)
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

}  // namespace

std::string Seconds(std::chrono::milliseconds time) {
    return std::to_string((time.count() + 999) / 1000);
}

Outcome Engine::Impl::Connect(std::string& error) {
    while (MayWait(error)) {
        if (wire != nullptr) return Outcome::Done;
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
    config.Replicas = run.replicas;
    config.MaxMsgSize = static_cast<std::int32_t>(LARGEST_PIECE + MOST_HEADERS);
    config.Duplicates = 2 * 60 * SECOND;
    jsErrCode code = static_cast<jsErrCode>(0);
    natsStatus status = NATS_OK;
    // Servers of a cluster that have just been started do not know each other yet.
    for (const auto begin = Clock::now();; Pause()) {
        const Outcome asked =
            Ask([&] { return js_AddStream(nullptr, JetStream(), &config, nullptr, &code); }, status, error);
        if (asked != Outcome::Done || status == NATS_OK) return asked;
        if (code != NO_PEERS || Clock::now() - begin > run.patience) break;
        if (!MayWait(error)) return Ended(error);
    }
    error =
        Bilingual(
            "the engine did not make room for the run: %1; it was asked for keep=%2 bytes and replicas=%3, "
            "write less in [engine]",
            "die Engine hat für den Lauf keinen Platz angelegt: %1; verlangt waren keep=%2 Byte und "
            "replicas=%3, schreiben Sie weniger in [engine]")
            .With({Reason(status), std::to_string(run.keep), std::to_string(run.replicas)});
    return Outcome::Failed;
}

Outcome Engine::Impl::OpenStream(std::string& error) {
    const std::string name = Stream();
    natsStatus status = NATS_OK;
    jsErrCode code = static_cast<jsErrCode>(0);
    if (run.anew) {
        const Outcome asked =
            Ask([&] { return js_DeleteStream(JetStream(), name.c_str(), nullptr, &code); }, status, error);
        if (asked != Outcome::Done) return asked;
    }
    for (int trial = 0;; ++trial) {
        jsStreamInfo* found = nullptr;
        const Outcome asked =
            Ask([&] { return js_GetStreamInfo(&found, JetStream(), name.c_str(), nullptr, &code); }, status,
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
