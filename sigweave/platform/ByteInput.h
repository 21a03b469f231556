#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace tc {

// Bytes that come while the program runs, from standard input, a file, a pipe or a socket: read without
// waiting. A part of the seam that the library does not need: it is built into the modules that read. One
// thread at a time.
class ByteInput {
 public:
    // Each answers null when it cannot be opened; `errno` then says why.

    // Never closed, and its other users do not notice.
    static std::unique_ptr<ByteInput> StandardInput();
    // A file, a pipe or a device. A pipe without a writer gives nothing until there is one. A file that
    // `grows` has no end: more may be written to it.
    static std::unique_ptr<ByteInput> File(const char* path, bool grows);
    // A connection to a server, made within 2 s. The host is a name or a numeric address; EADDRNOTAVAIL for
    // a name that nobody knows.
    static std::unique_ptr<ByteInput> Connect(const char* host, int port);
    // The first peer that connects to this address of the machine. Port 0: any free one.
    static std::unique_ptr<ByteInput> Listen(const char* host, int port);
    // Datagrams that are sent to this address of the machine, each of which is one reading.
    static std::unique_ptr<ByteInput> Datagrams(const char* host, int port);
    // A connection to a socket in the file system.
    static std::unique_ptr<ByteInput> ConnectLocal(const char* path);

    // A serial line, with eight data bits, no parity and one stop bit. EINVAL for a speed that there is not.
    static std::unique_ptr<ByteInput> Serial(const char* path, int bitsPerSecond);

    virtual ~ByteInput() = default;

    enum Outcome { DATA, NOTHING, END, FAILED };
    struct Reading {
        Outcome outcome;
        std::size_t bytes = 0;  // of DATA, also 0 for an empty datagram
        int error = 0;          // of FAILED, a value of errno
    };
    // What is there now, at most as much as fits; the rest of a longer datagram is lost. After END and FAILED
    // nothing comes any more.
    virtual Reading Read(std::span<std::byte> into) = 0;
    // For waits (see Event.h): signalled while Read would answer other than NOTHING, or may. It may be
    // another one after a reading.
    virtual void* Handle() const = 0;
    // Sends to a connected peer or a serial line, which takes no longer than 1 s; 0, or a value of errno.
    virtual int Write(std::span<const std::byte> bytes);
    // Of a socket; 0 for others.
    virtual int Port() const { return 0; }
};

}  // namespace tc
