#include "sigweave/platform/OwnedFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <random>
#include <string_view>
#include <utility>

namespace tc {
namespace {

namespace fs = std::filesystem;

constexpr int DEEPEST = 200;     // one descriptor is open for each level
constexpr int MOST_ROUNDS = 50;  // entries may be skipped while others are taken away
constexpr int MOST_TRIALS = 100;
constexpr mode_t OWNER_ALONE = 0700, AS_MASKED = 0777;
constexpr int AS_FOLDER = O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

std::error_code LastError() {
    return {errno, std::generic_category()};
}

// For systems that do not let it be asked in one step.
int OpenUnmounted(int parent, const char* name) {
    const int opened = openat(parent, name, O_RDONLY | AS_FOLDER);
    struct statx status {};
    if (opened < 0 || (statx(opened, "", AT_EMPTY_PATH, STATX_INO, &status) == 0 &&
                       (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) == 0))
        return opened;
    close(opened);
    errno = EXDEV;
    return -1;
}

// Neither through links nor into anything that is mounted there, also from the same disk.
int OpenBelow(int parent, const char* name) {
    open_how how{};
    how.flags = O_RDONLY | AS_FOLDER;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_XDEV | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    const long opened = syscall(SYS_openat2, parent, name, &how, sizeof how);
    const bool isUnknown = opened < 0 && (errno == ENOSYS || errno == EPERM);
    return isUnknown ? OpenUnmounted(parent, name) : static_cast<int>(opened);
}

// Gives the owner all rights to the very folder that was found, never through a link.
template <class IsMeant>
bool GrantAccess(int parent, const char* name, IsMeant isMeant) {
    const int found = openat(parent, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (found < 0) return false;
    const std::string link = "/proc/self/fd/" + std::to_string(found);
    struct stat status;
    const bool granted =
        fstat(found, &status) == 0 && isMeant(status) && chmod(link.c_str(), OWNER_ALONE) == 0;
    close(found);
    return granted;
}

// Takes away what a folder holds, on the one disk on which the folder lies.
class Clearing {
 public:
    explicit Clearing(dev_t folderDevice) : device(folderDevice) {}

    // Closes the folder.
    bool Clear(int folder, int levels = DEEPEST) {
        fchmod(folder, OWNER_ALONE);
        DIR* const entries = fdopendir(folder);
        if (entries == nullptr) {
            close(folder);
            return false;
        }
        bool isEmpty = false;
        bool allGone = true;
        for (int round = 0; round < MOST_ROUNDS && !isEmpty && allGone; ++round)
            allGone = ClearOnce(entries, levels, isEmpty);
        closedir(entries);
        return isEmpty && allGone;
    }

 private:
    bool ClearOnce(DIR* entries, int levels, bool& isEmpty) {
        bool allGone = true;
        isEmpty = true;
        rewinddir(entries);
        while (const dirent* entry = readdir(entries)) {
            const std::string_view name = entry->d_name;
            if (name == "." || name == "..") continue;
            isEmpty = false;
            allGone = Remove(dirfd(entries), entry->d_name, levels) && allGone;
        }
        return allGone;
    }

    bool Remove(int folder, const char* name, int levels) {
        if (unlinkat(folder, name, 0) == 0 || errno == ENOENT) return true;
        if ((errno != EISDIR && errno != EPERM) || levels == 0) return false;
        int below = OpenBelow(folder, name);
        if (below < 0 && errno == EACCES &&
            GrantAccess(folder, name, [&](const struct stat& found) { return found.st_dev == device; }))
            below = OpenBelow(folder, name);
        if (below < 0) return false;
        if (!IsOnDevice(below)) {
            close(below);
            return false;
        }
        return Clear(below, levels - 1) && unlinkat(folder, name, AT_REMOVEDIR) == 0;
    }

    bool IsOnDevice(int descriptor) const {
        struct stat status;
        return fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode) && status.st_dev == device;
    }

    dev_t device;
};

}  // namespace

OwnedFolder::OwnedFolder(fs::path madePath, int parentDescriptor, std::string madeName, Identity made)
    : path(std::move(madePath)),
      parent(parentDescriptor),
      name(std::move(madeName)),
      identity(made),
      maker(getpid()) {}

OwnedFolder::~OwnedFolder() {
    Remove();
}

// Takes the parent's descriptor when it succeeds.
std::unique_ptr<OwnedFolder> OwnedFolder::MakeAt(int parent, const fs::path& path, bool forOwnerAlone,
                                                 std::error_code& failed) {
    const std::string name = path.filename();
    struct stat status;
    const bool made = mkdirat(parent, name.c_str(), forOwnerAlone ? OWNER_ALONE : AS_MASKED) == 0;
    const bool isOwn = made && fstatat(parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                       S_ISDIR(status.st_mode) && status.st_uid == geteuid();
    failed = isOwn  ? std::error_code()
             : made ? std::make_error_code(std::errc::operation_not_permitted)
                    : LastError();
    if (!isOwn) return nullptr;
    return std::unique_ptr<OwnedFolder>(new OwnedFolder(path, parent, name, {status.st_dev, status.st_ino}));
}

std::unique_ptr<OwnedFolder> OwnedFolder::Make(const fs::path& path, std::error_code& failed) {
    fs::path whole = fs::absolute(path, failed);
    while (whole.has_parent_path() && (whole.filename().empty() || whole.filename() == ".") &&
           whole != whole.parent_path())
        whole = whole.parent_path();
    if (!failed) fs::create_directories(whole.parent_path(), failed);
    if (failed) return nullptr;
    const int parent = open(whole.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (parent < 0) {
        failed = LastError();
        return nullptr;
    }
    std::unique_ptr<OwnedFolder> made = MakeAt(parent, whole, false, failed);
    if (made == nullptr) close(parent);
    return made;
}

std::unique_ptr<OwnedFolder> OwnedFolder::MakeTemporary(const std::string& prefix, std::error_code& failed,
                                                        const fs::path& parent) {
    failed.clear();
    const fs::path among = parent.empty() ? fs::temp_directory_path(failed) : parent;
    if (failed) return nullptr;
    const fs::path whole = fs::absolute(among, failed);
    const int descriptor = failed ? -1 : open(whole.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) {
        if (!failed) failed = LastError();
        return nullptr;
    }
    std::random_device random;
    for (int trial = 0; trial < MOST_TRIALS; ++trial) {
        const std::string name = prefix + std::to_string(random()) + "-" + std::to_string(random());
        std::unique_ptr<OwnedFolder> made = MakeAt(descriptor, whole / name, true, failed);
        if (made != nullptr) return made;
        if (failed != std::errc::file_exists) break;
    }
    close(descriptor);
    return nullptr;
}

// -1 when what has the name now is not what was made.
int OwnedFolder::Open() const {
    if (parent < 0 || getpid() != maker) return -1;
    const auto isMade = [&](const struct stat& found) {
        return found.st_dev == identity.device && found.st_ino == identity.inode;
    };
    int folder = OpenBelow(parent, name.c_str());
    if (folder < 0 && errno == EACCES && GrantAccess(parent, name.c_str(), isMade))
        folder = OpenBelow(parent, name.c_str());
    struct stat status;
    if (folder < 0) return -1;
    if (fstat(folder, &status) == 0 && isMade(status)) return folder;
    close(folder);
    return -1;
}

bool OwnedFolder::End(int folder, bool isEmpty) {
    const bool isGone = folder >= 0 && isEmpty && unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0;
    Keep();
    return isGone;
}

bool OwnedFolder::Remove() {
    if (parent < 0) return false;
    const int folder = Open();
    return End(folder, folder >= 0 && Clearing(identity.device).Clear(folder));
}

bool OwnedFolder::RemoveFiles(const std::vector<std::string>& names) {
    const int folder = Open();
    for (const std::string& file : names)
        if (folder >= 0 && file.find('/') == std::string::npos) unlinkat(folder, file.c_str(), 0);
    if (folder >= 0) close(folder);
    return End(folder, true);
}

void OwnedFolder::Keep() {
    if (parent >= 0) close(parent);
    parent = -1;
}

}  // namespace tc
