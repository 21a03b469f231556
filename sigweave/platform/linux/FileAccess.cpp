#include "sigweave/platform/FileAccess.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

namespace {

int AccessError(const char* path, int mode) {
    return access(path, mode) == 0 ? 0 : errno;
}

}  // namespace

int TCFileWriteError(const char* path, FileWriting how) {
    struct stat status;
    const bool exists = stat(path, &status) == 0;
    if (!exists && errno != ENOENT) return errno;
    if (exists && S_ISDIR(status.st_mode)) return EISDIR;
    if (exists && (how == FileWriting::InPlace || !S_ISREG(status.st_mode))) return AccessError(path, W_OK);
    const std::string folder = std::filesystem::path(path).parent_path().string();
    return *path == '\0' ? ENOENT : AccessError(folder.empty() ? "." : folder.c_str(), W_OK | X_OK);
}
