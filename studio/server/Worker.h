#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

namespace studio {

// Work for one thread, done in its order.
class Worker {
 public:
    // Any thread.
    void Post(std::function<void()> work) {
        const std::lock_guard lock(mutex);
        waiting.push_back(std::move(work));
        wake.notify_one();
    }
    void Stop() {
        const std::lock_guard lock(mutex);
        stopped = true;
        wake.notify_one();
    }
    // On the thread that does the work; `tick` is called at least every interval.
    void Run(std::chrono::milliseconds interval, const std::function<void()>& tick) {
        auto next = std::chrono::steady_clock::now() + interval;
        std::unique_lock lock(mutex);
        while (!stopped) {
            wake.wait_until(lock, next, [this] { return stopped || !waiting.empty(); });
            if (stopped) return;
            std::function<void()> work;
            if (!waiting.empty()) {
                work = std::move(waiting.front());
                waiting.pop_front();
            }
            lock.unlock();
            if (work) work();
            if (const auto now = std::chrono::steady_clock::now(); now >= next) {
                next = now + interval;
                tick();
            }
            lock.lock();
        }
    }

 private:
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<std::function<void()>> waiting;
    bool stopped = false;
};

}  // namespace studio
