#include "sigweave/platform/OutputFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <utility>

#include "sigweave/platform/Fork.h"

namespace tc {

namespace {

constexpr int NO_DESCRIPTOR = -1;

}  // namespace

// Emptied only when the lock is taken: the file may be another's.
std::unique_ptr<OutputFile> OutputFile::Open(const char* path, bool append) {
    constexpr mode_t READ_AND_WRITE = 0666;
    const int descriptor = open(path, O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY, READ_AND_WRITE);
    if (descriptor < 0) return nullptr;
    std::unique_ptr<OutputFile> file(new OutputFile(descriptor));
    if (flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) return nullptr;
    if (!append) return file->Empty() ? std::move(file) : nullptr;
    return lseek(descriptor, 0, SEEK_END) >= 0 || errno == ESPIPE ? std::move(file) : nullptr;
}

std::unique_ptr<OutputFile> OutputFile::Adopt(int opened) {
    return std::unique_ptr<OutputFile>(new OutputFile(opened));
}

OutputFile::OutputFile(int opened) : descriptor(opened), owner(ProcessId()) {}

OutputFile::~OutputFile() {
    Close();
}

bool OutputFile::Write(std::initializer_list<std::string_view> parts) {
    constexpr std::size_t MOST_PARTS = 4;
    std::array<iovec, MOST_PARTS> pieces;
    int count = 0;
    std::size_t bytes = 0;
    for (const std::string_view part : parts) {
        pieces[static_cast<std::size_t>(count++)] = {const_cast<char*>(part.data()), part.size()};
        bytes += part.size();
    }
    ssize_t written = 0;
    do {
        written = count == 1 ? write(descriptor, pieces[0].iov_base, bytes)
                             : writev(descriptor, pieces.data(), count);
    } while (written < 0 && errno == EINTR);
    return written == static_cast<ssize_t>(bytes);
}

bool OutputFile::WriteAt(std::int64_t offset, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = pwrite(descriptor, text.data(), text.size(), offset);
        if (written < 0 && errno != EINTR) return false;
        if (written <= 0) continue;
        text.remove_prefix(static_cast<std::size_t>(written));
        offset += written;
    }
    return true;
}

bool OutputFile::Shrink(std::int64_t size) {
    return ftruncate(descriptor, size) == 0;
}

std::int64_t OutputFile::Size() const {
    struct stat status;
    return fstat(descriptor, &status) == 0 ? status.st_size : -1;
}

// The system grants a lease only on what nobody else has open. It sends a signal when somebody is waiting, by
// default one that would end the process.
bool OutputFile::Claim() {
    return fcntl(descriptor, F_SETSIG, SIGURG) != 0 || fcntl(descriptor, F_SETLEASE, F_WRLCK) == 0 ||
           errno != EAGAIN;
}

void OutputFile::Release() {
    fcntl(descriptor, F_SETLEASE, F_UNLCK);
}

// What has no length, such as a pipe, is always empty.
bool OutputFile::Empty() {
    if (ftruncate(descriptor, 0) != 0) return errno == EINVAL;
    return lseek(descriptor, 0, SEEK_SET) == 0;
}

bool OutputFile::Flush() {
    return fdatasync(descriptor) == 0 || errno == EINVAL;
}

// The lock would live on in a child of the process that has the file open, too.
bool OutputFile::Close() {
    const int closed = std::exchange(descriptor, NO_DESCRIPTOR);
    if (closed == NO_DESCRIPTOR) return true;
    if (owner == ProcessId()) flock(closed, LOCK_UN);
    return close(closed) == 0;
}

}  // namespace tc
