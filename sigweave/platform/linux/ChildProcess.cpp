#include "sigweave/platform/ChildProcess.h"

#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace tc {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr char FINISHED = '\0';
constexpr int EXIT_SILENCED = 251;
constexpr int POLL_MILLISECONDS = 20;
constexpr std::size_t MOST_SAID = 4000;  // of each of its standard streams

struct RecordHead {
    std::uint32_t length;
    std::uint32_t kind;  // as wide as the length: no byte is sent that was never set
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

void Redirect(const char* file, int flags, int descriptor) {
    const int opened = open(file, flags | O_CLOEXEC, 0600);
    if (opened < 0) return;
    dup2(opened, descriptor);
    close(opened);
}

// Beside the folder "work" lie the files that the standard streams go to.
class WorkFolder {
 public:
    WorkFolder() {
        std::error_code failed;
        std::string name = (fs::temp_directory_path(failed) / "sigweave-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) return;
        path = name;
        fs::create_directory(Work(), failed);
    }
    ~WorkFolder() {
        std::error_code ignored;
        if (IsThere()) fs::remove_all(path, ignored);
    }
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;

    bool IsThere() const { return !path.empty(); }
    fs::path Work() const { return path / "work"; }
    fs::path Output() const { return path / "output"; }
    fs::path Errors() const { return path / "errors"; }
    fs::path Of(const std::string& variable) const { return path / variable; }

 private:
    fs::path path;
};

std::string Begin(const fs::path& file) {
    std::string text(MOST_SAID, '\0');
    std::ifstream stream(file, std::ios::binary);
    stream.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(stream.gcount()));
    return text;
}

[[noreturn]] void WorkInChild(const ChildPlan& plan, const WorkFolder& folder, int pipeEnd,
                              const std::function<void(const ChildReport&)>& work) {
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    signal(SIGINT, SIG_DFL);
    signal(SIGTERM, SIG_DFL);
    Redirect("/dev/null", O_RDONLY, STDIN_FILENO);
    Redirect(folder.Output().c_str(), O_WRONLY | O_CREAT | O_APPEND, STDOUT_FILENO);
    Redirect(folder.Errors().c_str(), O_WRONLY | O_CREAT | O_APPEND, STDERR_FILENO);
    for (const std::string& name : plan.fileVariables) setenv(name.c_str(), folder.Of(name).c_str(), 1);
    std::error_code ignored;
    fs::current_path(folder.Work(), ignored);
    Limit(RLIMIT_CORE, 0);
    Limit(RLIMIT_AS, AddressSpaceInUse() + plan.memory);
    Limit(RLIMIT_FSIZE, plan.fileSize);
    const ChildReport report(pipeEnd);
    work(report);
    std::fflush(nullptr);
    report.Tell(FINISHED, {});
    _exit(0);
}

// Cuts what arrives at the pipe into the records that were told.
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
    bool HasFinished() const { return finished; }

 private:
    void TellWhole() {
        std::string_view rest = pending;
        RecordHead head{};
        while (rest.size() >= sizeof head) {
            std::memcpy(&head, rest.data(), sizeof head);
            if (rest.size() - sizeof head < head.length) break;
            const std::string_view text = rest.substr(sizeof head, head.length);
            rest.remove_prefix(sizeof head + head.length);
            if (head.kind == FINISHED)
                finished = true;
            else
                onReport(static_cast<char>(head.kind), text);
        }
        pending.erase(0, pending.size() - rest.size());
    }

    int descriptor;
    const std::function<void(char, std::string_view)>& onReport;
    std::string pending;
    bool finished = false;
    bool isOpen = true;
};

ChildEnd Judge(int status, bool finished) {
    ChildEnd end;
    if (WIFSIGNALED(status)) {
        end.kind = ChildEnd::Kind::Killed;
        end.number = WTERMSIG(status);
        const char* name = sigabbrev_np(end.number);
        end.signal = name != nullptr ? std::string("SIG") + name : "signal " + std::to_string(end.number);
        return end;
    }
    end.number = WEXITSTATUS(status);
    const bool silenced = end.number == EXIT_SILENCED;
    end.kind = finished   ? ChildEnd::Kind::Finished
               : silenced ? ChildEnd::Kind::Silenced
                          : ChildEnd::Kind::Exited;
    return end;
}

ChildEnd WaitFor(pid_t child, int pipeEnd, Clock::time_point deadline, Listener& listener) {
    ChildEnd end;
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (Clock::now() > deadline) {
            kill(-child, SIGKILL);
            waitpid(child, &status, 0);
            end.kind = ChildEnd::Kind::TimedOut;
            return end;
        }
        pollfd waiting{pipeEnd, POLLIN, 0};
        poll(&waiting, listener.IsOpen() ? 1 : 0, listener.IsOpen() ? POLL_MILLISECONDS : 1);
        if (waiting.revents != 0) listener.Listen();
    }
    while (listener.Listen()) {
    }
    return Judge(status, listener.HasFinished());
}

}  // namespace

void ChildReport::Tell(char kind, std::string_view text) const {
    const RecordHead head{static_cast<std::uint32_t>(text.size()), static_cast<unsigned char>(kind)};
    std::string record(reinterpret_cast<const char*>(&head), sizeof head);
    record += text;
    if (!WriteAll(descriptor, record.data(), record.size())) _exit(EXIT_SILENCED);
}

ChildEnd RunInChild(const ChildPlan& plan, const std::function<void(const ChildReport&)>& work,
                    const std::function<void(char kind, std::string_view text)>& onReport) {
    ChildEnd end;
    const WorkFolder folder;
    int pipeEnds[2];
    if (!folder.IsThere() || pipe2(pipeEnds, O_CLOEXEC) != 0) {
        end.number = errno;
        return end;
    }
    std::fflush(nullptr);  // else an exit() in the child writes what waits here once more
    const pid_t child = fork();
    if (child == 0) WorkInChild(plan, folder, pipeEnds[1], work);
    end.number = errno;
    close(pipeEnds[1]);
    if (child > 0) {
        setpgid(child, child);
        fcntl(pipeEnds[0], F_SETFL, O_NONBLOCK);
        Listener listener(pipeEnds[0], onReport);
        end = WaitFor(child, pipeEnds[0], Clock::now() + plan.time, listener);
        kill(-child, SIGKILL);
        end.output = Begin(folder.Output());
        end.errors = Begin(folder.Errors());
    }
    close(pipeEnds[0]);
    return end;
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
