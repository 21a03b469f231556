#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "sigweave/platform/OwnedFolder.h"

// A place where hostile code can do no harm: namespaces of its own in which all is read-only but a temporary
// folder. It is made without the code that is tested. In the folder are "here", where programs start,
// "temporary" for their temporary files, and "canary", a tree of files that they may write, and must not.
class Enclosure {
 public:
    Enclosure();

    // What programs in it are refused, as on systems that do not have it.
    enum class Lacks { Nothing, Namespaces, AllConfinement, FiltersToo, EnteringFolders };

    struct Answer {
        std::string whyNot;  // there is no such place here; the program did not run
        int code = -1;
        std::string out;
        std::string err;
        bool leftProcesses = false;
    };
    // A command for the shell, as an ordinary user. CANARY names that tree, and DEED holds what a hostile
    // module is to do; without DEED it does nothing.
    Answer Run(const std::string& command, const std::string& deed, Lacks lacks = Lacks::Nothing) const;

    // Nothing was changed in the folders of others, and nothing left among temporary files.
    void ExpectUntouched() const;
    std::filesystem::path Here() const { return folder->Path() / "here"; }

 private:
    std::string Describe() const;

    std::unique_ptr<tc::OwnedFolder> folder;
    std::string before;
};
