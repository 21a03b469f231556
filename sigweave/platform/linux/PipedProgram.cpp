#include "sigweave/platform/PipedProgram.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>

#include "sigweave/platform/linux/ProgramStart.h"

namespace tc {
namespace {

constexpr int REPORT = 3;

void Close(int& descriptor) {
    if (descriptor >= 0) close(descriptor);
    descriptor = -1;
}

// Both ends above the numbers that the child gets, so that handing one over does not overwrite another.
bool MakePipe(int ends[2]) {
    int made[2];
    if (pipe2(made, O_CLOEXEC) != 0) return false;
    for (int i = 0; i < 2; ++i) {
        ends[i] = fcntl(made[i], F_DUPFD_CLOEXEC, REPORT + 1);
        close(made[i]);
    }
    return ends[0] >= 0 && ends[1] >= 0;
}

int Spawn(const std::string& path, const std::vector<std::string>& arguments, int input, int report,
          pid_t& child) {
    ProgramStart start;
    start.Give(input, STDIN_FILENO);
    start.Give(STDERR_FILENO, STDOUT_FILENO);
    start.Give(report, REPORT);
    start.CloseFrom(REPORT + 1);
    return start.Run(path, arguments, child);
}

}  // namespace

struct PipedProgram::Impl {
    ~Impl() {
        Close(input);
        Close(report);
    }

    std::mutex mutex;  // of the child's number, which another process may get after its end
    pid_t child = -1;
    int input = -1;
    int report = -1;
};

std::unique_ptr<PipedProgram> PipedProgram::Start(const std::string& path,
                                                  const std::vector<std::string>& arguments) {
    std::unique_ptr<PipedProgram> program(new PipedProgram);
    program->impl = std::make_unique<Impl>();
    Impl& impl = *program->impl;
    int input[2] = {-1, -1};
    int report[2] = {-1, -1};
    int code = 0;
    if (!MakePipe(input) || !MakePipe(report))
        code = errno;
    else
        code = Spawn(path, arguments, input[0], report[1], impl.child);
    Close(input[0]);
    Close(report[1]);
    impl.input = input[1];
    impl.report = report[0];
    if (code == 0) return program;
    impl.child = -1;
    program.reset();
    errno = code;
    return nullptr;
}

PipedProgram::~PipedProgram() {
    Kill();
    CloseInput();
    Wait();
}

bool PipedProgram::Write(std::string_view text) {
    while (!text.empty() && impl->input >= 0) {
        const ssize_t written = write(impl->input, text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return text.empty();
}

void PipedProgram::CloseInput() {
    Close(impl->input);
}

std::size_t PipedProgram::Read(char* bytes, std::size_t most) {
    ssize_t count = 0;
    do count = read(impl->report, bytes, most);
    while (count < 0 && errno == EINTR);
    return count > 0 ? static_cast<std::size_t>(count) : 0;
}

void PipedProgram::Kill() {
    const std::lock_guard lock(impl->mutex);
    if (impl->child > 0) kill(-impl->child, SIGKILL);  // with what it started
}

int PipedProgram::Wait() {
    if (impl->child <= 0) return -1;
    siginfo_t info{};
    while (waitid(P_PID, static_cast<id_t>(impl->child), &info, WEXITED | WNOWAIT) < 0 && errno == EINTR)
        continue;
    const std::lock_guard lock(impl->mutex);
    int status = 0;
    while (waitpid(impl->child, &status, 0) < 0 && errno == EINTR) continue;
    impl->child = -1;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace tc
