#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "host/parts/PlaceRun.h"

// Places of one run in this process, each on a thread of its own.
class MemoryWays {
 public:
    void Put(int from, const host::PartDelivery& delivery) {
        const std::lock_guard lock(mutex);
        ways[from].push_back(delivery);
        arrived.notify_all();
    }
    // False after a minute, so that a run that hangs fails.
    bool Take(int from, host::PartDelivery& delivery) {
        std::unique_lock lock(mutex);
        std::deque<host::PartDelivery>& way = ways[from];
        if (!arrived.wait_for(lock, std::chrono::minutes(1), [&] { return !way.empty(); })) return false;
        delivery = std::move(way.front());
        way.pop_front();
        return true;
    }

 private:
    std::mutex mutex;
    std::condition_variable arrived;
    std::map<int, std::deque<host::PartDelivery>> ways;  // each place sends to one
};

class MemoryPlace final : public host::PlaceRun, public host::PartLink {
 public:
    MemoryPlace(const host::PlacePlan& placePlan, MemoryWays& allWays, std::function<void()> handingOver)
        : PlaceRun(placePlan), ways(allWays), onHandOver(std::move(handingOver)) {}

    Got Receive(int from, host::PartDelivery& delivery) override {
        onHandOver();
        if (ways.Take(from, delivery)) return Got::Delivery;
        error = "nothing came from place " + std::to_string(from);
        return Got::Failed;
    }
    void SetDone(int, std::uint64_t) override {}
    PartLink* Next() override {
        return Plan().own + 1 < static_cast<int>(Plan().places.size()) ? this : nullptr;
    }
    bool Send(host::PartDelivery& delivery) override {
        onHandOver();
        ways.Put(Plan().own, delivery);
        return true;
    }
    void GiveUp() override {
        host::PartDelivery end;
        end.kind = host::PartDelivery::Kind::Failed;
        end.failedPart = Plan().own;
        ways.Put(Plan().own, end);
    }
    const std::string& GetError() const override { return error; }
    bool WasInterrupted() const override { return false; }

 private:
    MemoryWays& ways;
    std::function<void()> onHandOver;
    std::string error;
};
