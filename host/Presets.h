#pragma once

#include <string>
#include <vector>

#include "host/GraphFile.h"
#include "host/SettingEdit.h"
#include "sigweave/module/TCBaseModuleEx.h"

namespace host {

// Settings of a module that are kept under a name, in the user's data folder.
struct PresetName {
    std::string module;
    std::string name;
};

bool HasPresetFolder();
// Why there can be no preset with a module or a name of its own called that; empty: there can.
std::string WhyNoPresets(const std::string& name);
// Of the module, or of all when it is empty, in order.
std::vector<PresetName> ListPresets(const std::string& module);

// Keeps what the module is set to, without secret values, in place of an older preset of the name. False,
// with the reason in `error`, when it cannot be written. The name must be one.
bool StorePreset(TCBaseModuleEx& module, const std::string& id, const std::string& name, std::string& error);
// Sets the module as the preset says; what it does not say stays. False, with the reason in `error`, when it
// cannot be read or has a value that the module does not allow.
bool LoadPreset(TCBaseModuleEx& module, const std::string& id, const std::string& name, std::string& error);
// What makes the instance as the module is set, without secret values: what is as by default is among it only
// where the instance has another value.
SettingValues PresetValues(const TCBaseModuleEx& module, const InstanceEntry& target);

}  // namespace host
