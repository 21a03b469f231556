#pragma once

#include <memory>
#include <string>

#include "modules/live/Device.h"
#include "sigweave/platform/ByteInput.h"

namespace live {

struct StreamPlace {
    enum Kind { STANDARD_INPUT, FILE, TCP, LISTEN, UDP, LOCAL };

    Kind kind = STANDARD_INPUT;
    std::string path = {};  // of FILE and LOCAL
    bool grows = false;
    std::string host = {};  // of TCP, LISTEN and UDP
    int port = 0;
    bool mayClose = true;  // a peer that closes the connection ends the signals; else that is a failure

    // For messages.
    std::string Name() const;
};

// Bytes from standard input, a file, a pipe or a socket.
class StreamDevice final : public Device {
 public:
    explicit StreamDevice(const StreamPlace& from) : place(from) {}

    bool Open(std::string& error) override;
    void Close() override { input.reset(); }
    Reading Read(std::span<std::byte> into) override;
    std::string Why() const override { return why; }
    void* Handle() const override { return input->Handle(); }
    std::string Name() const override { return place.Name(); }
    bool HasPackets() const override { return place.kind == StreamPlace::UDP; }
    bool CanHoldBack() const override { return place.kind != StreamPlace::UDP; }
    // Of a socket.
    int Port() const { return input->Port(); }

 private:
    std::unique_ptr<tc::ByteInput> OpenInput() const;

    const StreamPlace place;
    std::unique_ptr<tc::ByteInput> input;
    std::string why;
};

}  // namespace live
