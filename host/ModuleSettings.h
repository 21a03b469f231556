#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "host/GraphFile.h"
#include "host/Mistakes.h"

class TCBaseModuleEx;

namespace host {

// Gives one module the settings of its instance, and finds the places of what is wrong with them.
class ModuleSettings {
 public:
    // `settable` is null for a module that takes no settings. All must outlive this.
    ModuleSettings(const GraphFile& graph, const InstanceEntry& instance, TCBaseModuleEx* settable,
                   Mistakes& allMistakes);

    // A setting that is wrong leaves the default, so that other mistakes can be reported too. False when
    // there is none, or the values do not fit together: the module then is as it was.
    bool Apply();
    // Whether every setting is as it was written.
    bool AreRight() const { return effective && wrong.empty(); }
    // What a module says about its settings or inputs, line by line, each with its place. `inputs` are the
    // places of the lines to its inputs. Lines about a parameter that has a mistake already are left out.
    std::vector<Mistake> Locate(const std::string& reasons, const std::map<std::string, Place>& inputs) const;

 private:
    bool IsOfHost(const Setting& setting) const;
    void Apply(const Setting& setting);
    bool FindMissing();
    bool MakeEffective();
    bool ResolvePath(const Setting& setting, std::string& path);
    void Tell(const Setting& setting, const std::string& text);
    const Setting* Find(const std::string& parameter) const;
    bool IsSecret(const Setting& setting) const;
    Place PlaceOf(const Setting& setting) const;
    std::string HintFor(const Setting* setting) const;

    const GraphFile& file;
    const InstanceEntry& entry;
    TCBaseModuleEx* module;
    Mistakes& mistakes;
    std::set<std::string> wrong;  // parameters with a mistake
    bool effective = true;
    int unknown = 0;  // settings that no parameter has
};

}  // namespace host
