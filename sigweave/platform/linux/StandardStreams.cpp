#include "sigweave/platform/StandardStreams.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include "sigweave/platform/linux/Handle.h"

namespace tc {
namespace {

constexpr int ABOVE_THE_USUAL = 64;  // so that code which closes a few numbers by mistake does not meet it

struct Kept {
    std::FILE* file;
    dev_t device = 0;
    ino_t inode = 0;
    bool isKept = false;
};

Kept& Of(StandardStream stream) {
    static Kept output{stdout}, error{stderr};
    return stream == StandardStream::Output ? output : error;
}

void Keep(StandardStream stream, bool isThere) {
    const int descriptor = static_cast<int>(stream);
    Kept& kept = Of(stream);
    struct stat status;
    if (fstat(descriptor, &status) != 0) return;
    const int copy = isThere ? fcntl(descriptor, F_DUPFD_CLOEXEC, ABOVE_THE_USUAL) : -1;
    std::FILE* const file = copy >= 0 ? fdopen(copy, "w") : kept.file;
    kept = {isThere ? file : nullptr, status.st_dev, status.st_ino, true};
}

}  // namespace

void KeepStandardStreams() {
    bool isThere[3];
    for (int descriptor = 0; descriptor < 3; ++descriptor) {
        isThere[descriptor] = fcntl(descriptor, F_GETFD) >= 0;
        if (!isThere[descriptor] && open("/dev/null", O_RDWR) != descriptor) return;
    }
    Keep(StandardStream::Output, isThere[1]);
    Keep(StandardStream::Error, isThere[2]);
}

std::FILE* KeptStream(StandardStream stream) {
    return Of(stream).file;
}

StreamChange WhatBecameOf(StandardStream stream) {
    const Kept& kept = Of(stream);
    struct stat status;
    if (!kept.isKept) return StreamChange::None;
    if (fstat(static_cast<int>(stream), &status) != 0) return StreamChange::Closed;
    const bool same = status.st_dev == kept.device && status.st_ino == kept.inode;
    return same ? StreamChange::None : StreamChange::Redirected;
}

void* StandardInputHandle() {
    return ToHandle(STDIN_FILENO);
}

HiddenTyping::HiddenTyping(bool hides) {
    termios settings{};
    if (!hides || tcgetattr(STDIN_FILENO, &settings) != 0 || (settings.c_lflag & ECHO) == 0) return;
    settings.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    hidden = tcsetattr(STDIN_FILENO, TCSANOW, &settings) == 0;
}

HiddenTyping::~HiddenTyping() {
    termios settings{};
    if (!hidden || tcgetattr(STDIN_FILENO, &settings) != 0) return;
    settings.c_lflag |= ECHO;
    tcsetattr(STDIN_FILENO, TCSANOW, &settings);
}

}  // namespace tc
