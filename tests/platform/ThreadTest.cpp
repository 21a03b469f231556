#include <gtest/gtest.h>

#include <csignal>

#include "sigweave/platform/Event.h"
#include "sigweave/platform/Thread.h"

namespace {

int signalledThread = 0;

TEST(Thread, HasAName) {
    std::string name;
    std::string cut;
    {
        tc::Thread thread("watch", [&] { name = tc::CurrentThreadName(); });
    }
    {
        tc::Thread thread("a name that is too long", [&] { cut = tc::CurrentThreadName(); });
    }
    EXPECT_EQ(name, "watch");
    EXPECT_EQ(cut, "a name that is ");
}

TEST(Thread, LeavesSignalsToTheProgram) {
    const auto before = std::signal(SIGUSR1, [](int) { signalledThread = tc::CurrentThreadId(); });
    tc::Event begun;
    tc::Event ended;
    int own = 0;
    {
        tc::Thread thread("deaf", [&] {
            own = tc::CurrentThreadId();
            std::raise(SIGUSR1);  // to the thread that calls it, where it waits for good
            begun.Set();
            tc::WaitForHandle(ended.GetHandle(), 1e9);
        });
        tc::WaitForHandle(begun.GetHandle(), 1e9);
        ended.Set();
    }
    EXPECT_NE(own, 0);
    EXPECT_EQ(signalledThread, 0) << "the thread handled a signal";
    std::raise(SIGUSR1);
    EXPECT_EQ(signalledThread, tc::CurrentThreadId()) << "the caller's signals are as they were";
    std::signal(SIGUSR1, before);
}

}  // namespace
