#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>  // also for Asio, which uses it and does not say so
#include <vector>

#include "studio/server/Gate.h"
#include "studio/server/PageFiles.h"

namespace studio {

// Serves the page and speaks with its viewers, all on one thread: HTTP for files, a WebSocket at /live for
// messages. Nothing that a viewer does, or does not do, holds up another one.
class WebServer {
 public:
    using Viewer = std::uint64_t;  // one connection; never used again
    using Message = std::shared_ptr<const std::string>;

    struct Options {
        std::string address = "127.0.0.1";
        int port = 0;                                  // 0: one that is free
        std::string certificate;                       // file of the chain, PEM; empty: not encrypted
        std::string key;                               // file of its private key, PEM
        std::chrono::milliseconds refusalTime{1000};   // that the answer to a wrong password takes
        std::size_t mostReceived = 5U << 20;           // bytes of a message; the viewer is closed beyond
        std::size_t mostWaiting = 32U << 20;           // bytes that wait for one viewer; closed beyond
        int mostConnections = 200;                     // more are closed at once
        std::chrono::milliseconds patience{1000};      // for a viewer that takes nothing
        std::chrono::milliseconds requestTime{10000};  // for a whole request
    };

    // Called on the thread of `Run`; must not wait.
    struct Handlers {
        std::function<void(Viewer)> opened;
        std::function<void(Viewer, std::string)> received;  // text messages alone
        std::function<void(Viewer, bool tooSlow)> closed;
    };

    // Reads the certificate and opens the port. Throws std::runtime_error with the reason when that fails.
    // `files` must outlive it.
    WebServer(const Options& serverOptions, const PageFiles& pageFiles, Handlers viewerHandlers);
    ~WebServer();
    WebServer(const WebServer&) = delete;
    WebServer& operator=(const WebServer&) = delete;

    int Port() const;
    // Before `Run`.
    void SetGate(Gate gate);
    // Until `Stop`.
    void Run();

    // --- Any thread

    // Says goodbye to the viewers and ends `Run`, after a second at most.
    void Stop();
    // Each in the order of the calls; pictures are one binary message, one after the other. Nothing happens
    // when the viewer has gone.
    void Send(Viewer viewer, Message text);
    void SendBinary(Viewer viewer, std::vector<Message> pictures);
    // Of one that does not answer: at once, as too slow.
    void Drop(Viewer viewer);

    struct Impl;  // for the source alone

 private:
    std::unique_ptr<Impl> impl;
};

}  // namespace studio
