#include "modules/plot/Gnuplot.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <system_error>

#include "sigweave/services/Bilingual.h"
#include "sigweave/services/FileMessages.h"

namespace fs = std::filesystem;

namespace tc {

namespace {

using tc::Bilingual;

constexpr Bilingual TEMPORARY_FILE(
    "the temporary file %1 cannot be written: %2; make room, or name another folder in TMPDIR",
    "die temporäre Datei %1 ist nicht beschreibbar: %2; schaffen Sie Platz, oder nennen Sie in TMPDIR einen "
    "anderen Ordner");

std::string WhyNoTemporaryFile(const std::string& path, int number) {
    return TEMPORARY_FILE.With({path, std::generic_category().message(number)});
}

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

std::string WhyNotWritten(const std::string& path, int number) {
    return tc::WhyNotWritten(path, std::generic_category().message(number));
}

bool WriteFile(const std::string& path, const std::string& content, int& number) {
    errno = 0;
    std::FILE* file = std::fopen(path.c_str(), "wb");
    bool written = file != nullptr && std::fwrite(content.data(), 1, content.size(), file) == content.size();
    if (!written) number = errno;
    if (file != nullptr && std::fclose(file) != 0 && written) {
        number = errno;
        written = false;
    }
    return written;
}

// What a shell command writes, and whether it succeeded.
bool ReadOutput(const std::string& command, std::string& output) {
    std::FILE* const pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return false;
    char part[65536];
    while (const std::size_t count = std::fread(part, 1, sizeof part, pipe)) output.append(part, count);
    return pclose(pipe) == 0;
}

bool IsWhole(const std::string& picture) {
    const std::string end = picture.substr(picture.size() - std::min<std::size_t>(picture.size(), 12));
    return end.find("</svg>") != std::string::npos || end.find("IEND") != std::string::npos;
}

bool PutInPlace(const std::string& picture, const std::string& path, std::string& error) {
    const std::string part = PartName(path);
    int number = 0;
    std::error_code failed;
    if (WriteFile(part, picture, number)) {
        fs::rename(part, path, failed);
        if (!failed) return true;
        number = failed.value();
    }
    error = WhyNotWritten(path, number);
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
    if (!scratch.IsMade()) {
        error = Bilingual(
                    "the folder for temporary files cannot be written; make room, or name another folder in "
                    "TMPDIR",
                    "der Ordner für temporäre Dateien ist nicht beschreibbar; schaffen Sie Platz, oder "
                    "nennen Sie in TMPDIR einen anderen")
                    .Text();
        return false;
    }
    int number = 0;
    if (!WriteFile(scriptFile, script, number)) {
        error = WhyNoTemporaryFile(scriptFile, number);
        return false;
    }
    // Through a pipe, for gnuplot does not say when the disk is full, and may go on behind a gap.
    const std::string folder = fs::path(scriptFile).parent_path().string();
    const std::string command = "cd " + ShellWord(folder) + " && gnuplot -d script 2>messages </dev/null";
    std::string picture;
    if (ReadOutput(command, picture) && IsWhole(picture)) return PutInPlace(picture, path, error);
    std::string reason = LastComplaint(messages);
    if (reason.empty()) reason = Bilingual("it gave no reason", "es nannte keinen Grund").Text();
    error = Bilingual("gnuplot made no picture: %1", "gnuplot erzeugte kein Bild: %1").With({reason});
    return false;
}

bool CanWriteBeside(const std::string& path, std::string& error) {
    std::error_code ignored;
    const std::string part = PartName(path);
    errno = 0;
    const bool isFolder = fs::is_directory(path, ignored);
    const bool writable = !isFolder && std::ofstream(part, std::ios::app).is_open();
    if (!writable) error = WhyNotWritten(path, isFolder ? EISDIR : errno);
    if (writable) fs::remove(part, ignored);
    return writable;
}

}  // namespace tc
