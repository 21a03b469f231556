#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "sigweave/platform/Export.h"

namespace tc {

// A file that gets its new content as a whole: what is written goes to a file beside it, which takes its name
// in the end, so that whatever fails leaves the old content. Symbolic links are followed; permissions and
// owner stay. Where a file beside it could not be the same file, it is written in place instead: what is not
// a regular file, has further names, belongs to somebody else, or stands in a folder that takes no new files.
// Used by one thread.
class TC_API ReplacedFile {
 public:
    // Null when the file cannot be written; the system's error then says why.
    static std::unique_ptr<ReplacedFile> Open(const char* path);
    // Leaves the old content unless `Commit` succeeded.
    ~ReplacedFile();
    ReplacedFile(const ReplacedFile&) = delete;
    ReplacedFile& operator=(const ReplacedFile&) = delete;

    // Without a buffer.
    std::FILE* Get() const { return file; }
    // Once, behind all that was written, and only when all of it was. False when the content is not in place.
    bool Commit();

 private:
    ReplacedFile(std::FILE* opened, std::string finalName, std::string partName);

    std::FILE* file;
    std::string path;
    std::string part;  // empty when written in place
};

}  // namespace tc
