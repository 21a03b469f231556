#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "host/engine/Engine.h"
#include "host/engine/FramePieces.h"

namespace host::engine {

// Receives what another place sends to this one, from the first unit on, in order and whole. Used by
// the engine's thread.
class Inlet {
 public:
    // `isOneOfSeveral`: the others may be read for long before this one is read again.
    Inlet(Engine& engine, std::string from, bool isOneOfSeveral = false);
    ~Inlet();

    Outcome Begin(std::string& error);
    // Waits for the next unit.
    Outcome Next(Unit& unit, std::string& error);
    // The same, but waits for a moment only; `isThere` says whether there is one.
    Outcome Look(Unit& unit, bool& isThere, std::string& error);
    // While it is not read: whether nothing was heard of the other place for longer than the patience; the
    // error then says so.
    bool IsMissing(std::string& error);
    // Nothing is left to do for the units up to that one, by its `lastPiece`.
    void SetDone(std::uint64_t piece);

    struct Impl;
    std::unique_ptr<Impl> impl;
};

}  // namespace host::engine
