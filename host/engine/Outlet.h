#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/engine/Engine.h"
#include "host/engine/FramePieces.h"

namespace host::engine {

// Sends from this place to another one. Every message is acknowledged by the stream, or sent again; a stream
// that is full of what its readers have not taken holds the sender. A part that begins again does not send
// what the stream has. Used by the engine's thread.
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

}  // namespace host::engine
