#include "sigweave/platform/ByteInput.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "sigweave/platform/linux/Handle.h"

namespace tc {
namespace {

constexpr int CONNECT_TIME = 2000;                // ms
constexpr int DATAGRAM_BUFFER = 8 * 1024 * 1024;  // bytes, as far as the system permits

// A descriptor that is closed with it.
class Opened {
 public:
    explicit Opened(int opened = -1) : descriptor(opened) {}
    Opened(Opened&& other) noexcept : descriptor(std::exchange(other.descriptor, -1)) {}
    Opened& operator=(Opened&& other) noexcept {
        std::swap(descriptor, other.descriptor);
        return *this;
    }
    ~Opened() {
        const int before = errno;
        if (descriptor >= 0) close(descriptor);
        errno = before;
    }
    int Get() const { return descriptor; }
    bool IsOpen() const { return descriptor >= 0; }

 private:
    int descriptor;
};

short WhatHappened(int descriptor, int milliseconds = 0, short events = POLLIN) {
    pollfd asked{descriptor, events, 0};
    return poll(&asked, 1, milliseconds) > 0 ? asked.revents : 0;
}

ByteInput::Reading ToReading(ssize_t count) {
    if (count > 0) return {ByteInput::DATA, static_cast<std::size_t>(count)};
    if (count == 0) return {ByteInput::END};
    if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) return {ByteInput::NOTHING};
    return {ByteInput::FAILED, 0, errno};
}

constexpr int WRITE_TIME = 1000;  // ms

int WriteAll(int descriptor, std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        if (WhatHappened(descriptor, WRITE_TIME, POLLOUT) == 0) return ETIMEDOUT;
        ssize_t count = send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0 && errno == ENOTSOCK) count = write(descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno != EAGAIN && errno != EINTR) return errno;
        bytes = bytes.subspan(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    return 0;
}

struct Speed {
    int bitsPerSecond;
    speed_t code;
};
constexpr Speed SPEEDS[] = {{1200, B1200},     {2400, B2400},     {4800, B4800},    {9600, B9600},
                            {19200, B19200},   {38400, B38400},   {57600, B57600},  {115200, B115200},
                            {230400, B230400}, {460800, B460800}, {921600, B921600}};

// Standard input, pipes and devices. The descriptor is not changed, for others may share it.
class Pipe final : public ByteInput {
 public:
    Pipe(Opened&& file, int number) : owned(std::move(file)), descriptor(number) {}
    // Not read when nothing has happened: a pipe that had no writer yet would look as if it had ended.
    Reading Read(std::span<std::byte> into) override {
        if (WhatHappened(descriptor) == 0) return {NOTHING};
        return ToReading(read(descriptor, into.data(), into.size()));
    }
    void* Handle() const override { return ToHandle(descriptor); }
    int Write(std::span<const std::byte> bytes) override { return WriteAll(descriptor, bytes); }

 private:
    Opened owned;
    int descriptor;
};

// An ordinary file; one that grows is watched for changes.
class Growing final : public ByteInput {
 public:
    Growing(Opened&& opened, Opened&& watcher) : file(std::move(opened)), watch(std::move(watcher)) {}
    Reading Read(std::span<std::byte> into) override {
        if (watch.IsOpen()) ForgetChanges();
        struct stat status;
        if (fstat(file.Get(), &status) == 0 && status.st_size < done) return {FAILED, 0, ESTALE};
        const Reading reading = ToReading(read(file.Get(), into.data(), into.size()));
        done += static_cast<off_t>(reading.bytes);
        return reading.outcome == END && watch.IsOpen() ? Reading{NOTHING} : reading;
    }
    void* Handle() const override { return ToHandle(watch.IsOpen() ? watch.Get() : file.Get()); }

 private:
    void ForgetChanges() const {
        char changes[4096];
        while (read(watch.Get(), changes, sizeof changes) > 0) continue;
    }

    Opened file;
    Opened watch;
    off_t done = 0;
};

int PortOf(int socket) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) return 0;
    if (address.ss_family == AF_INET) return ntohs(reinterpret_cast<sockaddr_in*>(&address)->sin_port);
    return address.ss_family == AF_INET6 ? ntohs(reinterpret_cast<sockaddr_in6*>(&address)->sin6_port) : 0;
}

class Socket final : public ByteInput {
 public:
    enum Kind { CONNECTED, LISTENING, DATAGRAMS };
    Socket(Opened&& opened, Kind socketKind) : socket(std::move(opened)), kind(socketKind) {}
    Reading Read(std::span<std::byte> into) override {
        if (kind == LISTENING) return Accept();
        const Reading reading = ToReading(recv(socket.Get(), into.data(), into.size(), MSG_DONTWAIT));
        return reading.outcome == END && kind == DATAGRAMS ? Reading{DATA} : reading;
    }
    void* Handle() const override { return ToHandle(socket.Get()); }
    int Port() const override { return PortOf(socket.Get()); }
    int Write(std::span<const std::byte> bytes) override { return WriteAll(socket.Get(), bytes); }

