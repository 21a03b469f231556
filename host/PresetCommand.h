#pragma once

#include <string>
#include <vector>

#include "host/ModuleCatalogue.h"

namespace host {

// What `sigweave preset` is to do: settings of a module that are kept under a name, in the user's data
// folder.
struct PresetOptions {
    enum class Action { Save, Load, List };

    Action action = Action::List;
    std::string module;  // of List: empty for all
    std::string name;
    std::vector<std::string> settings;  // of Save: PARAMETER=VALUE
    std::string graph;                  // of Load: the graph file to write them into; empty: print them
    std::string instance;               // of Load: in that graph; empty: the only one of the module
};

// Save keeps the settings, with the defaults for those that are not named, in place of an older preset of the
// name. Load prints them as lines of a graph file, without those that are as their defaults, or rewrites the
// lines of an instance, as SetInGraph does. List prints the names, or says on standard error that there are
// none. Answers the program's exit code: 1 for what cannot be read or written, 2 for a wrong name, value or
// module.
int RunPresetCommand(const ModuleCatalogue& catalogue, const PresetOptions& options);

}  // namespace host
