#pragma once

#include <optional>
#include <string>

#include "host/GraphFile.h"
#include "host/parts/PlaceRun.h"

namespace host {

// Where the instance runs when the graph runs in several places; null when it does not say.
const Setting* FindPlace(const InstanceEntry& instance);

class OpenGraph;

// How the graph is cut into its places, for a run of `place`, or with an empty one for a check of all. None,
// with mistakes, when an instance has no place, there is no such one, or a part could not make the same steps
// as the whole graph in one. The graph must be free of mistakes.
std::optional<PlacePlan> PlanPlaces(OpenGraph& open, const std::string& place);

// A digest of all that decides what a run of the graph makes, with its name: instances, settings, lines and
// the program's version.
std::string DigestRun(const GraphFile& graph, const std::string& name);

}  // namespace host