 private:
    Reading Accept() {
        Opened peer(accept4(socket.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!peer.IsOpen()) return errno == ECONNABORTED ? Reading{NOTHING} : ToReading(-1);
        socket = std::move(peer);
        kind = CONNECTED;
        return {NOTHING};
    }

    Opened socket;
    Kind kind;
};

struct Addresses {
    Addresses(const char* host, int port, int type, bool passive) {
        addrinfo hints{};
        hints.ai_socktype = type;
        hints.ai_flags = AI_NUMERICSERV | (passive ? AI_PASSIVE : 0);
        const int code = getaddrinfo(host, std::to_string(port).c_str(), &hints, &first);
        if (code != 0) first = nullptr;
        if (code != 0 && code != EAI_SYSTEM) errno = code == EAI_MEMORY ? ENOMEM : EADDRNOTAVAIL;
    }
    ~Addresses() {
        const int before = errno;
        if (first != nullptr) freeaddrinfo(first);
        errno = before;
    }
    addrinfo* first = nullptr;
};

Opened OpenSocket(const addrinfo& address) {
    return Opened(
        socket(address.ai_family, address.ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, address.ai_protocol));
}

bool FinishConnect(int socket, const sockaddr* address, socklen_t size) {
    if (connect(socket, address, size) == 0) return true;
    if (errno != EINPROGRESS) return false;
    if (WhatHappened(socket, CONNECT_TIME, POLLOUT) == 0) {
        errno = ETIMEDOUT;
        return false;
    }
    int error = 0;
    socklen_t length = sizeof error;
    if (getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &length) != 0) return false;
    errno = error;
    return error == 0;
}

std::unique_ptr<ByteInput> OpenBound(const char* host, int port, int type, Socket::Kind kind) {
    const Addresses addresses(host, port, type, true);
    for (const addrinfo* address = addresses.first; address != nullptr; address = address->ai_next) {
        Opened opened = OpenSocket(*address);
        const int on = 1;
        if (!opened.IsOpen()) continue;
        if (kind == Socket::LISTENING)
            setsockopt(opened.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        else
            setsockopt(opened.Get(), SOL_SOCKET, SO_RCVBUF, &DATAGRAM_BUFFER, sizeof DATAGRAM_BUFFER);
        if (bind(opened.Get(), address->ai_addr, address->ai_addrlen) != 0) continue;
        if (kind == Socket::LISTENING && listen(opened.Get(), 1) != 0) continue;
        return std::make_unique<Socket>(std::move(opened), kind);
    }
    return nullptr;
}

Opened WatchGrowth(const char* path) {
    Opened watch(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (!watch.IsOpen() || inotify_add_watch(watch.Get(), path, IN_MODIFY) < 0) return Opened();
    return watch;
}

}  // namespace

int ByteInput::Write(std::span<const std::byte>) {
    return ENOTSUP;
}

std::unique_ptr<ByteInput> ByteInput::Serial(const char* path, int bitsPerSecond) {
    const auto* const speed = std::ranges::find(SPEEDS, bitsPerSecond, &Speed::bitsPerSecond);
    termios settings{};
    Opened file(open(path, O_RDWR | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (!file.IsOpen() || tcgetattr(file.Get(), &settings) != 0) return nullptr;
    if (speed == std::end(SPEEDS)) {
        errno = EINVAL;
        return nullptr;
    }
    cfmakeraw(&settings);
    settings.c_cflag |= CLOCAL | CREAD;
    cfsetspeed(&settings, speed->code);
    if (tcsetattr(file.Get(), TCSANOW, &settings) != 0) return nullptr;
    const int descriptor = file.Get();
    return std::make_unique<Pipe>(std::move(file), descriptor);
}

std::unique_ptr<ByteInput> ByteInput::StandardInput() {
    if (fcntl(STDIN_FILENO, F_GETFL) < 0) return nullptr;
    return std::make_unique<Pipe>(Opened(), STDIN_FILENO);
}

std::unique_ptr<ByteInput> ByteInput::File(const char* path, bool grows) {
    Opened watch = grows ? WatchGrowth(path) : Opened();
    Opened file(open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    struct stat status;
    if (!file.IsOpen() || fstat(file.Get(), &status) != 0) return nullptr;
    if (S_ISDIR(status.st_mode)) {
        errno = EISDIR;
        return nullptr;
    }
    if (!S_ISREG(status.st_mode)) {
        const int descriptor = file.Get();
        return std::make_unique<Pipe>(std::move(file), descriptor);
    }
    if (grows && !watch.IsOpen()) return nullptr;
    return std::make_unique<Growing>(std::move(file), std::move(watch));
}

std::unique_ptr<ByteInput> ByteInput::Connect(const char* host, int port) {
    const Addresses addresses(host, port, SOCK_STREAM, false);
    for (const addrinfo* address = addresses.first; address != nullptr; address = address->ai_next) {
        Opened opened = OpenSocket(*address);
        if (opened.IsOpen() && FinishConnect(opened.Get(), address->ai_addr, address->ai_addrlen))
            return std::make_unique<Socket>(std::move(opened), Socket::CONNECTED);
    }
    return nullptr;
}

std::unique_ptr<ByteInput> ByteInput::Listen(const char* host, int port) {
    return OpenBound(host, port, SOCK_STREAM, Socket::LISTENING);
}

std::unique_ptr<ByteInput> ByteInput::Datagrams(const char* host, int port) {
    return OpenBound(host, port, SOCK_DGRAM, Socket::DATAGRAMS);
}

std::unique_ptr<ByteInput> ByteInput::ConnectLocal(const char* path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (std::strlen(path) >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return nullptr;
    }
    std::strcpy(address.sun_path, path);
    Opened opened(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!opened.IsOpen() ||
        !FinishConnect(opened.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address))
        return nullptr;
    return std::make_unique<Socket>(std::move(opened), Socket::CONNECTED);
}

}  // namespace tc
