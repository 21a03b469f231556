#pragma once

#include <map>
#include <string>
#include <string_view>

namespace studio {

struct PageFile {
    std::string type;  // for the header Content-Type
    std::string bytes;
    bool mayBeKept = false;  // its name changes with its content
};

// The files of the page, read once: what is not among them is not served, whatever is asked for.
class PageFiles {
 public:
    // Every ordinary file below the folder of a kind that a page has, of at most 16 MB each. False, with the
    // reason, when there is no index.html. Links are not followed.
    bool Read(const std::string& folder, std::string& error);
    void Add(const std::string& path, PageFile file) { files[path] = std::move(file); }
    // By the path of an address, as "/index.html"; "/" is the same. A query does not count. Null when there
    // is none.
    const PageFile* Find(std::string_view target) const;

 private:
    std::map<std::string, PageFile, std::less<>> files;
};

}  // namespace studio
