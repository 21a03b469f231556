// How fast do blocks of 8 KiB go to another place, against the bare client library with the same server,
// message size and file store: into the stream until all are acknowledged, and from sending one to having it?
// And what does a message cost the servers of a cluster, in processor time?
#include <benchmark/benchmark.h>
#include <nats/nats.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

#include "host/engine/Inlet.h"
#include "host/engine/Outlet.h"
#include "tests/host/engine/NatsServer.h"

namespace {

using namespace host::engine;

constexpr int MESSAGES = 2000;  // in an iteration
constexpr std::size_t BLOCK = 8192;

// One for all cases; null where there is none.
NatsServer* Server() {
    static const std::unique_ptr<NatsServer> server =
        NatsServer::IsThere() ? std::make_unique<NatsServer>() : nullptr;
    return server.get();
}

bool IsMissing(benchmark::State& state) {
    if (Server() == nullptr) state.SkipWithError("there is no nats-server");
    return Server() == nullptr;
}

double Since(std::chrono::steady_clock::time_point begin) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

EngineRun RunAt(const char* place, bool anew) {
    EngineRun run;
    run.address.url = Server()->Url();
    run.name = "bench";
    run.digest = "1";
    run.place = place;
    run.patience = std::chrono::seconds(60);
    run.keep = std::int64_t{1} << 30;
    run.anew = anew;
    return run;
}

Unit BlockOf() {
    return {Unit::Block, false, 0, 0, std::string(BLOCK, 'x')};
}

void BM_Machines_Send(benchmark::State& state) {
    if (IsMissing(state)) return;
    const Unit unit = BlockOf();
    std::string error;
    for (auto _ : state) {
        const auto engine = Engine::Join(RunAt("a", true), error);
        if (engine == nullptr) break;
        Outlet outlet(*engine, "b", {0}, {WayName("a", "b")});
        outlet.Begin(error);
        const auto begin = std::chrono::steady_clock::now();
        for (int i = 0; i < MESSAGES; ++i) outlet.Send(unit, error);
        outlet.Finish(error);
        state.SetIterationTime(Since(begin));
    }
    if (!error.empty()) state.SkipWithError(error.c_str());
    state.SetItemsProcessed(state.iterations() * MESSAGES);
}

// Until the server has all of them.
void SendAll(const EngineRun& run, std::string& error) {
    const auto engine = Engine::Join(run, error);
    if (engine == nullptr) return;
    Outlet outlet(*engine, "b", {0}, {WayName("a", "b")});
    outlet.Begin(error);
    for (int i = 0; i < MESSAGES; ++i) outlet.Send(BlockOf(), error);
    outlet.Finish(error);
}

// The processor time of all three servers of a cluster for a message of which they keep that many copies, and
// of the one that has most to do.
void BM_Machines_ServerTime(benchmark::State& state) {
    if (std::getenv("SIGWEAVE_BENCH_BRIEF") != nullptr || !NatsServer::IsThere())
        return state.SkipWithError("there is no cluster");
    static NatsCluster cluster;
    std::string error;
    double busiest = 0.0;
    for (auto _ : state) {
        EngineRun run = RunAt("a", true);
        run.address.url = cluster.Urls();
        run.replicas = static_cast<int>(state.range(0));
        Engine::Join(run, error);  // the choice of a leader does not count
        std::vector<double> before;
        for (int server = 0; server < cluster.Size(); ++server)
            before.push_back(cluster.At(server).ProcessorSeconds());
        run.anew = false;
        SendAll(run, error);
        double sum = 0.0, most = 0.0;
        for (int server = 0; server < cluster.Size(); ++server) {
            const double spent =
                cluster.At(server).ProcessorSeconds() - before[static_cast<std::size_t>(server)];
            sum += spent;
            most = std::max(most, spent);
        }
        busiest += most;
        state.SetIterationTime(sum);
    }
    if (!error.empty()) state.SkipWithError(error.c_str());
    state.SetItemsProcessed(state.iterations() * MESSAGES);
    state.counters["busiest us"] = 1e6 * busiest / static_cast<double>(state.iterations() * MESSAGES);
}

struct Bare {
    natsConnection* connection = nullptr;
    jsCtx* js = nullptr;
    Bare() {
        natsConnection_ConnectTo(&connection, Server()->Url().c_str());
        jsOptions options;
        jsOptions_Init(&options);
        options.PublishAsync.MaxPending = MOST_IN_FLIGHT;
        options.PublishAsync.StallWait = 10000;
        natsConnection_JetStream(&js, connection, &options);
    }
    ~Bare() {
        jsCtx_Destroy(js);
        natsConnection_Destroy(connection);
    }

