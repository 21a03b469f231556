#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/Interruption.h"
#include "host/engine/EngineAddress.h"
#include "host/engine/FramePieces.h"

namespace host::engine {

struct EngineRun {
    EngineAddress address;
    std::string name;                            // of the run: letters, digits, - and _
    std::string digest;                          // of the graph and its settings
    std::string about;                           // for messages, as "voice.graph, sigweave 1.2.3"
    std::string place;                           // this one: letters, digits and _
    std::string graph;                           // its path, for the remedies
    std::int64_t keep = std::int64_t{10} << 30;  // bytes of the run's stream
    bool anew = false;                           // an earlier run of that name is forgotten first
    std::chrono::milliseconds patience{10000};
    const Interruption* interruption = nullptr;  // ends each wait; may be null
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

// Sends from this place to another one. Every message is acknowledged by the stream, or sent again; a stream
// that is full of what its readers have not taken holds the sender. A part that begins again does not send
// what the stream has.
class Outlet {
 public:
    // `toPlaces` are all to which this run sends anything: a full stream is freed of what all of them took.
    Outlet(Engine& engine, std::string to, std::vector<std::uint32_t> lines,
           std::vector<std::string> allWays);
    ~Outlet();

    Outcome Begin(std::string& error);
    Outcome Send(const Unit& unit, std::string& error);
    // Waits until the stream has everything.
    Outcome Finish(std::string& error);

    struct Impl;
    std::unique_ptr<Impl> impl;
};

// Receives what another place sends to this one, from the first unit on, in order and whole.
class Inlet {
 public:
    Inlet(Engine& engine, std::string from);
    ~Inlet();

    Outcome Begin(std::string& error);
    // Waits for the next unit.
    Outcome Next(Unit& unit, std::string& error);

    struct Impl;
    std::unique_ptr<Impl> impl;
};

// The name of the reader of what one place sends to another, by which a server's tools show it.
std::string WayName(const std::string& from, const std::string& to);

}  // namespace host::engine
