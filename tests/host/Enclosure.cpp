#include "tests/host/Enclosure.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

namespace fs = std::filesystem;

namespace {

constexpr int NO_PLACE = 99, PROCESSES_LEFT = 98;

bool Write(const char* file, const std::string& text) {
    std::ofstream stream(file);
    return static_cast<bool>(stream << text << std::flush);
}

std::string Read(const fs::path& file) {
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    return text.str();
}

bool SetReadOnly(const char* path, unsigned flags, bool readOnly) {
    mount_attr attributes{};
    (readOnly ? attributes.attr_set : attributes.attr_clr) = MOUNT_ATTR_RDONLY;
    return mount_setattr(AT_FDCWD, path, flags, &attributes, sizeof attributes) == 0;
}

// As an ordinary user of number 1000, whoever it is outside.
bool EnterNamespaces() {
    const std::string user = "1000 " + std::to_string(geteuid()) + " 1";
    const std::string group = "1000 " + std::to_string(getegid()) + " 1";
    constexpr int NAMESPACES = CLONE_NEWUSER | CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWNET | CLONE_NEWIPC;
    return unshare(NAMESPACES) == 0 && Write("/proc/self/setgroups", "deny") &&
           Write("/proc/self/uid_map", user) && Write("/proc/self/gid_map", group);
}

// All is read-only but the folder, which is tried out.
bool MakeReadOnly(const fs::path& folder) {
    const char* const path = folder.c_str();
    if (mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount(path, path, "none", MS_BIND, nullptr) != 0 || !SetReadOnly("/", AT_RECURSIVE, true) ||
        !SetReadOnly(path, 0, false))
        return false;
    mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr);
    const std::string outside = folder.string() + "-outside";
    const bool canWriteOutside = open(outside.c_str(), O_WRONLY | O_CREAT, 0600) >= 0 || errno != EROFS;
    return !canWriteOutside && Write((folder / "tried").c_str(), "x") && !Write("/tried", "x");
}

bool GiveUpPrivileges() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    const __user_cap_data_struct none[2] = {};
    return syscall(SYS_capset, &header, none) == 0 && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
}

bool Refuse(unsigned call, unsigned error) {
    sock_filter filter[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1),
                            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
                            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    const sock_fprog program{static_cast<unsigned short>(std::size(filter)), filter};
    return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

// Filters of system calls, after the last one of its own.
bool RefuseFilters() {
    sock_filter filter[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_prctl, 0, 3),
                            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args)),
                            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, PR_SET_SECCOMP, 0, 1),
                            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EINVAL),
                            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    const sock_fprog program{static_cast<unsigned short>(std::size(filter)), filter};
    return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

bool Withhold(Enclosure::Lacks lacks) {
    using Lacks = Enclosure::Lacks;
    if (lacks == Lacks::EnteringFolders) return Refuse(SYS_fchdir, EACCES);
    return (lacks < Lacks::Namespaces || Refuse(SYS_unshare, EPERM)) &&
           (lacks < Lacks::AllConfinement || Refuse(SYS_landlock_create_ruleset, ENOSYS)) &&
           (lacks < Lacks::FiltersToo || RefuseFilters());
}

void Equip(const fs::path& folder, const std::string& deed) {
    setenv("CANARY", (folder / "canary").c_str(), 1);
    setenv("DEED", deed.c_str(), 1);
    setenv("TMPDIR", (folder / "temporary").c_str(), 1);
    setenv("HOME", (folder / "here").c_str(), 1);
    setenv("SIGWEAVE_USER_HIVE", (folder / "user.db").c_str(), 1);
    setenv("SIGWEAVE_MACHINE_HIVE", (folder / "machine.db").c_str(), 1);
    setenv("ASAN_OPTIONS", "handle_segv=0:detect_leaks=0", 1);
}

// The first process of the namespace, with which all others end.
[[noreturn]] void RunEnclosed(const fs::path& folder, const std::string& command, const std::string& deed,
                              Enclosure::Lacks lacks) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getpid() != 1 || !MakeReadOnly(folder) || !GiveUpPrivileges() || !Withhold(lacks)) _exit(NO_PLACE);
    Equip(folder, deed);
    const std::string whole =
        "cd '" + folder.string() + "/here' && " + command + " >../out 2>../err </dev/null";
    const pid_t shell = fork();
    if (shell == 0) {
        execl("/bin/sh", "sh", "-c", whole.c_str(), nullptr);
        _exit(127);
    }
    int status = 0;
    while (waitpid(shell, &status, 0) < 0) continue;
    while (waitpid(-1, nullptr, WNOHANG) > 0) continue;
    Write((folder / "code").c_str(), std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -1));
    _exit(kill(-1, 0) == 0 ? PROCESSES_LEFT : 0);
}

}  // namespace

Enclosure::Enclosure() {
    std::error_code failed;
    folder = tc::OwnedFolder::MakeTemporary("sigweave-enclosure-", failed);
    if (folder == nullptr) throw std::system_error(failed);
    for (const char* name : {"here", "temporary", "canary", "canary/below"})
        fs::create_directory(folder->Path() / name);
    for (const char* name : {"here/mine.txt", "canary/a.txt", "canary/below/b.txt"})
        Write((folder->Path() / name).c_str(), "what the user wrote");
    before = Describe();
}

// Names, modes and contents.
std::string Enclosure::Describe() const {
    std::set<std::string> lines;
    for (const char* part : {"here", "canary", "temporary"})
        for (const auto& entry : fs::recursive_directory_iterator(folder->Path() / part)) {
            const auto mode = static_cast<unsigned>(entry.symlink_status().permissions());
            lines.insert(entry.path().string() + " " + std::to_string(mode) + " " +
                         (entry.is_regular_file() ? Read(entry.path()) : ""));
        }
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    return text;
}

void Enclosure::ExpectUntouched() const {
    EXPECT_EQ(Describe(), before);
}

Enclosure::Answer Enclosure::Run(const std::string& command, const std::string& deed, Lacks lacks) const {
    const pid_t outside = fork();
    if (outside == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const pid_t first = EnterNamespaces() ? fork() : -1;
        if (first == 0) RunEnclosed(folder->Path(), command, deed, lacks);
        int status = 0;
        _exit(first > 0 && waitpid(first, &status, 0) == first && WIFEXITED(status) ? WEXITSTATUS(status)
                                                                                    : NO_PLACE);
    }
    int status = 0;
    waitpid(outside, &status, 0);
    Answer answer;
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : NO_PLACE;
    if (code == NO_PLACE)
        answer.whyNot = "this system offers no namespaces in which hostile code can do no harm";
    if (code == NO_PLACE) return answer;
    answer.code = std::atoi(Read(folder->Path() / "code").c_str());
    answer.out = Read(folder->Path() / "out");
    answer.err = Read(folder->Path() / "err");
    answer.leftProcesses = code == PROCESSES_LEFT;
    return answer;
}
