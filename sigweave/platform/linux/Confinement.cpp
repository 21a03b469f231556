#include "sigweave/platform/Confinement.h"

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/capability.h>
#include <linux/filter.h>
#include <linux/landlock.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace tc {
namespace {

constexpr const char* HARMLESS_DEVICES[] = {"/dev/null", "/dev/zero", "/dev/full", "/dev/random",
                                            "/dev/urandom"};

bool WriteText(const std::string& file, const std::string& text) {
    const int opened = open(file.c_str(), O_WRONLY | O_CLOEXEC);
    if (opened < 0) return false;
    const bool written = write(opened, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(opened);
    return written;
}

// Every number keeps its meaning.
std::string SameIds(const char* map) {
    std::ifstream file(map);
    std::string text;
    for (std::uint64_t inside, outside, count; file >> inside >> outside >> count;)
        text += std::to_string(inside) + " " + std::to_string(inside) + " " + std::to_string(count) + "\n";
    return text;
}

// A superuser reads everybody's files, and then must be able to do so inside too. Only a process that stayed
// outside can arrange that, so one is forked before the namespace is entered.
class IdMapper {
 public:
    IdMapper() : users(SameIds("/proc/self/uid_map")), groups(SameIds("/proc/self/gid_map")) {
        if (geteuid() != 0 || pipe2(ends, O_CLOEXEC) != 0) return;
        helper = fork();
        if (helper == 0) Work(getppid());
        close(ends[0]);
    }
    // To be called inside, once.
    bool Map() {
        if (helper > 0) {
            int status = -1;
            const bool woken = write(ends[1], "", 1) == 1;
            close(ends[1]);
            if (waitpid(helper, &status, 0) == helper && woken && status == 0) return true;
        }
        const std::string user = std::to_string(own.user), group = std::to_string(own.group);
        return WriteText("/proc/self/setgroups", "deny") &&
               WriteText("/proc/self/uid_map", user + " " + user + " 1") &&
               WriteText("/proc/self/gid_map", group + " " + group + " 1");
    }
    // When there is nothing to map.
    void Dismiss() {
        if (helper <= 0) return;
        close(ends[1]);
        waitpid(helper, nullptr, 0);
    }

 private:
    [[noreturn]] void Work(pid_t process) const {
        char byte = 0;
        close(ends[1]);
        const std::string folder = "/proc/" + std::to_string(process);
        const bool wanted = read(ends[0], &byte, 1) == 1;
        _exit(wanted && WriteText(folder + "/uid_map", users) && WriteText(folder + "/gid_map", groups) ? 0
                                                                                                        : 1);
    }

    struct {
        uid_t user = geteuid();
        gid_t group = getegid();
    } own;
    std::string users;
    std::string groups;
    int ends[2] = {-1, -1};
    pid_t helper = -1;
};

bool SetAttributes(const char* path, unsigned flags, std::uint64_t set, std::uint64_t clear) {
    mount_attr attributes{};
    attributes.attr_set = set;
    attributes.attr_clr = clear;
    return mount_setattr(AT_FDCWD, path, flags, &attributes, sizeof attributes) == 0;
}

bool BindToItself(const char* path) {
    return mount(path, path, "none", MS_BIND, nullptr) == 0;
}

// What the newest header of the system does not name yet.
constexpr std::uint64_t TRUNCATE = 1ull << 14, DEVICE_CONTROL = 1ull << 15;
constexpr std::uint64_t SCOPES = 3;  // sockets without a file, and signals
constexpr std::uint64_t READING =
    LANDLOCK_ACCESS_FS_EXECUTE | LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;
constexpr std::uint64_t OF_DEVICES =
    LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_WRITE_FILE | TRUNCATE | DEVICE_CONTROL;

struct Ruleset {
    std::uint64_t files;
    std::uint64_t network;
    std::uint64_t scopes;
};

std::uint64_t KnownRights(int version) {
    std::uint64_t rights = LANDLOCK_ACCESS_FS_REFER - 1;  // the 13 of version 1
    if (version >= 2) rights |= LANDLOCK_ACCESS_FS_REFER;
    if (version >= 3) rights |= TRUNCATE;
    if (version >= 5) rights |= DEVICE_CONTROL;
    return rights;
}

bool Allow(int ruleset, const char* path, std::uint64_t rights) {
    const int opened = open(path, O_PATH | O_CLOEXEC);
    if (opened < 0) return false;
    landlock_path_beneath_attr rule{};
    rule.allowed_access = rights;
    rule.parent_fd = opened;
    const bool added = syscall(SYS_landlock_add_rule, ruleset, LANDLOCK_RULE_PATH_BENEATH, &rule, 0) == 0;
    close(opened);
    return added;
}

struct ForbiddenCall {
    unsigned number;
    bool mayAsk;  // whether the second argument 0 means only a question
};

// Each takes the process as its first argument.
constexpr ForbiddenCall SIGNALLING[] = {{SYS_kill, true},
                                        {SYS_tkill, true},
                                        {SYS_tgkill, false},
                                        {SYS_rt_sigqueueinfo, true},
                                        {SYS_rt_tgsigqueueinfo, false},
                                        {SYS_pidfd_open, false}};

constexpr unsigned Argument(unsigned index) {
    return static_cast<unsigned>(offsetof(seccomp_data, args) + index * sizeof(std::uint64_t));
}

}  // namespace

int FileRulesVersion() {
    const long version = syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    return version > 0 ? static_cast<int>(version) : 0;
}

bool EnterNamespaces(const char* folder) {
    IdMapper mapper;
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWNET | CLONE_NEWIPC) != 0) {
        mapper.Dismiss();
        return false;
    }
    if (!mapper.Map()) return false;
    if (mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0 || !BindToItself(folder)) return false;
    for (const char* device : HARMLESS_DEVICES) BindToItself(device);
    if (!SetAttributes("/", AT_RECURSIVE, MOUNT_ATTR_RDONLY | MOUNT_ATTR_NODEV | MOUNT_ATTR_NOSUID, 0))
        return false;
    for (const char* device : HARMLESS_DEVICES) SetAttributes(device, 0, 0, MOUNT_ATTR_NODEV);
    return SetAttributes(folder, 0, 0, MOUNT_ATTR_RDONLY);
}

