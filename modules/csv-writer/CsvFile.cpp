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

bool CsvFile::Open(const std::string& name, bool overwrite) {
    path = part = name;
    isStandardOutput = path == "/dev/stdout";
    if (isStandardOutput) return true;
    errno = 0;
    file = tc::ReplacedFile::Open(path, {.exclusive = true, .mayReplace = overwrite});
    if (file == nullptr) return FailWithReason(errno);
    part = file->PartName();
    return true;
}

bool CsvFile::Write(const std::string& text) {
    errno = 0;
    std::FILE* const stream = isStandardOutput ? stdout : file->Get();
    return std::fwrite(text.data(), 1, text.size(), stream) == text.size() || FailWithReason(errno);
}

bool CsvFile::Finish() {
    errno = 0;
    if (std::exchange(isStandardOutput, false)) return std::fflush(stdout) == 0 || FailWithReason(errno);
    if (!file->Commit()) return FailWithReason(errno);
    file = nullptr;
    return true;
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

bool CsvFile::FailWithReason(int number) {
    static constexpr tc::Bilingual IS_WRITTEN(
        "%1 is being written by another module or program; name another file, or wait for its end",
        "%1 wird gerade von einem anderen Modul oder Programm geschrieben; nennen Sie eine andere Datei, "
        "oder "
        "warten Sie, bis es fertig ist");
    if (number == EEXIST)
        error = tc::ThereAlready(path);
    else if (number == EWOULDBLOCK)
        error = IS_WRITTEN.With({path});
    else
        error = tc::WhyNotWritten(path, std::generic_category().message(number));
    return false;
}
