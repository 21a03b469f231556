#include "sigweave/platform/ReplacedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <utility>

namespace tc {
namespace {

constexpr mode_t ALL_MODES = 07777, READ_AND_WRITE = 0666, OWNER_ONLY = 0600;

std::string FollowLinks(const char* path) {
    const std::unique_ptr<char, void (*)(void*)> real(realpath(path, nullptr), std::free);
    return real != nullptr ? real.get() : path;
}

// Where a new file would take the place of something else than the old one: a link to nothing, too.
bool CanBeReplaced(const std::string& path, const struct stat* old) {
    struct stat link;
    if (old == nullptr) return !path.empty() && lstat(path.c_str(), &link) != 0;
    return S_ISREG(old->st_mode) && old->st_nlink == 1;
}

bool MakeAlike(int descriptor, const struct stat& old) {
    struct stat made;
    if (fstat(descriptor, &made) != 0) return false;
    const bool ownerDiffers = made.st_uid != old.st_uid || made.st_gid != old.st_gid;
    return (!ownerDiffers || fchown(descriptor, old.st_uid, old.st_gid) == 0) &&
           fchmod(descriptor, old.st_mode & ALL_MODES) == 0;
}

// The name differs from those of other processes and other calls.
int OpenPart(const std::string& path, const struct stat* old, std::string& part) {
    static std::atomic<unsigned> count = 0;
    part = path + "." + std::to_string(getpid()) + "-" + std::to_string(count++) + ".part";
    const mode_t mode = old != nullptr ? OWNER_ONLY : READ_AND_WRITE;
    const int descriptor = open(part.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (descriptor < 0 || old == nullptr || MakeAlike(descriptor, *old)) return descriptor;
    close(descriptor);
    unlink(part.c_str());
    errno = EPERM;
    return -1;
}

bool DiskIsFull() {
    return errno == ENOSPC || errno == EDQUOT;
}

}  // namespace

std::unique_ptr<ReplacedFile> ReplacedFile::Open(const char* path) {
    const std::string target = FollowLinks(path);
    struct stat status;
    const struct stat* const old = stat(target.c_str(), &status) == 0 ? &status : nullptr;
    // Renaming would not ask for the right to write it.
    if (old != nullptr && access(target.c_str(), W_OK) != 0) return nullptr;
    std::string part;
    int descriptor = -1;
    if (CanBeReplaced(target, old)) {
        descriptor = OpenPart(target, old, part);
        if (descriptor < 0 && DiskIsFull()) return nullptr;
    }
    if (descriptor < 0) {
        part.clear();
        descriptor =
            open(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, READ_AND_WRITE);
    }
    std::FILE* const file = descriptor >= 0 ? fdopen(descriptor, "wb") : nullptr;
    if (file == nullptr) return nullptr;
    std::setbuf(file, nullptr);
    return std::unique_ptr<ReplacedFile>(new ReplacedFile(file, target, part));
}

ReplacedFile::ReplacedFile(std::FILE* opened, std::string finalName, std::string partName)
    : file(opened), path(std::move(finalName)), part(std::move(partName)) {}

ReplacedFile::~ReplacedFile() {
    if (file != nullptr) std::fclose(file);
    if (!part.empty()) unlink(part.c_str());
}

bool ReplacedFile::Commit() {
    if (std::fclose(std::exchange(file, nullptr)) != 0) return false;
    if (part.empty()) return true;
    if (rename(part.c_str(), path.c_str()) != 0) return false;
    part.clear();
    return true;
}

}  // namespace tc
