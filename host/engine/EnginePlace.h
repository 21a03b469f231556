#pragma once

#include <memory>
#include <string>

#include "host/engine/EngineAddress.h"
#include "host/parts/PlaceRun.h"

namespace host {
class Interruption;
class OpenGraph;
struct EngineSection;
}  // namespace host

namespace host::engine {

struct PlaceRequest {
    std::string url;                             // empty: what the environment or the graph says
    bool anew = false;                           // an earlier run of the same name is forgotten
    const Interruption* interruption = nullptr;  // may be null
};

// What a run of one place needs, connected; it ends the connection. Null with a reason in the user's
// language, or with none when it was interrupted: then nothing has begun.
std::unique_ptr<PlaceRun, void (*)(PlaceRun*)> JoinPlace(const OpenGraph& open, const PlacePlan& plan,
                                                         const EngineSection& section,
                                                         const PlaceRequest& request, std::string& error);

}  // namespace host::engine
