#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "host/Interruption.h"
#include "host/engine/EngineAddress.h"

namespace host::engine {

struct EngineRun {
    EngineAddress address;
    std::string name;                            // of the run: letters, digits, - and _
    std::string digest;                          // of the graph and its settings
    std::string about;                           // for messages, as "voice.graph, sigweave 1.2.3"
    std::string place;                           // this one: letters, digits and _
    std::string graph;                           // its path, for the remedies
    std::int64_t keep = std::int64_t{10} << 30;  // bytes of the run's stream
    int replicas = 1;                            // of the stream
    // Puts on disk what was made of the units that are done; false with a reason. When it is there, only
    // units that are done are acknowledged, and after it; else all are that were taken.
    std::function<bool(std::string&)> record;
    bool anew = false;  // an earlier run of that name is forgotten first
    std::chrono::milliseconds patience{10000};
    const Interruption* interruption = nullptr;  // ends each wait; may be null
    // Said once of what has been waited for since 1.5 s; may be empty.
    std::function<void(const std::string& what)> onWait;
};

enum class Outcome { Done, Interrupted, Failed };

// One place of a run, connected with a NATS server that has JetStream. The run's frames lie in a stream of
// its own, sigweave-NAME, in which each line between two places is a subject, sigweave.NAME.TO.FROM.LINE.
// Reasons are in the user's language, and name the remedy. A broken connection is made again; what waits
// longer than the patience fails. One thread; it must outlive its outlets and inlets.
class Engine {
 public:
    // Connects, makes or joins the stream, and says that this place is there. Null with a reason, or with
    // none when it was interrupted.
    static std::unique_ptr<Engine> Join(const EngineRun& run, std::string& error);
    ~Engine();

    struct Impl;
    std::unique_ptr<Impl> impl;
};

// The name of the reader of what one place sends to another, by which a server's tools show it.
std::string WayName(const std::string& from, const std::string& to);

}  // namespace host::engine
