#pragma once

#include <memory>
#include <string>

#include "sigweave/platform/ReplacedFile.h"

// A text file that appears under its name only when it is whole (see tc::ReplacedFile): until `Finish` it has
// ".part" after its name. /dev/stdout is the stream itself.
//
// Operations answer false on failure; `error` then says why, with the file's name.
class CsvFile {
 public:
    // Why `Open` would refuse, as far as can be known without opening; empty when it would not.
    static std::string WhyRefused(const std::string& path, bool overwrite);
    // Refuses a file that is there, unless `overwrite`, and one that somebody else is writing.
    bool Open(const std::string& path, bool overwrite, std::string& error);
    bool Write(const std::string& text, std::string& error);
    // Closes the file and gives it its name.
    bool Finish(std::string& error);
    // Closes the file and leaves what there is under the other name.
    void Abandon();
    // Closes the file and leaves nothing of it.
    void Discard();

    bool IsOpen() const { return file != nullptr || isStandardOutput; }
    // The name under which it is, or was last, written.
    const std::string& PartName() const { return part; }

 private:
    std::string WhyFailed(int number) const;

    std::unique_ptr<tc::ReplacedFile> file;
    bool isStandardOutput = false;
    std::string path;
    std::string part;
};
