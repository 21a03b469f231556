#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

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
    const std::filesystem::path& Folder() const { return folder->Path(); }

 private:
    void Begin();

    std::unique_ptr<tc::OwnedFolder> folder;
    std::string more;
    int port = -1;
    pid_t process = 0;
};