// Where it is refused, the old one stays, read-only.
void EnterProcesses() {
    mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC | MS_RDONLY, nullptr);
}

void GiveUpPrivileges() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct kept[2] = {};
    syscall(SYS_capget, &header, kept);
    constexpr unsigned READ_EVERYTHING = 1u << CAP_DAC_READ_SEARCH;
    kept[0] = {kept[0].effective & READ_EVERYTHING, kept[0].permitted & READ_EVERYTHING, 0};
    kept[1] = {};
    syscall(SYS_capset, &header, kept);
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
}

bool RestrictFiles(int version, const char* folder) {
    const std::uint64_t known = KnownRights(version);
    const Ruleset rules{known, 0, version >= 6 ? SCOPES : 0};
    const std::size_t size = version >= 6 ? sizeof rules : offsetof(Ruleset, network);
    const auto ruleset = static_cast<int>(syscall(SYS_landlock_create_ruleset, &rules, size, 0));
    if (ruleset < 0) return false;
    const bool allowed = Allow(ruleset, "/", READING) && Allow(ruleset, folder, known);
    for (const char* device : HARMLESS_DEVICES) Allow(ruleset, device, OF_DEVICES & known);
    const bool restricted = allowed && syscall(SYS_landlock_restrict_self, ruleset, 0) == 0;
    close(ruleset);
    return restricted;
}

// For each process and each call: the call's number, its process and, where 0 only asks, its signal.
bool ForbidSignalsTo(std::initializer_list<int> processes) {
    constexpr unsigned LOAD = BPF_LD | BPF_W | BPF_ABS, EQUALS = BPF_JMP | BPF_JEQ | BPF_K;
    std::vector<sock_filter> filter = {BPF_STMT(LOAD, offsetof(seccomp_data, arch)),
                                       BPF_JUMP(EQUALS, AUDIT_ARCH_X86_64, 1, 0),
                                       BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    for (const int process : processes)
        for (const ForbiddenCall& call : SIGNALLING) {
            const unsigned char rest = call.mayAsk ? 5 : 3;
            filter.push_back(BPF_STMT(LOAD, offsetof(seccomp_data, nr)));
            filter.push_back(BPF_JUMP(EQUALS, call.number, 0, rest));
            filter.push_back(BPF_STMT(LOAD, Argument(0)));
            filter.push_back(
                BPF_JUMP(EQUALS, static_cast<unsigned>(process), 0, static_cast<unsigned char>(rest - 2)));
            if (call.mayAsk) {
                filter.push_back(BPF_STMT(LOAD, Argument(1)));
                filter.push_back(BPF_JUMP(EQUALS, 0, 1, 0));
            }
            filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS));
        }
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
    return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

}  // namespace tc
