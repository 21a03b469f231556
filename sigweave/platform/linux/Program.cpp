#include "sigweave/platform/Program.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>

namespace tc {
namespace {

namespace fs = std::filesystem;

// A file without a name, in memory: what a program reads and writes needs no pipe that could fill up.
class MemoryFile {
 public:
    explicit MemoryFile(const char* name) : descriptor(memfd_create(name, MFD_CLOEXEC)) {}
    ~MemoryFile() {
        if (descriptor >= 0) close(descriptor);
    }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    int Get() const { return descriptor; }
    bool Write(std::string_view text) const {
        while (!text.empty()) {
            const ssize_t written = write(descriptor, text.data(), text.size());
            if (written < 0 && errno == EINTR) continue;
            if (written <= 0) return false;
            text.remove_prefix(static_cast<std::size_t>(written));
        }
        return lseek(descriptor, 0, SEEK_SET) == 0;
    }
    std::string Content() const {
        const off_t size = lseek(descriptor, 0, SEEK_END);
        std::string content(size > 0 ? static_cast<std::size_t>(size) : 0, '\0');
        std::size_t done = 0;
        while (done < content.size()) {
            const ssize_t count =
                pread(descriptor, content.data() + done, content.size() - done, static_cast<off_t>(done));
            if (count <= 0) break;
            done += static_cast<std::size_t>(count);
        }
        content.resize(done);
        return content;
    }

 private:
    int descriptor;
};

// How a program is started; answers 0, or the error number.
class Start {
 public:
    Start(int input, int output, int complaint) {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
        posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, complaint, STDERR_FILENO);
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&attributes, &signals);
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&attributes, &signals);
        posix_spawnattr_setpgroup(&attributes, 0);
        posix_spawnattr_setflags(
            &attributes,
            static_cast<short>(POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF));
    }
    ~Start() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    Start(const Start&) = delete;
    Start& operator=(const Start&) = delete;

    int Run(const std::string& path, const std::vector<std::string>& arguments, pid_t& child) const {
        std::vector<char*> words = {const_cast<char*>(path.c_str())};
        for (const std::string& argument : arguments) words.push_back(const_cast<char*>(argument.c_str()));
        words.push_back(nullptr);
        return posix_spawn(&child, path.c_str(), &actions, &attributes, words.data(), environ);
    }

 private:
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
};

}  // namespace

std::string FindProgram(const std::string& name) {
    const char* const variable = std::getenv("PATH");
    std::string_view folders = variable != nullptr ? variable : "/usr/local/bin:/usr/bin:/bin";
    while (true) {
        const std::size_t colon = folders.find(':');
        const fs::path file = fs::path(folders.substr(0, colon)) / name;
        std::error_code ignored;
        if (fs::is_regular_file(file, ignored) && access(file.c_str(), X_OK) == 0) return file.string();
        if (colon == folders.npos) return {};
        folders.remove_prefix(colon + 1);
    }
}

ProgramEnd RunProgram(const std::string& path, const std::vector<std::string>& arguments,
                      const std::string& input) {
    const MemoryFile given("input"), output("output"), complaint("complaint");
    ProgramEnd end;
    if (given.Get() < 0 || output.Get() < 0 || complaint.Get() < 0 || !given.Write(input)) {
        end.code = errno;
        return end;
    }
    pid_t child = -1;
    end.code = Start(given.Get(), output.Get(), complaint.Get()).Run(path, arguments, child);
    end.started = end.code == 0;
    if (!end.started) return end;
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
    end.code = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    end.output = output.Content();
    end.complaint = complaint.Content();
    if (WIFSIGNALED(status)) end.complaint.append("\n").append(strsignal(WTERMSIG(status)));
    return end;
}

}  // namespace tc
