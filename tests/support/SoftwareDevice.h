#pragma once

#include <algorithm>
#include <deque>
#include <string>
#include <vector>

#include "modules/live/Device.h"
#include "modules/live/Packets.h"
#include "sigweave/platform/Event.h"

// A device made of software, to which a test says what comes when, and what goes wrong.
class SoftwareDevice final : public live::Device {
 public:
    // What the test keeps hold of.
    struct World {
        struct Piece {
            Outcome outcome;
            std::vector<std::byte> bytes;
            std::int64_t lost = 0;
        };
        std::deque<Piece> pieces;
        tc::Event event;
        bool isOpen = false;

        void Give(Piece piece) {
            pieces.push_back(std::move(piece));
            event.Set();
        }
    };

    explicit SoftwareDevice(World& ofTest) : world(ofTest) {}

    bool Open(std::string&) override { return world.isOpen = true; }
    void Close() override { world.isOpen = false; }
    Reading Read(std::span<std::byte> into) override {
        if (world.pieces.empty()) return {NOTHING};
        const World::Piece piece = world.pieces.front();
        world.pieces.pop_front();
        if (world.pieces.empty()) world.event.Reset();
        std::copy_n(piece.bytes.data(), std::min(into.size(), piece.bytes.size()), into.data());
        return {piece.outcome, piece.bytes.size(), piece.lost};
    }
    std::string Why() const override { return "the plug was pulled"; }
    void* Handle() const override { return world.event.GetHandle(); }
    std::string Name() const override { return "software"; }
    bool CanHoldBack() const override { return false; }

 private:
    World& world;
};
