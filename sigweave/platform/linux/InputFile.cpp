#include "sigweave/platform/InputFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace tc {

// Not blocking, for a pipe would wait for its writer.
std::unique_ptr<InputFile> InputFile::Open(const char* path) {
    const int descriptor = open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (descriptor < 0) return nullptr;
    std::unique_ptr<InputFile> file(new InputFile(descriptor));
    struct stat status;
    if (fstat(descriptor, &status) != 0) return nullptr;
    if (S_ISREG(status.st_mode)) return file;
    errno = S_ISDIR(status.st_mode) ? EISDIR : ENODEV;
    return nullptr;
}

InputFile::~InputFile() {
    close(descriptor);
}

std::int64_t InputFile::Size() const {
    struct stat status;
    return fstat(descriptor, &status) == 0 ? status.st_size : -1;
}

std::int64_t InputFile::ReadAt(std::int64_t offset, char* buffer, std::size_t count) const {
    std::size_t done = 0;
    while (done < count) {
        const ssize_t read =
            pread(descriptor, buffer + done, count - done, offset + static_cast<std::int64_t>(done));
        if (read < 0 && errno == EINTR) continue;
        if (read < 0) return -1;
        if (read == 0) break;
        done += static_cast<std::size_t>(read);
    }
    return static_cast<std::int64_t>(done);
}

std::shared_ptr<const char> InputFile::Map(std::int64_t bytes) const {
    if (bytes <= 0 || bytes > Size()) return nullptr;
    const auto size = static_cast<std::size_t>(bytes);
    void* const mapped = mmap(nullptr, size, PROT_READ, MAP_SHARED, descriptor, 0);
    if (mapped == MAP_FAILED) return nullptr;
    return {static_cast<const char*>(mapped), [mapped, size](const char*) { munmap(mapped, size); }};
}

bool InputFile::IsBeingWritten() const {
    if (flock(descriptor, LOCK_SH | LOCK_NB) != 0) return errno == EWOULDBLOCK;
    flock(descriptor, LOCK_UN);
    return false;
}

}  // namespace tc
