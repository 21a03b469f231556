#pragma once

#include <memory>
#include <string>

#include "modules/live/Device.h"
#include "modules/sound-file/SoundReader.h"

// A sound file that comes through standard input. What has come of it is there once.
struct SoundInput {
    tc::Event cancel;
    SoundReader reader;
    bool isUsed = false;  // by a run
};

// Its samples as a device: 64-bit floating-point numbers in the machine's order.
class SoundDevice final : public live::Device {
 public:
    explicit SoundDevice(std::shared_ptr<SoundInput> openInput) : input(std::move(openInput)) {
        readable.Set();  // a reading waits until there is something
    }

    bool Open(std::string&) override { return true; }
    void Close() override {}
    Reading Read(std::span<std::byte> into) override;
    std::string Why() const override { return input->reader.Shortage(); }
    void Cancel() override { input->cancel.Set(); }
    void* Handle() const override { return readable.GetHandle(); }
    std::string Name() const override;

 private:
    std::shared_ptr<SoundInput> input;
    tc::Event readable;
};
