#include "modules/csv-writer/CsvFile.h"

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "modules/common/SignalSettings.h"
#include "sigweave/services/FileMessages.h"

namespace fs = std::filesystem;

std::string CsvFile::WhyRefused(const std::string& path, bool overwrite) {
    std::error_code ignored;
    if (path == "/dev/stdout") return "";
    if (fs::is_regular_file(path, ignored) && !overwrite) return tc::ThereAlready(path);
    return tc::WhyNotWritable(path, FileWriting::Beside);
}

bool CsvFile::Open(const std::string& name, int number, bool overwrite) {
    path = part = name;
    mayReplace = overwrite;
    if (path == "/dev/stdout") {
        file.reset(stdout);
        return true;
    }
    std::error_code ignored;
    const fs::file_status status = fs::status(path, ignored);
    if (fs::is_directory(status)) return FailWithReason(EISDIR);
    if (fs::is_regular_file(status)) path = part = fs::canonical(path, ignored).string();  // behind links
    if (!fs::exists(status) || fs::is_regular_file(status)) {
        part += ".part" + (number > 0 ? std::to_string(number) : std::string());
        if (RefuseExisting()) return false;
    }
    errno = 0;
    file.reset(std::fopen(part.c_str(), "wb"));
    return file != nullptr || FailWithReason(errno);
}

bool CsvFile::Write(const std::string& text) {
    errno = 0;
    return std::fwrite(text.data(), 1, text.size(), file.get()) == text.size() || FailWithReason(errno);
}

bool CsvFile::Finish() {
    errno = 0;
    if (Closer::Close(file.release()) != 0) return FailWithReason(errno);
    if (part == path) return true;
    if (RefuseExisting()) return false;
    std::error_code failed;
    fs::rename(part, path, failed);
    return !failed || FailWithReason(failed.value());
}

void CsvFile::Discard() {
    if (file == nullptr) return;
    file.reset();
    std::error_code ignored;
    if (part != path) fs::remove(part, ignored);
}

bool CsvFile::RefuseExisting() {
    std::error_code ignored;
    if (mayReplace || !fs::exists(path, ignored)) return false;
    error = tc::ThereAlready(path);
    return true;
}

bool CsvFile::FailWithReason(int number) {
    error = tc::WhyNotWritten(path, std::generic_category().message(number));
    return false;
}
