#pragma once

#include <map>
#include <string>

#include "host/ModuleCatalogue.h"
#include "host/SetCommand.h"
#include "sigweave/ui/TCPropertyDialog.h"

class TCBaseModuleEx;

namespace host {

// The settings dialog of one instance of a graph file. It shows the values as the file has them, also wrong
// ones; when it is ended with OK, the lines of what has changed are rewritten, if `check` agrees.
class InstanceDialog {
 public:
    // The catalogue must outlive it.
    InstanceDialog(const SetOptions& set, const ModuleCatalogue& moduleCatalogue);

    // False, with the reasons, when there is no such dialog. To be called once, first of all.
    bool Open(Mistakes& mistakes);
    TCPropertyDialog& Description() { return description; }
    // What the file got at the end: names and values.
    const SettingValues& Written() const { return written; }
    bool IsSecret(const std::string& parameter) const;
    // Tells the module how it was ended.
    void End(int result);

 private:
    std::string WhyNotOpened(const GraphFile& file);
    void ReadSettings(const InstanceEntry& entry);
    void ShowAsWritten(const std::string& parameter);
    std::string Shown(const std::string& parameter) const;
    bool WriteChanges(CString& refusal);

    const SetOptions& options;
    const ModuleCatalogue& catalogue;
    ModulePointer module;
    TCBaseModuleEx* settable = nullptr;         // the same module, when it has declared parameters
    std::map<std::string, std::string> wrong;   // what the module does not take, by parameter
    std::map<std::string, std::string> before;  // what the file has, with defaults
    TCPropertyDialog description;
    SettingValues written;
};

}  // namespace host
