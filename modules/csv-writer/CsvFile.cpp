#include "modules/csv-writer/CsvFile.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/FileMessages.h"

std::string CsvFile::WhyRefused(const std::string& path, bool overwrite) {
    std::error_code ignored;
    if (path == "/dev/stdout") return "";
    if (std::filesystem::is_regular_file(path, ignored) && !overwrite) return tc::ThereAlready(path);
    return tc::WhyNotWritable(path, FileWriting::Beside);
}

bool CsvFile::Open(const std::string& name, bool overwrite, std::string& error) {
    path = part = name;
    isStandardOutput = path == "/dev/stdout";
    if (isStandardOutput) return true;
    errno = 0;
    file = tc::ReplacedFile::Open(path, {.exclusive = true, .mayReplace = overwrite});
    if (file == nullptr)
        error = WhyFailed(errno);
    else
        part = file->PartName();
    return file != nullptr;
}

bool CsvFile::Write(const std::string& text, std::string& error) {
    errno = 0;
    std::FILE* const stream = isStandardOutput ? stdout : file->Get();
    const bool written = std::fwrite(text.data(), 1, text.size(), stream) == text.size();
    if (!written) error = WhyFailed(errno);
    return written;
}

bool CsvFile::Finish(std::string& error) {
    errno = 0;
    const bool finished = isStandardOutput ? std::fflush(stdout) == 0 : file->Commit();
    if (!finished) error = WhyFailed(errno);
    if (finished) file = nullptr;
    isStandardOutput = false;
    return finished;
}

void CsvFile::Abandon() {
    if (std::exchange(isStandardOutput, false)) std::fflush(stdout);
    if (file != nullptr) file->Keep();
    file = nullptr;
}

void CsvFile::Discard() {
    isStandardOutput = false;
    file = nullptr;
}

std::string CsvFile::WhyFailed(int number) const {
    static constexpr tc::Bilingual IS_WRITTEN(
        "%1 is being written by another module or program; name another file, or wait for its end",
        "%1 wird gerade von einem anderen Modul oder Programm geschrieben; nennen Sie eine andere Datei, "
        "oder "
        "warten Sie, bis es fertig ist");
    if (number == EEXIST) return tc::ThereAlready(path);
    if (number == EWOULDBLOCK) return IS_WRITTEN.With({path});
    return tc::WhyNotWritten(path, number);
}
