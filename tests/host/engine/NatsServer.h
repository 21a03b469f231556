#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/OwnFolder.h"

// A nats-server with JetStream on the loopback interface, at a port that the system chose and with its store
// in a temporary folder of its own. It is ended with this object.
class NatsServer {
 public:
    // False where there is no such program.
    static bool IsThere();

    // Throws, with the server's log, when it does not start. `arguments` come after those that say where.
    explicit NatsServer(std::string arguments = "");
    ~NatsServer();
    NatsServer(const NatsServer&) = delete;
    NatsServer& operator=(const NatsServer&) = delete;

    int Port() const { return port; }
    std::string Url() const { return "nats://127.0.0.1:" + std::to_string(port); }
    // At once, as by kill -9.
    void Kill();
    // It goes on to exist, and answers nothing.
    void Hang();
    // At the same port, with the same store.
    void Start();
    // What it has said so far.
    std::string Log() const;
    // That it has spent since it was started.
    double ProcessorSeconds() const;

 private:
    void Begin();

    std::unique_ptr<tc::OwnedFolder> folder;
    std::string more;
    int port = -1;
    pid_t process = 0;
};

// Three servers that agree on what they keep, named s0 to s2.
class NatsCluster {
 public:
    NatsCluster();

    // Of all of them.
    std::string Urls() const;
    int Size() const { return static_cast<int>(servers.size()); }
    NatsServer& At(int server) { return *servers[static_cast<std::size_t>(server)]; }
    // The one that decides what is in a stream; -1: none does.
    int LeaderOf(const std::string& stream) const;

 private:
    std::vector<std::unique_ptr<NatsServer>> servers;
};
