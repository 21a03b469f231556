#include "sigweave/platform/ReplacedFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "sigweave/platform/OutputFile.h"

namespace tc {
namespace {

namespace fs = std::filesystem;

constexpr mode_t ALL_MODES = 07777, READ_AND_WRITE = 0666, OWNER_ONLY = 0600;
constexpr int MOST_PARTS = 1000;
constexpr int MOST_LINKS = 40;

class Descriptor {
 public:
    Descriptor() = default;
    explicit Descriptor(int opened) : number(opened) {}
    Descriptor(Descriptor&& other) noexcept : number(other.Release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number, other.number);
        return *this;
    }
    ~Descriptor() {
        if (number >= 0) close(number);
    }
    int Get() const { return number; }
    bool IsOpen() const { return number >= 0; }
    int Release() { return std::exchange(number, -1); }

 private:
    int number = -1;
};

bool IsSame(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Whoever writes to a standard stream, or reads from it, would lose the file's name.
bool IsStandardStream(const struct stat& file) {
    return std::ranges::any_of(std::initializer_list<int>{STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO},
                               [&](int number) {
                                   struct stat stream;
                                   return fstat(number, &stream) == 0 && IsSame(stream, file);
                               });
}

bool CanBeReplaced(const struct stat& old) {
    return S_ISREG(old.st_mode) && old.st_nlink == 1 && !IsStandardStream(old);
}

bool MakeAlike(int descriptor, const struct stat& old) {
    struct stat made;
    if (fstat(descriptor, &made) != 0) return false;
    const bool ownerDiffers = made.st_uid != old.st_uid || made.st_gid != old.st_gid;
    if ((!ownerDiffers || fchown(descriptor, old.st_uid, old.st_gid) == 0) &&
        fchmod(descriptor, old.st_mode & ALL_MODES) == 0)
        return true;
    errno = EPERM;
    return false;
}

// File systems without locks let everybody write.
bool Lock(int descriptor) {
    return flock(descriptor, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

// The old file, locked under its name: it may have lost that to another one meanwhile.
Descriptor OpenLocked(const std::string& path) {
    constexpr int MOST_TRIES = 100;
    for (int i = 0; i < MOST_TRIES; ++i) {
        Descriptor opened(open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY));
        struct stat locked, named;
        if (!opened.IsOpen() || !Lock(opened.Get())) return {};
        if (fstat(opened.Get(), &locked) != 0) return {};
        if (stat(path.c_str(), &named) == 0 && IsSame(locked, named)) return opened;
    }
    errno = EWOULDBLOCK;
    return {};
}

bool IsLocked(int folder, const std::string& name) {
    const Descriptor opened(openat(folder, name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    return opened.IsOpen() && flock(opened.Get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

std::string ProcessLink(int descriptor) {
    return "/proc/self/fd/" + std::to_string(descriptor);
}

bool DiskIsFull() {
    return errno == ENOSPC || errno == EDQUOT;
}

std::string NumberedPart(const std::string& name, int number) {
    return PartNameOf(name) + (number > 1 ? std::to_string(number) : std::string());
}

}  // namespace

std::string FollowLinks(const std::string& path) {
    const std::unique_ptr<char, void (*)(void*)> real(realpath(path.c_str(), nullptr), std::free);
    if (real != nullptr) return real.get();
    fs::path at(path);
    std::error_code isNoLink;
    for (int links = 0; links < MOST_LINKS; ++links) {
        const fs::path target = fs::read_symlink(at, isNoLink);
        if (isNoLink) break;
        at = at.parent_path() / target;
    }
    return at.string();
}

bool IsStandardStream(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && IsStandardStream(status);
}

std::string PartNameOf(const std::string& path) {
    return path + ".part";
}

struct ReplacedFile::Impl {
    Impl(const std::string& path, Options wanted) : options(wanted), target(FollowLinks(path)) {
        const struct stat* const known = stat(target.c_str(), &status) == 0 ? &status : nullptr;
        old = known;
        name = fs::path(target).filename().string();
    }
    ~Impl();

    bool Begin();
    bool OpenBeside();
    bool OpenUnnamed();
    bool NamePart();
    bool OpenInPlace();
    bool IsStillMine() const;
    bool Cut(long end) const;
    bool PutInPlace();
    bool Commit();

    const Options options;
    const std::string target;
    std::string name;  // in its folder
    struct stat status {};
    const struct stat* old = nullptr;  // of the file that is there
    Descriptor oldLock;
    Descriptor folder;
    Descriptor descriptor;  // of the new content
    std::string part;       // next to the file; empty when written in place
    std::FILE* file = nullptr;
    bool kept = false;
};

bool ReplacedFile::Impl::Begin() {
    if (old == nullptr && name.empty()) {
        errno = ENOENT;
        return false;
    }
    const bool isRegular = old != nullptr && S_ISREG(old->st_mode);
    if (isRegular && !options.mayReplace) {
        errno = EEXIST;
        return false;
    }
    // Renaming would not ask for the right to write it.
    if (old != nullptr && access(target.c_str(), W_OK) != 0) return false;
    if (isRegular && options.exclusive) {
        oldLock = OpenLocked(target);
        if (!oldLock.IsOpen()) return false;
    }
    if (old != nullptr && !CanBeReplaced(*old)) return OpenInPlace();
    if (OpenBeside()) return true;
    return !DiskIsFull() && errno != EWOULDBLOCK && errno != EEXIST && OpenInPlace();
}

bool ReplacedFile::Impl::OpenBeside() {
    const fs::path parent = fs::path(target).parent_path();
    folder =
        Descriptor(open(parent.empty() ? "." : parent.c_str(), O_RDONLY | O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!folder.IsOpen() || !OpenUnnamed()) return false;
    if (descriptor.IsOpen()) return NamePart();
    const mode_t mode = old != nullptr ? OWNER_ONLY : READ_AND_WRITE;
    for (int number = 1; number <= MOST_PARTS; ++number) {
        part = NumberedPart(name, number);
        descriptor = Descriptor(
            openat(folder.Get(), part.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode));
        if (descriptor.IsOpen())
            return (old == nullptr || MakeAlike(descriptor.Get(), *old)) &&
                   (!options.exclusive || Lock(descriptor.Get()));
        const bool isThere = errno == EEXIST;
        const bool isWritten = isThere && options.exclusive && IsLocked(folder.Get(), part);
        if (isWritten) errno = EWOULDBLOCK;
        part.clear();
        if (isWritten || !isThere) return false;
    }
    errno = EEXIST;
    return false;
}

// So that the file is locked before anybody can see it. Nothing is opened where the file system has no such
// files.
bool ReplacedFile::Impl::OpenUnnamed() {
    const mode_t mode = old != nullptr ? OWNER_ONLY : READ_AND_WRITE;
    Descriptor opened(openat(folder.Get(), ".", O_WRONLY | O_TMPFILE | O_CLOEXEC, mode));
    if (!opened.IsOpen()) return errno == EOPNOTSUPP || errno == EISDIR || errno == ENOENT || errno == EINVAL;
    if (access(ProcessLink(opened.Get()).c_str(), F_OK) != 0) return true;
    if (old != nullptr && !MakeAlike(opened.Get(), *old)) return false;
    if (options.exclusive && !Lock(opened.Get())) return false;
    descriptor = std::move(opened);
    return true;
}

bool ReplacedFile::Impl::NamePart() {
    for (int number = 1; number <= MOST_PARTS; ++number) {
        const std::string free = NumberedPart(name, number);
        if (linkat(AT_FDCWD, ProcessLink(descriptor.Get()).c_str(), folder.Get(), free.c_str(),
                   AT_SYMLINK_FOLLOW) == 0) {
            part = free;
            return true;
        }
        if (errno != EEXIST) return false;
        if (options.exclusive && IsLocked(folder.Get(), free)) {
            errno = EWOULDBLOCK;
            return false;
        }
    }
    errno = EEXIST;
    return false;
}

bool ReplacedFile::Impl::OpenInPlace() {
    part.clear();
    const int mustBeNew = options.mayReplace || old != nullptr ? 0 : O_EXCL;
    descriptor = oldLock.IsOpen()
                     ? std::move(oldLock)
                     : Descriptor(open(target.c_str(), O_WRONLY | O_CREAT | mustBeNew | O_CLOEXEC | O_NOCTTY,
                                       READ_AND_WRITE));
    const bool isNewAndShared = old == nullptr && options.exclusive;
    return descriptor.IsOpen() && (!isNewAndShared || Lock(descriptor.Get()));
}

// Whether the name still leads to the file that was made here.
bool ReplacedFile::Impl::IsStillMine() const {
    struct stat made, named;
    return fstat(descriptor.Get(), &made) == 0 &&
           fstatat(folder.Get(), part.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 && IsSame(made, named);
}

// What the old content had after the new one; a pipe has nothing to cut.
bool ReplacedFile::Impl::Cut(long end) const {
    struct stat written;
    if (fstat(descriptor.Get(), &written) != 0 || !S_ISREG(written.st_mode)) return true;
    return end >= 0 && ftruncate(descriptor.Get(), end) == 0;
}

bool ReplacedFile::Impl::PutInPlace() {
    if (!IsStillMine()) {
        errno = ENOENT;
        return false;
    }
    if (options.mayReplace) return renameat(folder.Get(), part.c_str(), folder.Get(), name.c_str()) == 0;
    if (renameat2(folder.Get(), part.c_str(), folder.Get(), name.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno != EINVAL && errno != ENOSYS) return false;
    return linkat(folder.Get(), part.c_str(), folder.Get(), name.c_str(), 0) == 0 &&
           unlinkat(folder.Get(), part.c_str(), 0) == 0;
}

bool ReplacedFile::Impl::Commit() {
    const long end = std::ftell(file);
    if (std::fclose(std::exchange(file, nullptr)) != 0) return false;
    if (part.empty()) return Cut(end);
    if (!PutInPlace()) return false;
    part.clear();
    return true;
}

ReplacedFile::Impl::~Impl() {
    const long end = file != nullptr ? std::ftell(file) : -1;
    const bool isInPlace = file != nullptr && part.empty();
    if (file != nullptr) std::fclose(file);
    if (isInPlace && end > 0) Cut(end);  // else a beginning of the new would go on as the old
    if (!part.empty() && !kept && IsStillMine()) unlinkat(folder.Get(), part.c_str(), 0);
}

std::unique_ptr<ReplacedFile> ReplacedFile::Open(const std::string& path, Options options) {
    auto opened = std::make_unique<Impl>(path, options);
    if (!opened->Begin()) {
        const int reason = errno;
        opened = nullptr;
        errno = reason;
        return nullptr;
    }
    const int copy = fcntl(opened->descriptor.Get(), F_DUPFD_CLOEXEC, 0);
    opened->file = copy >= 0 ? fdopen(copy, "wb") : nullptr;
    if (opened->file == nullptr) {
        if (copy >= 0) close(copy);
        return nullptr;
    }
    std::setbuf(opened->file, nullptr);
    return std::unique_ptr<ReplacedFile>(new ReplacedFile(std::move(opened)));
}

ReplacedFile::ReplacedFile(std::unique_ptr<Impl> opened) : impl(std::move(opened)) {}
ReplacedFile::~ReplacedFile() = default;

std::FILE* ReplacedFile::Get() const {
    return impl->file;
}

bool ReplacedFile::Commit() {
    return impl->Commit();
}

std::unique_ptr<OutputFile> ReplacedFile::CommitAndGoOn() {
    if (!impl->Commit()) return nullptr;
    return OutputFile::Adopt(impl->descriptor.Release());
}

void ReplacedFile::Keep() {
    impl->kept = true;
}

std::string ReplacedFile::PartName() const {
    if (impl->part.empty()) return impl->target;
    return (fs::path(impl->target).parent_path() / impl->part).string();
}

bool ReplacedFile::IsInPlace() const {
    return impl->part.empty();
}

}  // namespace tc
