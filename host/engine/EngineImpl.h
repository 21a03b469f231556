#pragma once

#include <chrono>
#include <memory>
#include <set>
#include <string>

#include "host/engine/Engine.h"
#include "host/engine/EngineConnection.h"
#include "host/engine/NatsObjects.h"
#include "sigweave/services/Bilingual.h"

// What the connection, the sending and the receiving side share; only their sources include it.
namespace host::engine {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

inline constexpr std::int64_t REQUEST_WAIT = 2000;  // ms
inline constexpr auto POLL = 100ms;

std::string Seconds(std::chrono::milliseconds time);

struct Engine::Impl {
    explicit Impl(const EngineRun& engineRun)
        : run(engineRun), connection(run.address, "sigweave " + run.place, Here(run.place)) {}

    Outcome Connect(std::string& error);
    Outcome OpenStream(std::string& error);
    Outcome MakeStream(std::string& error);
    Outcome EmptyStream(const jsStreamInfo& info, std::string& error);
    std::string WhyNotThisRun(const std::string& about) const;
    // Whether to wait on; `error` says why not, and stays empty after an interruption. Takes a new connection
    // when there is one.
    bool MayWait(std::string& error);
    void TellWait(const std::string& what, Clock::time_point since);
    // Until something may be different.
    void Pause() const { connection.WaitForOther(Number(), POLL); }
    bool IsInterrupted() const { return run.interruption != nullptr && run.interruption->IsRaised(); }
    bool IsConnected() const {
        return wire != nullptr && natsConnection_Status(wire->connection.get()) == NATS_CONN_STATUS_CONNECTED;
    }
    // Connected with a server that answers.
    bool IsUp() const { return IsConnected() && connection.Silence() < QUIET; }
    // Of the connection that is used; what was made on another one is gone.
    std::uint64_t Number() const { return wire != nullptr ? wire->number : 0; }
    jsCtx* JetStream() const { return wire->context.get(); }
    // The outcome of an operation for which `MayWait` was false.
    static Outcome Ended(const std::string& error) {
        return error.empty() ? Outcome::Interrupted : Outcome::Failed;
    }
    // Tries until it is neither a lost connection nor a timeout.
    template <class Request>
    Outcome Ask(Request request, natsStatus& status, std::string& error);
    std::string Stream() const { return "sigweave-" + run.name; }
    std::string Subject(const std::string& to, const std::string& from, const std::string& line) const {
        return "sigweave." + run.name + "." + to + "." + from + "." + line;
    }
    std::string Here(const std::string& place) const { return "sigweave-here." + run.name + "." + place; }

    static constexpr auto QUIET = 2s;

    const EngineRun run;
    EngineConnection connection;
    std::shared_ptr<Wire> wire;      // after `Connect` never null, but perhaps broken
    std::set<std::string> told;      // that it is waited for
    std::uint64_t firstMessage = 1;  // of the run, in the stream
};

template <class Request>
Outcome Engine::Impl::Ask(Request request, natsStatus& status, std::string& error) {
    for (const auto begin = Clock::now();;) {
        status = request();
        const bool isLost = IsLoss(status) || IsElection(status) ||
                            (status != NATS_OK && status != NATS_NOT_FOUND && !IsConnected());
        if (!isLost) return Outcome::Done;
        if (!MayWait(error)) return Ended(error);
        if (Clock::now() - begin > run.patience) {
            error = tc::Bilingual(
                        "the engine %1 has no JetStream, or does not answer for %2 s (%3); start nats-server "
                        "with "
                        "--jetstream",
                        "die Engine %1 hat kein JetStream oder antwortet seit %2 s nicht (%3); starten Sie "
                        "nats-server mit "
                        "--jetstream")
                        .With({run.address.url, Seconds(run.patience), Reason(status)});
            return Outcome::Failed;
        }
        Pause();
    }
}

}  // namespace host::engine
