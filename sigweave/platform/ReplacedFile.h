#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "sigweave/platform/Export.h"

namespace tc {

class OutputFile;

// A file that gets its new content as a whole: what is written goes to a file next to it, which takes its
// name in the end, so that whatever fails leaves the old content. Symbolic links are followed; permissions
// and owner stay.
//
// The file next to it is called NAME.part, or NAME.part2, NAME.part3 and so on where there is such a file
// already: no file that this object did not make is ever written or removed.
//
// Where a new file could not be the same file, it is written in place instead, from its beginning on,
// and cut where the new content ends: what is not a regular file, is a standard stream of this process, has
// further names, belongs to somebody else, or lies in a folder that takes no new files. Used by one thread.
class TC_API ReplacedFile {
 public:
    struct Options {
        // One writer at a time: `Open` fails with EWOULDBLOCK while another one that wants this, or an
        // OutputFile, has the file open. Else the last one that commits stays.
        bool exclusive = false;
        // False: `Open` and `Commit` fail with EEXIST when there is such a regular file.
        bool mayReplace = true;
    };

    // Null when the file cannot be written; `errno` then says why.
    static std::unique_ptr<ReplacedFile> Open(const std::string& path, Options options);
    static std::unique_ptr<ReplacedFile> Open(const std::string& path) { return Open(path, Options{}); }
    // Leaves the old content, and no other file, unless `Commit` succeeded or `Keep` was called.
    ~ReplacedFile();
    ReplacedFile(const ReplacedFile&) = delete;
    ReplacedFile& operator=(const ReplacedFile&) = delete;

    // Without a buffer; closed by `Commit`. Owned by this object.
    std::FILE* Get() const;
    // Once, after all that was written, and only when all of it was. False, with the reason in `errno`, when
    // the content is not in place.
    bool Commit();
    // The same, for a file that is written further and stays locked when it was opened so. Null on failure.
    std::unique_ptr<OutputFile> CommitAndGoOn();
    // What was written stays where it is (see PartName), unless it is put in place.
    void Keep();
    // The path of the file that is being written: of the one next to it, or of the file itself when it is
    // written in place.
    std::string PartName() const;
    bool IsInPlace() const;

 private:
    struct TC_LOCAL Impl;
    TC_LOCAL explicit ReplacedFile(std::unique_ptr<Impl> opened);

    std::unique_ptr<Impl> impl;
};

// Where the links of a path lead, also when nothing is there yet.
TC_API std::string FollowLinks(const std::string& path);

// Whether the path leads to the file that is standard input, output or error output of this process.
TC_API bool IsStandardStream(const std::string& path);

// The name that every such file has while it is written, or how it begins: digits may follow.
TC_API std::string PartNameOf(const std::string& path);

}  // namespace tc
