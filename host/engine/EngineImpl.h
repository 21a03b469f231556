#pragma once

#include <nats/nats.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "host/engine/Engine.h"
#include "sigweave/services/Bilingual.h"

// What the connection, the sending and the receiving side share; only their sources include it.
namespace host::engine {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

inline constexpr std::int64_t REQUEST_WAIT = 2000;  // ms
inline constexpr auto POLL = 100ms;

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

// The library's own words.
std::string Reason(natsStatus status);
std::string Seconds(std::chrono::milliseconds time);
// Of a message, as long as it lives.
std::string_view Data(natsMsg* message);
// Whether a broken connection made that of a request.
bool IsLoss(natsStatus status);

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

template <class Request>
Outcome Engine::Impl::Ask(Request request, natsStatus& status, std::string& error) {
    for (const auto begin = Clock::now();;) {
        status = request();
        const bool isLost =
            IsLoss(status) || (status != NATS_OK && status != NATS_NOT_FOUND && !IsConnected());
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
        std::this_thread::sleep_for(POLL);
    }
}

}  // namespace host::engine
