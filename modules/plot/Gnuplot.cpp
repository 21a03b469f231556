#include "modules/plot/Gnuplot.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <system_error>

namespace fs = std::filesystem;

namespace tc {

namespace {

// A folder of its own for one run of gnuplot, removed at the end.
class ScratchFolder {
 public:
    ScratchFolder() {
        std::random_device random;
        std::error_code failed;
        const fs::path parent = fs::temp_directory_path(failed);
        for (int attempt = 0; attempt < 100 && !made && !failed; ++attempt) {
            path = parent / ("sigweave-plot-" + std::to_string(random()));
            made = fs::create_directory(path, failed);
        }
        if (made) fs::permissions(path, fs::perms::owner_all, failed);
    }
    ~ScratchFolder() {
        std::error_code ignored;
        if (made) fs::remove_all(path, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    bool IsMade() const { return made; }
    std::string File(const char* name) const { return (path / name).string(); }

 private:
    fs::path path;
    bool made = false;
};

// One word for the shell.
std::string ShellWord(const std::string& text) {
    std::string word = "'";
    for (const char character : text)
        word += character == '\'' ? std::string("'\\''") : std::string(1, character);
    return word + "'";
}

// What a program said last that is no warning.
std::string LastComplaint(const std::string& path) {
    std::ifstream file(path);
    std::string complaint;
    for (std::string line; std::getline(file, line);) {
        if (line.find_first_not_of(" ^") != std::string::npos && line.rfind("Warning", 0) != 0)
            complaint = line;
    }
    return complaint;
}

std::string PartName(const std::string& path) {
    return path + ".part";
}

bool MoveInto(const std::string& from, const std::string& path, std::string& error) {
    std::error_code failed;
    const std::string part = PartName(path);
    fs::copy_file(from, part, fs::copy_options::overwrite_existing, failed);
    if (!failed) fs::rename(part, path, failed);
    if (!failed) return true;
    error = path + " cannot be written: " + failed.message();
    fs::remove(part, failed);
    return false;
}

}  // namespace

bool HasGnuplot() {
    return std::system("command -v gnuplot >/dev/null 2>&1") == 0;
}

bool RunGnuplot(const std::string& script, const std::string& path, std::string& error) {
    const ScratchFolder scratch;
    const std::string scriptFile = scratch.File("script");
    const std::string messages = scratch.File("messages");
    std::ofstream file(scriptFile, std::ios::binary);
    file << script;
    file.close();
    if (!scratch.IsMade() || !file) {
        error = "the folder for temporary files cannot be written";
        return false;
    }
    const std::string picture = scratch.File("picture");
    const std::string command = "cd " + ShellWord(fs::path(picture).parent_path().string()) +
                                " && gnuplot script >/dev/null 2>messages </dev/null";
    std::error_code ignored;
    const bool ran = std::system(command.c_str()) == 0;
    if (ran && fs::exists(picture, ignored) && fs::file_size(picture, ignored) > 0) {
        return MoveInto(picture, path, error);
    }
    const std::string reason = LastComplaint(messages);
    error = "gnuplot made no picture: " + (reason.empty() ? "it gave no reason" : reason);
    return false;
}

bool CanWriteBeside(const std::string& path, std::string& error) {
    const std::string part = PartName(path);
    errno = 0;
    const bool writable = std::ofstream(part, std::ios::app).is_open();
    if (!writable) error = path + " cannot be written: " + std::generic_category().message(errno);
    std::error_code ignored;
    if (writable) fs::remove(part, ignored);
    return writable;
}

}  // namespace tc
