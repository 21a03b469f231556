// How fast blocks of 8 KiB go through the engine, against the bare client library with the same server,
// message size and file store, in turns: messages a second into the stream and acknowledged, and the time
// from sending one to having it. docs/machines.md has the figures.
#include <nats/nats.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "host/engine/Engine.h"
#include "tests/host/engine/NatsServer.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace host::engine;

constexpr int MESSAGES = 20000, SINGLE = 2000, TURNS = 3;
constexpr std::size_t BLOCK = 8192;

double Since(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

double Median(std::vector<double> values) {
    std::ranges::sort(values);
    return values[values.size() / 2];
}

EngineRun RunAt(const NatsServer& server, const char* place, int turn) {
    EngineRun run;
    run.address.url = server.Url();
    run.name = "turn" + std::to_string(turn);
    run.digest = "1";
    run.place = place;
    run.keep = 256 << 20;
    return run;
}

Unit BlockOf() {
    return {Unit::Block, false, 0, 0, std::string(BLOCK, 'x')};
}

// Megabytes a second.
double SendOurs(const NatsServer& server, int turn) {
    std::string error;
    const auto engine = Engine::Join(RunAt(server, "a", turn), error);
    Outlet outlet(*engine, "b", {0}, {WayName("a", "b")});
    const Unit unit = BlockOf();
    outlet.Begin(error);
    const auto begin = Clock::now();
    for (int i = 0; i < MESSAGES; ++i) outlet.Send(unit, error);
    outlet.Finish(error);
    if (!error.empty()) std::fprintf(stderr, "%s\n", error.c_str());
    return MESSAGES * BLOCK / Since(begin) / 1e6;
}

struct Bare {
    natsConnection* connection = nullptr;
    jsCtx* js = nullptr;
    explicit Bare(const NatsServer& server) {
        natsConnection_ConnectTo(&connection, server.Url().c_str());
        jsOptions options;
        jsOptions_Init(&options);
        options.PublishAsync.MaxPending = 256;
        options.PublishAsync.StallWait = 10000;
        natsConnection_JetStream(&js, connection, &options);
    }
    ~Bare() {
        jsCtx_Destroy(js);
        natsConnection_Destroy(connection);
    }
};

double SendBare(const NatsServer& server, int turn) {
    Bare bare(server);
    const std::string name = "bare" + std::to_string(turn);
    const char* subjects[] = {name.c_str()};
    jsStreamConfig config;
    jsStreamConfig_Init(&config);
    config.Name = name.c_str();
    config.Subjects = subjects;
    config.SubjectsLen = 1;
    jsErrCode code{};
    js_AddStream(nullptr, bare.js, &config, nullptr, &code);
    const std::string body(BLOCK, 'x');
    const auto begin = Clock::now();
    for (int i = 0; i < MESSAGES; ++i)
        js_PublishAsync(bare.js, name.c_str(), body.data(), static_cast<int>(body.size()), nullptr);
    js_PublishAsyncComplete(bare.js, nullptr);
    return MESSAGES * BLOCK / Since(begin) / 1e6;
}

// Microseconds, the median of one after the other.
double DelayBare(const NatsServer& server) {
    Bare bare(server);
    natsSubscription* subscription = nullptr;
    natsConnection_SubscribeSync(&subscription, bare.connection, "bare.one");
    const std::string body(BLOCK, 'x');
    std::vector<double> delays;
    for (int i = 0; i < SINGLE; ++i) {
        const auto begin = Clock::now();
        natsMsg* message = nullptr;
        natsConnection_Publish(bare.connection, "bare.one", body.data(), static_cast<int>(body.size()));
        natsSubscription_NextMsg(&message, subscription, 1000);
        delays.push_back(Since(begin) * 1e6);
        natsMsg_Destroy(message);
    }
    natsSubscription_Destroy(subscription);
    return Median(delays);
}

double DelayOurs(const NatsServer& server, int turn) {
    std::string error, other;
    const auto sending = Engine::Join(RunAt(server, "a", turn), error);
    const auto receiving = Engine::Join(RunAt(server, "b", turn), error);
    Outlet outlet(*sending, "b", {0}, {WayName("a", "b")});
    Inlet inlet(*receiving, "a");
    outlet.Begin(error);
    inlet.Begin(error);
    const Unit unit = BlockOf();
    Unit got;
    std::vector<double> delays;
    for (int i = 0; i < SINGLE; ++i) {
        const auto begin = Clock::now();
        outlet.Send(unit, error);
        inlet.Next(got, other);
        delays.push_back(Since(begin) * 1e6);
    }
    return Median(delays);
}

}  // namespace

int main() {
    if (!NatsServer::IsThere()) return 77;
    const NatsServer server;
    std::vector<double> ours, bare, delays, bareDelays;
    for (int turn = 0; turn < TURNS; ++turn) {
        bare.push_back(SendBare(server, turn));
        ours.push_back(SendOurs(server, turn));
        bareDelays.push_back(DelayBare(server));
        delays.push_back(DelayOurs(server, TURNS + turn));
    }
    std::printf("into the stream: %.0f MB/s, bare library %.0f MB/s, ratio %.2f\n", Median(ours),
                Median(bare), Median(ours) / Median(bare));
    std::printf("one block: %.0f us, bare publish and subscribe %.0f us, ratio %.2f\n", Median(delays),
                Median(bareDelays), Median(delays) / Median(bareDelays));
    return 0;
}
