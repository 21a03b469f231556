#include "sigweave/platform/Program.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "sigweave/platform/linux/ProgramStart.h"

namespace tc {
namespace {

namespace fs = std::filesystem;

// A file without a name, in memory: only one of a program's streams is a pipe, so that nobody waits in a
// circle.
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

// What comes out of a pipe until nobody can write to it any more.
std::string ReadAll(int pipeEnd) {
    std::string text;
    char piece[65536];
    while (true) {
        const ssize_t count = read(pipeEnd, piece, sizeof piece);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return text;
        text.append(piece, static_cast<std::size_t>(count));
    }
}

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
    const MemoryFile given("input"), complaint("complaint");
    ProgramEnd end;
    int output[2];
    if (given.Get() < 0 || complaint.Get() < 0 || !given.Write(input) || pipe2(output, O_CLOEXEC) != 0) {
        end.code = errno;
        return end;
    }
    pid_t child = -1;
    ProgramStart start;
    start.Give(given.Get(), STDIN_FILENO);
    start.Give(output[1], STDOUT_FILENO);
    start.Give(complaint.Get(), STDERR_FILENO);
    end.code = start.Run(path, arguments, child);
    close(output[1]);
    end.started = end.code == 0;
    if (end.started) end.output = ReadAll(output[0]);
    close(output[0]);
    if (!end.started) return end;
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
    end.code = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    end.complaint = complaint.Content();
    if (WIFSIGNALED(status)) end.complaint.append("\n").append(strsignal(WTERMSIG(status)));
    return end;
}

}  // namespace tc
