#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "host/engine/EngineAddress.h"
#include "host/engine/NatsObjects.h"

namespace host::engine {

// One connection with the server as long as it lasts, and its context for requests. Whoever lets it go last
// closes it, which sends what waits in it.
struct Wire {
    ~Wire();

    std::uint64_t number = 0;  // of the connections of this place, from 1
    Connection connection;
    Context context;
};

// Keeps a place connected with the server: makes a connection, and another one when it breaks or nothing is
// heard on it, with pauses that grow up to a second; and says twice a second that the place is there. What
// was made on a connection (subscriptions, what is not acknowledged) goes with it: its owner compares numbers
// and makes it again.
//
// The library's own reconnecting is off: in version 3.4.1 it hangs when a connection breaks again while it is
// being made anew.
//
// A thread of its own; the functions may be called on any, and do not wait for the server.
class EngineConnection {
 public:
    // Why there is no connection; OK when nothing went wrong yet.
    struct Failure {
        natsStatus status = NATS_OK;
        std::string reason;  // the library's words
        // No further attempt would change it: the server refuses the user, or a certificate is refused.
        bool IsFinal() const;
        bool IsOfUser() const;
        bool IsOfCertificate() const;
    };

    // `presence`: the subject on which the place is said to be there.
    EngineConnection(const EngineAddress& address, const std::string& name, const std::string& presence);
    // Closes the connection. An attempt under way is left to itself.
    ~EngineConnection();

    // Null while there is none. A broken one may be answered for a moment.
    std::shared_ptr<Wire> Current() const;
    // Waits, at most that long, until there is another one than that.
    void WaitForOther(std::uint64_t number, std::chrono::milliseconds longest) const;
    // For how long nothing was heard of the server, without the time in which this process was stopped.
    std::chrono::steady_clock::duration Silence() const;
    Failure LastFailure() const;
    // The caller has noticed that this one broke, or that it was written to in vain: another one is made.
    void Drop(std::uint64_t number);

 private:
    struct Shared;
    std::shared_ptr<Shared> shared;  // with attempts, which may outlive this object
    std::thread keeper;
};

}  // namespace host::engine
