#pragma once

#include <string>
#include <vector>

#include "host/SettingEdit.h"

namespace studio {

struct Position {
    std::string instance;
    int x = 0;
    int y = 0;
};

// One change of a graph's drawing.
struct Edit {
    enum Kind { Place, Copy, Remove, Rename, Connect, Disconnect, Move, Set };
    Kind kind = Move;
    std::string name;   // Place, Copy, Rename, Set: of the instance; Connect: instance.Output
    std::string other;  // Place: the module's id; Copy, Rename: the new name; Connect: instance.Input
    std::vector<std::string> names;   // Remove
    std::vector<Position> positions;  // Place, Copy, Move
    host::SettingValues settings;     // Set
};

// Carries the change out in the text of a graph in the form of parameter text: lines that it is not about
// stay as they are, byte for byte. Comments right above the section of an instance that is removed go with
// it.
//
// False, with the reason in `error` and the text unchanged, when it cannot be: a name that is not there or
// there already, what the form cannot say, and a graph that is an XML document.
bool EditGraph(const Edit& edit, std::string& text, std::string& error);

// A name for a new instance of the module that no instance has yet, as "generator 2".
std::string FreeName(const host::GraphFile& file, const std::string& wanted);

// Where instances are drawn; without those that the text does not say.
std::vector<Position> PositionsOf(const host::GraphFile& file);

}  // namespace studio
