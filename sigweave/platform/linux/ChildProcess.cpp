#include "sigweave/platform/ChildProcess.h"

#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "sigweave/platform/OwnedFolder.h"

// The parent forks a watcher, and that the child. The watcher is the first process of the child's namespace
// where there is one, and else the one to which whatever the child starts falls back; so when it ends,
// nothing is left. A signal that the child sends upwards reaches the watcher and not the parent.
namespace tc {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

// The watch's own records, and the first letters of their texts.
constexpr char OF_THE_WATCH = '\0';
constexpr char FINISHED = 'f', NOT_STARTED = 'n';

constexpr int EXIT_SILENCED = 251, EXIT_NOT_STARTED = 252;
constexpr int PIPE = 3;  // the child's end, the only descriptor besides the standard streams
constexpr std::chrono::milliseconds GRACE{3000};  // for the watcher to end what has timed out
constexpr int MOST_ROUNDS = 1000;                 // of a millisecond, until what was killed is gone
constexpr std::size_t MOST_SAID = 4000;           // of each of its standard streams
constexpr int MOST_WAIT = 1000;                   // milliseconds

struct RecordHead {
    std::uint32_t length;
    std::uint32_t kind;  // as wide as the length: no byte is sent that was never set
};

// What the watcher says at its end. Zeros: nothing.
struct Verdict {
    int status;     // of the child, as waitpid gives it
    int timedOut;   // 1: then it was killed
    int signalled;  // the signal that it sent
    int ended;      // 1: the watcher saw it end
    int step;       // of an entry that failed in the watcher, with the error number
    int number;
};

bool WriteAll(int descriptor, const void* data, std::size_t size) {
    const char* next = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t written = write(descriptor, next, size);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        next += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

std::size_t AddressSpaceInUse() {
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

void Limit(__rlimit_resource resource, std::size_t most) {
    const rlimit limit{most, most};
    setrlimit(resource, &limit);
}

class Descriptor {
 public:
    Descriptor() = default;
    ~Descriptor() { Close(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int Get() const { return number; }
    void Take(int opened) {
        Close();
        number = opened;
    }
    void Close() {
        if (number >= 0) close(number);
        number = -1;
    }

 private:
    int number = -1;
};

struct Pipe {
    bool Open() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) return false;
        reading.Take(ends[0]);
        writing.Take(ends[1]);
        return true;
    }
    Descriptor reading;
    Descriptor writing;
};

// In a temporary folder of the parent's: one that the child may write, and in it those for its work, for
// temporary files and for what programs keep for their user.
class Places {
 public:
    bool Make() {
        std::error_code failed;
        folder = OwnedFolder::MakeTemporary("sigweave-", failed);
        for (const char* name : {"open", "open/work", "open/temporary", "open/home"})
            if (!failed) fs::create_directory(folder->Path() / name, failed);
        struct stat status;
        if (!failed && stat(Work().c_str(), &status) == 0) {
            device = status.st_dev;
            inode = status.st_ino;
        }
        errno = failed.value();
        return !failed && inode != 0;
    }
    // Where another folder is entered than was made, the answer is false.
    bool EnterWork() const {
        struct stat status;
        errno = 0;
        return chdir(Work().c_str()) == 0 && stat(".", &status) == 0 && status.st_dev == device &&
               status.st_ino == inode && access(".", W_OK) == 0;
    }
    // Answers its path when it could not be taken away whole.
    std::string Remove() {
        if (folder == nullptr || folder->Remove()) return {};
        return folder->Path().string();
    }
    std::string Outside() const { return (folder->Path() / "outside").string(); }
    std::string Open() const { return (folder->Path() / "open").string(); }
    std::string In(const std::string& name) const { return Open() + "/" + name; }

 private:
    std::string Work() const { return In("work"); }

    std::unique_ptr<OwnedFolder> folder;
    dev_t device = 0;
    ino_t inode = 0;
};

std::string Begin(int file) {
    std::string text(MOST_SAID, '\0');
    const ssize_t count = pread(file, text.data(), text.size(), 0);
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return text;
}

// What a child is made with.
struct Equipment {
    const ChildPlan& plan;
    const std::function<void(const ChildReport&, ChildPlace&)>& work;
    pid_t parent = getpid();
    Places places{};
    Pipe records{};   // of the child
    Pipe verdicts{};  // of the watcher
    Descriptor output{};
    Descriptor errors{};

    bool Make() {
        if (!records.Open() || !verdicts.Open()) return false;
        output.Take(memfd_create("output", MFD_CLOEXEC));
        errors.Take(memfd_create("errors", MFD_CLOEXEC));
        return output.Get() >= 0 && errors.Get() >= 0;
    }
};

// --- In the child

[[noreturn]] void RefuseToStart(ChildEnd::Step step) {
    const std::string text =
        NOT_STARTED + std::to_string(static_cast<int>(step)) + " " + std::to_string(errno);
    ChildReport(PIPE).Tell(OF_THE_WATCH, text);
    _exit(EXIT_NOT_STARTED);
}

void TakeStreams(const Equipment& equipment) {
    const int input = open("/dev/null", O_RDONLY | O_CLOEXEC);
    dup2(input, STDIN_FILENO);
    fcntl(equipment.output.Get(), F_SETFL, O_APPEND);
    fcntl(equipment.errors.Get(), F_SETFL, O_APPEND);
    dup2(equipment.output.Get(), STDOUT_FILENO);
    dup2(equipment.errors.Get(), STDERR_FILENO);
    const int records = fcntl(equipment.records.writing.Get(), F_DUPFD, PIPE + 1);
    dup3(records, PIPE, O_CLOEXEC);
    closefrom(PIPE + 1);
}

void TellPlaces(const Equipment& equipment) {
    const Places& places = equipment.places;
    for (const std::string& name : equipment.plan.fileVariables)
        setenv(name.c_str(), places.In(name).c_str(), 1);
    setenv("TMPDIR", places.In("temporary").c_str(), 1);
    for (const char* name :
         {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_STATE_HOME", "XDG_CACHE_HOME", "XDG_RUNTIME_DIR"})
        setenv(name, places.In("home").c_str(), 1);
}

// And sees to it that it holds.
bool Confine(const Equipment& equipment) {
    const Confinement& wanted = equipment.plan.confinement;
    const Places& places = equipment.places;
    GiveUpPrivileges();
    if (wanted.fileRules > 0 && !RestrictFiles(wanted.fileRules, places.Open().c_str())) return false;
    const int outside =
        wanted.IsNone() ? -1 : open(places.Outside().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (outside >= 0) return false;
    const pid_t parent = wanted.namespaces ? getppid() : equipment.parent;
    ForbidSignalsTo({getppid(), parent, -1});
    return true;
}

[[noreturn]] void WorkInChild(const Equipment& equipment) {
    sigset_t none;
    sigemptyset(&none);
    setsid();
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    signal(SIGINT, SIG_DFL);
    signal(SIGTERM, SIG_DFL);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    TakeStreams(equipment);
    TellPlaces(equipment);
    if (!equipment.places.EnterWork()) RefuseToStart(ChildEnd::Step::Entry);
    Limit(RLIMIT_CORE, 0);
    Limit(RLIMIT_AS, AddressSpaceInUse() + equipment.plan.memory);
    Limit(RLIMIT_FSIZE, equipment.plan.fileSize);
    if (!Confine(equipment)) RefuseToStart(ChildEnd::Step::Confinement);
    ChildPlace place;
    if (!place.EnterFresh()) RefuseToStart(ChildEnd::Step::Entry);
    const ChildReport report(PIPE);
    equipment.work(report, place);
    std::fflush(nullptr);
    report.Tell(OF_THE_WATCH, std::string(1, FINISHED));
    _exit(0);
}

// --- In the watcher

// Or of one that it started; also one that is gone. Processes outside the namespace have the number 0.
bool IsOfTheChild(pid_t process, pid_t child) {
    const pid_t session = process != 0 ? getsid(process) : 0;
    return session == child || session < 0;
}

// Until the time is up. Notes the child's end, and who signals.
void Watch(pid_t child, const Equipment& equipment, Clock::time_point deadline, const sigset_t& all,
           Verdict& verdict) {
    for (;;) {
        const auto rest =
            std::chrono::duration_cast<std::chrono::nanoseconds>(deadline - Clock::now()).count();
        const timespec time{rest / 1000000000, rest % 1000000000};
        siginfo_t info{};
        const int signal = rest > 0 ? sigtimedwait(&all, &info, &time) : -1;
        if (rest <= 0) {
            verdict.timedOut = 1;
            return;
        }
        const bool isSent = signal > 0 && signal != SIGCHLD && info.si_code <= 0;
        if (isSent && info.si_pid != equipment.parent && IsOfTheChild(info.si_pid, child))
            verdict.signalled = signal;
        int status = 0;
        for (pid_t ended; (ended = waitpid(-1, &status, WNOHANG)) > 0;)
            if (ended == child) {
                verdict.status = status;
                verdict.ended = 1;
            }
        if (verdict.ended != 0) return;
    }
}

// Where nothing else ends them: the processes of the child fall back to the watcher when theirs have ended.
void EndTheRest(pid_t child) {
    kill(-child, SIGKILL);
    for (int round = 0; round < MOST_ROUNDS; ++round) {
        std::ifstream children("/proc/self/task/" + std::to_string(getpid()) + "/children");
        for (pid_t process; children >> process;) kill(process, SIGKILL);
        pid_t ended = 0;
        while ((ended = waitpid(-1, nullptr, WNOHANG)) > 0) continue;
        if (ended < 0) return;
        poll(nullptr, 0, 1);
    }
}

[[noreturn]] void WatchChild(Equipment& equipment, Clock::time_point deadline) {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr);
    signal(SIGCHLD, SIG_DFL);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    if (equipment.plan.confinement.namespaces) EnterProcesses();
    GiveUpPrivileges();
    Verdict verdict{};
    const pid_t child = fork();
    if (child == 0) WorkInChild(equipment);
    equipment.records.writing.Close();
    verdict.step = static_cast<int>(ChildEnd::Step::Process);
    verdict.number = errno;
    if (child > 0) {
        Watch(child, equipment, deadline, all, verdict);
        if (!equipment.plan.confinement.namespaces) EndTheRest(child);
    }
    WriteAll(equipment.verdicts.writing.Get(), &verdict, sizeof verdict);
    _exit(0);
}

[[noreturn]] void BeginWatching(Equipment& equipment) {
    const Clock::time_point deadline = Clock::now() + equipment.plan.time;
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != equipment.parent) _exit(EXIT_NOT_STARTED);
    if (!equipment.plan.confinement.namespaces) WatchChild(equipment, deadline);
    Verdict verdict{};
    errno = 0;
    const bool entered = EnterNamespaces(equipment.places.Open().c_str());
    verdict.number = errno;
    verdict.step = static_cast<int>(ChildEnd::Step::Confinement);
    const pid_t first = entered ? fork() : -1;
    if (first == 0) WatchChild(equipment, deadline);
    if (first < 0) WriteAll(equipment.verdicts.writing.Get(), &verdict, sizeof verdict);
    equipment.records.writing.Close();
    equipment.verdicts.writing.Close();
    if (first > 0) waitpid(first, nullptr, 0);
    _exit(0);
}

// --- In the parent

// Cuts what arrives at the pipe into the records that were reported.
class Listener {
 public:
    Listener(int pipeEnd, const std::function<void(char, std::string_view)>& callback)
        : descriptor(pipeEnd), onReport(callback) {}

    // False when there is nothing to hear now.
    bool Listen() {
        char buffer[65536];
        const ssize_t count = read(descriptor, buffer, sizeof buffer);
        isOpen = count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR));
        if (count <= 0) return false;
        pending.append(buffer, static_cast<std::size_t>(count));
        TellWhole();
        return true;
    }
    bool IsOpen() const { return isOpen; }
    // The last record of the watch; empty when there was none.
    const std::string& Ending() const { return ending; }

 private:
    void TellWhole() {
        std::string_view rest = pending;
        RecordHead head{};
        while (rest.size() >= sizeof head) {
            std::memcpy(&head, rest.data(), sizeof head);
            if (rest.size() - sizeof head < head.length) break;
            const std::string_view text = rest.substr(sizeof head, head.length);
            rest.remove_prefix(sizeof head + head.length);
            if (head.kind == OF_THE_WATCH)
                ending = text;
            else
                onReport(static_cast<char>(head.kind), text);
        }
        pending.erase(0, pending.size() - rest.size());
    }

    int descriptor;
    const std::function<void(char, std::string_view)>& onReport;
    std::string pending;
    std::string ending;
    bool isOpen = true;
};

std::string SignalName(int signal) {
    const char* name = sigabbrev_np(signal);
    return name != nullptr ? std::string("SIG") + name : "signal " + std::to_string(signal);
}

ChildEnd NotStarted(int step, int number) {
    ChildEnd end;
    end.step = static_cast<ChildEnd::Step>(step);
    end.number = number;
    return end;
}

ChildEnd Judge(const Verdict& verdict, const std::string& ending) {
    ChildEnd end;
    int step = 0, number = 0;
    if (!ending.empty() && ending[0] == NOT_STARTED &&
        std::sscanf(ending.c_str() + 1, "%d %d", &step, &number) == 2)
        return NotStarted(step, number);
    if (verdict.ended == 0 && verdict.timedOut == 0) return NotStarted(verdict.step, verdict.number);
    const bool isForbidden = WIFSIGNALED(verdict.status) && WTERMSIG(verdict.status) == SIGSYS;
    if (verdict.signalled != 0 || isForbidden) {
        end.kind = ChildEnd::Kind::Signalled;
        end.number = verdict.signalled;
        if (verdict.signalled != 0) end.signal = SignalName(verdict.signalled);
        return end;
    }
    if (verdict.timedOut != 0) {
        end.kind = ChildEnd::Kind::TimedOut;
        return end;
    }
    if (WIFSIGNALED(verdict.status)) {
        end.kind = ChildEnd::Kind::Killed;
        end.number = WTERMSIG(verdict.status);
        end.signal = SignalName(end.number);
        return end;
    }
    end.number = WEXITSTATUS(verdict.status);
    const bool finished = !ending.empty() && ending[0] == FINISHED;
    end.kind = finished                      ? ChildEnd::Kind::Finished
               : end.number == EXIT_SILENCED ? ChildEnd::Kind::Silenced
                                             : ChildEnd::Kind::Exited;
    return end;
}

// Until the watcher has ended, and so all that the child started. A watcher that says nothing was ended by
// it.
ChildEnd WaitFor(pid_t watcher, const Equipment& equipment, Listener& listener) {
    const Clock::time_point last = Clock::now() + equipment.plan.time + GRACE;
    const int verdicts = equipment.verdicts.reading.Get();
    Verdict verdict{};
    bool isToldOf = false;
    for (bool isOpen = true; isOpen;) {
        pollfd waiting[] = {{verdicts, POLLIN, 0}, {equipment.records.reading.Get(), POLLIN, 0}};
        poll(waiting, listener.IsOpen() ? 2 : 1, MOST_WAIT);
        if (waiting[1].revents != 0) listener.Listen();
        if (waiting[0].revents != 0) {
            isToldOf = read(verdicts, &verdict, sizeof verdict) == sizeof verdict;
            isOpen = false;
        }
        isOpen = isOpen && Clock::now() < last;
    }
    if (!isToldOf) kill(-watcher, SIGKILL);
    waitpid(watcher, nullptr, 0);
    while (listener.Listen()) continue;
    if (isToldOf) return Judge(verdict, listener.Ending());
    ChildEnd end;
    end.kind = Clock::now() < last ? ChildEnd::Kind::Signalled : ChildEnd::Kind::TimedOut;
    return end;
}

}  // namespace

void ChildReport::Tell(char kind, std::string_view text) const {
    const RecordHead head{static_cast<std::uint32_t>(text.size()), static_cast<unsigned char>(kind)};
    std::string record(reinterpret_cast<const char*>(&head), sizeof head);
    record += text;
    if (!WriteAll(descriptor, record.data(), record.size())) _exit(EXIT_SILENCED);
}

ChildEnd RunInChild(const ChildPlan& plan, const std::function<void(const ChildReport&, ChildPlace&)>& work,
                    const std::function<void(char kind, std::string_view text)>& onReport) {
    Equipment equipment{plan, work};
    ChildEnd end;
    if (!equipment.places.Make() || !equipment.Make()) {
        end.number = errno;
        end.left = equipment.places.Remove();
        return end;
    }
    std::fflush(nullptr);  // else an exit() in the child writes what waits here once more
    const pid_t watcher = fork();
    if (watcher == 0) BeginWatching(equipment);
    if (watcher > 0) {
        setpgid(watcher, watcher);
        equipment.records.writing.Close();
        equipment.verdicts.writing.Close();
        fcntl(equipment.records.reading.Get(), F_SETFL, O_NONBLOCK);
        Listener listener(equipment.records.reading.Get(), onReport);
        end = WaitFor(watcher, equipment, listener);
        end.output = Begin(equipment.output.Get());
        end.errors = Begin(equipment.errors.Get());
    } else {
        end = NotStarted(static_cast<int>(ChildEnd::Step::Process), errno);
    }
    end.left = equipment.places.Remove();
    return end;
}

Confinement FindConfinement(ChildEnd& end) {
    ChildPlan plan;
    const auto works = [&](const Confinement& tried) {
        plan.confinement = tried;
        end = RunInChild(
            plan, [](const ChildReport&, ChildPlace&) {}, [](char, std::string_view) {});
        return end.kind == ChildEnd::Kind::Finished;
    };
    const int version = FileRulesVersion();
    for (const Confinement& tried :
         {Confinement{true, version}, Confinement{true, 0}, Confinement{false, version}})
        if (!tried.IsNone() && works(tried)) return tried;
    works({});
    return {};
}

// Small chunks that were freed and wait in the thread's cache count as used. So all that it can hold are
// taken out before the measuring, and the number of chunks in use depends on the program alone.
std::int64_t HeapInUse() {
    constexpr std::size_t CACHED_SIZES = 64;
    constexpr std::size_t CACHED_EACH = 7;
    constexpr std::size_t PROBE = 65536;
    void* volatile cached[CACHED_SIZES * CACHED_EACH];
    for (std::size_t i = 0; i < std::size(cached); ++i) cached[i] = std::malloc(24 + 16 * (i / CACHED_EACH));
    const auto measure = [] {
        const struct mallinfo2 info = mallinfo2();
        return static_cast<std::int64_t>(info.uordblks + info.hblkhd);
    };
    const std::int64_t bytes = measure();
    void* volatile probe = std::malloc(PROBE);
    const bool isSeen = measure() >= bytes + static_cast<std::int64_t>(PROBE);
    std::free(probe);
    for (void* chunk : cached) std::free(chunk);
    return isSeen ? bytes : -1;  // the heap of a sanitizer is not counted there
}

}  // namespace tc
