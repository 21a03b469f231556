#pragma once

#include <cstdio>
#include <memory>
#include <string>

// A text file that appears under its name only when it is whole: until `Finish` it is written under that name
// with ".part" and a number behind it. Something that is no ordinary file, as /dev/stdout, is written
// directly.
//
// Operations answer false on failure; `Error` then says why, with the file's name.
class CsvFile {
 public:
    // Why `Open` would refuse, as far as can be told without opening; empty when it would not.
    static std::string WhyRefused(const std::string& path, bool overwrite);
    // `number` keeps the parts of several writers apart. Refuses a file that is there, unless `overwrite`.
    bool Open(const std::string& path, int number, bool overwrite);
    bool Write(const std::string& text);
    // Closes the file and gives it its name.
    bool Finish();
    // Closes the file and leaves what there is under the other name.
    void Abandon() { file.reset(); }
    // Closes the file and leaves nothing of it.
    void Discard();

    bool IsOpen() const { return file != nullptr; }
    // The name under which it is being written.
    const std::string& PartName() const { return part; }
    const std::string& Error() const { return error; }

 private:
    struct Closer {
        // The standard output stays open for others.
        static int Close(std::FILE* opened) {
            return opened == stdout ? std::fflush(opened) : std::fclose(opened);
        }
        void operator()(std::FILE* opened) const { Close(opened); }
    };

    bool RefuseExisting();
    bool FailWithReason(int number);

    std::unique_ptr<std::FILE, Closer> file;
    std::string path;
    std::string part;
    std::string error;
    bool mayReplace = false;
};
