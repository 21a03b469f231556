#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "host/Mistakes.h"
#include "sigweave/module/TCBaseModuleEx.h"

namespace host {

// A file that the program or one of its modules reads or writes in a run.
struct FileUse {
    std::string user;  // the instance, or what of the host it is, in the user's language
    std::string path;
    TCModuleFile::USE use = TCModuleFile::READS;
    Place place;  // where the user named it
};

// Finds files that would be lost because one that is written is another one's too, however its name is
// written: through links, by a further name, or by a name that a file has while it is written. What is no
// ordinary file, as a device, clashes with nothing.
class FileClashes {
 public:
    explicit FileClashes(Mistakes& allMistakes) : mistakes(allMistakes) {}

    // A clash with those before is a mistake at the place of this one, one for each two users.
    void Add(const FileUse& use);

 private:
    struct Known {
        FileUse use;
        std::string file;
        std::string stem;  // of the file, without digits at its end
    };

    bool IsSameFile(const Known& a, const Known& b) const;
    void Report(const Known& now, const Known& before);

    Mistakes& mistakes;
    std::vector<Known> all;
    std::multimap<std::string, std::size_t> byStem;
    std::vector<std::size_t> withFurtherNames;
    std::set<std::pair<std::string, std::string>> reported;
};

}  // namespace host
