#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace studio {

// The folders that a viewer may choose files from, with all that is in them; nothing else can be seen through
// this, whatever is asked for. Any thread.
class Folders {
 public:
    static constexpr std::size_t MOST_ENTRIES = 2000;

    // Folders that are not there are left out.
    explicit Folders(const std::vector<std::string>& paths);

    // A folder: its `path`, the folder `up` if that may be seen too, and its `entries` by name, folders
    // first, each with `name`, `path` and whether it is a `folder`; `more` says that there are more than are
    // listed. Without a path the folders themselves. Hidden ones and special files are left out, and links
    // that lead elsewhere. {"ok": false} with the reason when it may not be seen or read.
    nlohmann::ordered_json List(const std::string& path) const;

 private:
    bool MayBeSeen(const std::string& canonical) const;

    std::vector<std::string> roots;  // canonical
};

}  // namespace studio
