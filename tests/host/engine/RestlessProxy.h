#pragma once

#include <atomic>
#include <cstdint>
#include <random>
#include <thread>

// Passes connections on to a server on the loopback interface, and does to them what bad networks do: it
// holds bytes back for up to half a second, and resets connections after part of what was to be passed on, in
// the middle of messages. After a number of resets it makes no more, and without any it is calm. Which and
// when follows from the seed and the bytes.
class RestlessProxy {
 public:
    RestlessProxy(int serverPort, std::uint32_t seed, int resets);
    ~RestlessProxy();
    RestlessProxy(const RestlessProxy&) = delete;
    RestlessProxy& operator=(const RestlessProxy&) = delete;

    int Port() const { return port; }
    int ResetsDone() const { return done.load(); }
    // When that many bytes more were passed on, it reads nothing until Release.
    void HoldAfter(std::int64_t bytes) { untilHold = bytes; }
    void Release() { untilHold = WITHOUT_END; }

 private:
    void Serve();
    void Pass(int client, std::uint32_t seed);
    bool Forward(int from, int to, std::mt19937& random, std::int64_t& untilReset);

    static constexpr std::int64_t WITHOUT_END = std::int64_t{1} << 60;

    const int server;
    const std::uint32_t firstSeed;
    const int most;
    int listener = -1;
    int port = 0;
    std::atomic<int> done{0};
    std::atomic<std::int64_t> untilHold{WITHOUT_END};
    std::atomic<bool> ends{false};
    std::jthread serving;
};