    void MakeStream() const {
        const char* subjects[] = {"bare"};
        jsStreamConfig config;
        jsStreamConfig_Init(&config);
        config.Name = "bare";
        config.Subjects = subjects;
        config.SubjectsLen = 1;
        jsErrCode code{};
        js_DeleteStream(js, config.Name, nullptr, &code);
        js_AddStream(nullptr, js, &config, nullptr, &code);
    }
};

void BM_Machines_SendBare(benchmark::State& state) {
    if (IsMissing(state)) return;
    const Bare bare;
    const std::string body(BLOCK, 'x');
    bool isSent = true;
    for (auto _ : state) {
        bare.MakeStream();
        const auto begin = std::chrono::steady_clock::now();
        for (int i = 0; i < MESSAGES; ++i)
            isSent = js_PublishAsync(bare.js, "bare", body.data(), static_cast<int>(body.size()), nullptr) ==
                         NATS_OK &&
                     isSent;
        isSent = js_PublishAsyncComplete(bare.js, nullptr) == NATS_OK && isSent;
        state.SetIterationTime(Since(begin));
    }
    if (!isSent) state.SkipWithError("not all was sent");
    state.SetItemsProcessed(state.iterations() * MESSAGES);
}

void BM_Machines_Delay(benchmark::State& state) {
    if (IsMissing(state)) return;
    std::string error, other;
    const auto sending = Engine::Join(RunAt("a", true), error);
    const auto receiving = Engine::Join(RunAt("b", false), other);
    if (sending == nullptr || receiving == nullptr) return state.SkipWithError((error + other).c_str());
    Outlet outlet(*sending, "b", {0}, {WayName("a", "b")});
    Inlet inlet(*receiving, "a");
    outlet.Begin(error);
    inlet.Begin(other);
    const Unit unit = BlockOf();
    Unit got;
    for (auto _ : state) {
        outlet.Send(unit, error);
        inlet.Next(got, other);
    }
    if (got.bytes != unit.bytes) state.SkipWithError("the block was lost");
}

void BM_Machines_DelayBare(benchmark::State& state) {
    if (IsMissing(state)) return;
    const Bare sending, receiving;
    natsSubscription* subscription = nullptr;
    natsConnection_SubscribeSync(&subscription, receiving.connection, "bare.one");
    natsConnection_Flush(receiving.connection);
    const std::string body(BLOCK, 'x');
    bool isHere = true;
    for (auto _ : state) {
        natsMsg* message = nullptr;
        natsConnection_Publish(sending.connection, "bare.one", body.data(), static_cast<int>(body.size()));
        isHere = natsSubscription_NextMsg(&message, subscription, 1000) == NATS_OK && isHere;
        natsMsg_Destroy(message);
    }
    if (!isHere) state.SkipWithError("a message was lost");
    natsSubscription_Destroy(subscription);
}

BENCHMARK(BM_Machines_ServerTime)->Arg(1)->Arg(3)->UseManualTime();
BENCHMARK(BM_Machines_Send)->UseManualTime();
BENCHMARK(BM_Machines_SendBare)->UseManualTime();
BENCHMARK(BM_Machines_Delay)->UseRealTime();
BENCHMARK(BM_Machines_DelayBare)->UseRealTime();

}  // namespace
