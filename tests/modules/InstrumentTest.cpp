// What instruments answer, and the module against a small one of the test's own.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <deque>
#include <functional>
#include <mutex>

#include "modules/instrument/Inquirer.h"
#include "sigweave/platform/Event.h"
#include "sigweave/platform/Thread.h"
#include "sigweave/platform/linux/Handle.h"
#include "tests/support/HandMovedClock.h"
#include "tests/support/ModuleBench.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const live::SampleFormat* FormatOf(const std::string& word) {
    return std::ranges::find(live::FORMATS, word, &live::SampleFormat::word);
}

std::span<const std::byte> Bytes(const std::string& text) {
    return {reinterpret_cast<const std::byte*>(text.data()), text.size()};
}

TEST(ScpiAnswer, NumbersAndBlocksComeInPiecesOfAnyLength) {
    const struct {
        std::string answer;
        const char* format;  // of a block
        std::vector<double> values;
    } rows[] = {{"+1.25E-3\n", nullptr, {0.00125}},
                {"1,-2.5 ; 3E2\r\n", nullptr, {1, -2.5, 300}},
                {"-9.9E37,1\n", nullptr, {-INFINITY, 1}},
                {"#14\1\2\3\4\n", "s16be", {0x0102, 0x0304}},
                {std::string("#3002\0\1", 7), "s16le", {256}},
                {"#14\n\n\n\n\n", "u8", {10, 10, 10, 10}}};
    for (const auto& row : rows)
        for (std::size_t cut = 1; cut <= row.answer.size(); ++cut) {
            ScpiAnswer answer(row.format != nullptr ? FormatOf(row.format) : nullptr, row.values.size());
            std::vector<double> values;
            std::string error;
            std::vector<std::vector<double>> taken;
            for (const std::string& text : {row.answer, row.answer})
                for (std::size_t at = 0; at < text.size(); at += cut) {
                    answer.Give(Bytes(text.substr(at, cut)));
                    if (answer.Take(values, error) == ScpiAnswer::COMPLETE) taken.push_back(values);
                    EXPECT_EQ(error, "") << row.answer;
                }
            EXPECT_THAT(taken, ElementsAre(row.values, row.values)) << row.answer << " by " << cut;
        }
    ScpiAnswer answer(nullptr, 1);
    std::vector<double> values;
    std::string error;
    answer.Give(Bytes("9.91E37\n"));
    ASSERT_EQ(answer.Take(values, error), ScpiAnswer::COMPLETE);
    EXPECT_TRUE(std::isnan(values[0])) << "what the instrument could not measure";
}

TEST(ScpiAnswer, WhatIsWrongIsNamed) {
    const struct {
        const char* answer;
        const char* format;
        const char* reason;
    } rows[] = {{"VOLT\n", nullptr, "'VOLT' is no number"},
                {"1,2\n", nullptr, "'1,2' has 2 values, not 1; set values=2"},
                {"1,\n", nullptr, "'1,' is no number"},
                {"\x01\x02\n", nullptr, "'..' is no number"},
                {"1.5\n", "f32be", "'1.5.' is no block"},
                {"#0abc\n", "f32be", "3 bytes, which is no whole number of samples of 4"},
                {"#0abcd", "f32be", "does not end with a line feed"},
                {"#x", "f32be", "is no block"},
                {"#2x4", "f32be", "is no block"},
                {"#9999999999", "f32be", "is no block"},
                {"#13abc", "f32be", "3 bytes, which is no whole number of samples of 4"}};
    for (const auto& row : rows) {
        ScpiAnswer answer(row.format != nullptr ? FormatOf(row.format) : nullptr, 1);
        std::vector<double> values;
        std::string error;
        answer.Give(Bytes(row.answer));
        EXPECT_EQ(answer.Take(values, error, true), ScpiAnswer::WRONG) << row.answer;
        EXPECT_THAT(error, HasSubstr(row.reason));
    }
}

// An instrument in the time of a test, which may cut its answers, need time for them and go away.
class TimedInstrument final : public tc::ByteInput {
 public:
    struct World {
        HandMovedClock clock = {};
        std::function<std::string(int number)> answer = {};
        double delay = 0.0;      // ms, of an answer
        double between = 0.0;    // of its pieces
        std::size_t piece = 64;  // bytes
        double gone = INFINITY;  // when
        int asked = 0;
    };
    explicit TimedInstrument(World& ofTest) : world(ofTest) {}

    Reading Read(std::span<std::byte> into) override {
        const double now = world.clock.Milliseconds();
        if (!coming.empty() && coming.front().first <= now) {
            const std::string piece = coming.front().second;
            coming.pop_front();
            std::memcpy(into.data(), piece.data(), piece.size());
            return {DATA, piece.size()};
        }
        return {now >= world.gone ? END : NOTHING};
    }
    void* Handle() const override { return nullptr; }
    int Write(std::span<const std::byte>) override {
        const std::string answer = world.answer(world.asked++);
        double when = world.clock.Milliseconds() + world.delay;
        for (std::size_t at = 0; at < answer.size(); at += world.piece, when += world.between)
            coming.emplace_back(when, answer.substr(at, world.piece));
        return 0;
    }
    // When something happens next.
    double Next() const { return coming.empty() ? world.gone : std::min(world.gone, coming.front().first); }

 private:
    World& world;
    std::deque<std::pair<double, std::string>> coming;
};

constexpr double WALL = 1.7e12;

// What live devices are asked for too (see LiveInputTest.cpp), for an instrument, in simulated time.
class InstrumentInTime : public testing::Test {
 protected:
    void Run(double milliseconds, InquirerPlan plan) {
        const double begin = world.clock.Milliseconds();
        plan.name = "meter";
        plan.query = "READ?";
        plan.clock = &world.clock;
        plan.hasThread = false;
        plan.wallClock = [this, begin] { return WALL + wallSpeed * (world.clock.Milliseconds() - begin); };
        auto made = std::make_unique<TimedInstrument>(world);
        const TimedInstrument& device = *made;
        Inquirer inquirer(std::move(made), plan);
        double until = inquirer.Turn();
        for (int idle = 0; until >= 0.0 && idle < 3; until = inquirer.Turn()) {
            const double now = world.clock.Milliseconds();
            const double next = std::min(until, device.Next());
            if (next > begin + milliseconds) break;
            idle = next > now ? 0 : idle + 1;
            world.clock.Move(std::max(0.0, next - now));
            if (takes) TakeAll(inquirer);
        }
        takes = true;
        TakeAll(inquirer);
        rate = inquirer.MeasuredRate();
    }
    void TakeAll(Inquirer& inquirer) {
        for (Inquirer::Reading reading; inquirer.Take(reading, failure); readings.push_back(reading))
            continue;
    }
    long long Lost() const {
        long long sum = 0;
        for (const Inquirer::Reading& reading : readings) sum += reading.lost;
        return sum;
    }

    TimedInstrument::World world{.answer = [](int number) { return std::to_string(number) + "\n"; }};
    double wallSpeed = 1.0;
    bool takes = true;
    std::vector<Inquirer::Reading> readings;
    std::string failure;
    double rate = 0.0;
};

TEST_F(InstrumentInTime, KeepsItsPaceForAnHourOfDrift) {
    wallSpeed = 1.00005;
    world.delay = 20.0;
    world.piece = 1;
    world.between = 1.0;
    Run(3600e3, {.interval = 500.0});
    ASSERT_EQ(readings.size(), 7200U);
    EXPECT_EQ(Lost(), 0);
    EXPECT_NEAR(rate, 2.0, 1e-5);
    for (std::size_t i = 0; i < readings.size(); ++i) {
        ASSERT_EQ(readings[i].values, std::vector<double>{static_cast<double>(i)});
        ASSERT_NEAR(readings[i].arrived - WALL, 1.00005 * (500.0 * static_cast<double>(i) + 22.0), 5.0);
    }
    EXPECT_EQ(failure, "");
}

TEST_F(InstrumentInTime, WhatThereWasNoTimeForIsLost) {
    world.delay = 350.0;
    Run(100e3, {.interval = 100.0});
    EXPECT_NEAR(rate, 1000.0 / 350.0, 1e-6) << "a wrong rate";
    EXPECT_NEAR(static_cast<double>(Lost()) + static_cast<double>(readings.size()), 1000.0, 8.0);
    EXPECT_GT(Lost(), 700);
}

TEST_F(InstrumentInTime, AStallIsOneGap) {
    world.answer = [this](int number) {
        world.delay = number == 10 ? 730.0 : 1.0;
        return std::string("1\n");
    };
    Run(3e3, {.interval = 100.0});
    EXPECT_EQ(Lost(), 6) << "of those of 1.1 to 1.7 s one was asked late";
    EXPECT_EQ(readings.size(), 24U);
    EXPECT_EQ(std::ranges::count_if(readings, [](const auto& reading) { return reading.lost > 0; }), 1);
}

TEST_F(InstrumentInTime, AFullRingCountsWhatItLoses) {
    takes = false;
    Run(5e6, {.interval = 1000.0});
    EXPECT_EQ(readings.size(), 4096U);
}

// Also between two queries, and at once.
TEST_F(InstrumentInTime, OneThatGoesAwayIsNamedAtOnce) {
    world.gone = world.clock.Milliseconds() + 12.5e3;
    Run(100e3, {.interval = 10e3});
    EXPECT_EQ(readings.size(), 2U);
    EXPECT_EQ(failure, "meter: it closed the connection");
    EXPECT_NEAR(world.clock.Milliseconds(), world.gone, 1e-3);
}

TEST_F(InstrumentInTime, ABlockOfOpenLengthEndsWithALineFeedAfterWhichNothingComes) {
    world.answer = [](int) { return std::string("#0\0\1\n\n\0\3\n", 9); };
    world.between = 60.0;
    for (world.piece = 1; world.piece <= 9; ++world.piece) {
        readings.clear();
        Run(2.9e3, {.patience = 1000.0, .blockFormat = FormatOf("s16be")});
        ASSERT_EQ(readings.size(), 3U) << world.piece << failure;
        EXPECT_THAT(readings[2].values, ElementsAre(1, 0x0A0A, 3));
    }
    world.answer = [](int) { return std::string("#0"); };
    Run(5e3, {.patience = 200.0, .blockFormat = FormatOf("s16be")});
    EXPECT_EQ(failure, "meter: the block of open length (#0) does not end with a line feed");
}

// Listens on a port of the loopback, or sits at the other end of a pseudo terminal, and answers line by line.
class FakeInstrument {
 public:
    // An empty answer: it says nothing; "bye": it goes away.
    using Answer = std::function<std::string(const std::string& line)>;

    FakeInstrument(bool isSerial, Answer lineAnswer) : answer(std::move(lineAnswer)) {
        isSerial ? OpenTerminal() : Listen();
        thread = std::make_unique<tc::Thread>("instrument", [this] { Work(); });
    }
    ~FakeInstrument() {
        stop.Set();
        thread.reset();
        for (const int descriptor : {listener, line, keptOpen})
            if (descriptor >= 0) close(descriptor);
    }

    std::string Settings() const { return settings; }
    std::string Heard() const {
        const std::lock_guard lock(mutex);
        return heard;
    }

 private:
    void Listen() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        listener = socket(AF_INET, SOCK_STREAM, 0);
        EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), size), 0);
        EXPECT_EQ(listen(listener, 1), 0);
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
        settings = "address=127.0.0.1\nport=" + std::to_string(ntohs(address.sin_port)) + "\n";
    }
    void OpenTerminal() {
        line = posix_openpt(O_RDWR | O_NOCTTY);
        EXPECT_EQ(grantpt(line), 0);
        EXPECT_EQ(unlockpt(line), 0);
        settings = std::string("connection=serial\naddress=") + ptsname(line) + "\n";
        keptOpen = open(ptsname(line), O_RDWR | O_NOCTTY);  // else the end of the first user is an error
    }
    // False when the test is over.
    bool Await(int descriptor) const {
        pollfd waited[] = {{descriptor, POLLIN, 0}, {tc::ToDescriptor(stop.GetHandle()), POLLIN, 0}};
        return poll(waited, 2, -1) > 0 && waited[1].revents == 0;
    }
    void Work() {
        if (line < 0) {
            if (!Await(listener)) return;
            line = accept(listener, nullptr, nullptr);
        }
        std::string text;
        char piece[64];
        while (Await(line)) {
            const ssize_t count = read(line, piece, sizeof piece);
            if (count <= 0) return;
            text.append(piece, static_cast<std::size_t>(count));
            for (std::size_t end; (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1))
                if (!Reply(text.substr(0, end))) return;
        }
    }
    bool Reply(const std::string& command) {
        {
            const std::lock_guard lock(mutex);
            heard += command + "\n";
        }
        const std::string text = answer(command);
        if (text == "bye") shutdown(line, SHUT_RDWR);
        if (text == "bye") return false;
        return text.empty() || write(line, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    }

    Answer answer;
    std::string settings;
    int listener = -1;
    int line = -1;
    int keptOpen = -1;
    mutable std::mutex mutex;
    std::string heard;
    tc::Event stop;
    std::unique_ptr<tc::Thread> thread;
};

// Until it ends; interrupted after that many samples.
bool RunUntil(ModuleBench& bench, std::size_t samples) {
    bool well = bench.Start();
    const char* what = nullptr;
    for (int verdict; well && (verdict = bench.Module().Fetch()) != 2;) {
        if (verdict == 0) well = bench.Pump(1);
        if (bench.Samples(0).size() >= samples) bench.Module().Interrupt();
        if (verdict == 1)
            well = tc::WaitForHandle(bench.Module().GetWaitHandle(what), 20000.0) == tc::WAIT_SIGNALLED;
    }
    return bench.Finish() && well;
}

TEST(Instrument, LogsTheValuesOfANetworkAndOfASerialLine) {
    for (const bool isSerial : {false, true}) {
        int asked = 0;
        FakeInstrument fake(isSerial, [&](const std::string& command) {
            if (command != "MEAS?") return std::string();
            return "+" + std::to_string(asked++) + ",-2.5E+00\n";
        });
        ModuleBench bench("instrument", "Instrument");
        ASSERT_TRUE(bench.Set(
            fake.Settings() +
            "commands=\"*RST;:CONF:VOLT:DC\"\nquery=MEAS?\nvalues=2\nunit=\"V, A\"\ninterval=50 ms\n"
            "timeout=20\n"))
            << bench.Error();
        bench.WireOutput(0);
        bench.WireOutput(1);
        ASSERT_TRUE(RunUntil(bench, 5)) << bench.Error();
        std::vector<double> expected;
        while (expected.size() < bench.Samples(0).size())
            expected.push_back(static_cast<double>(expected.size()));
        EXPECT_EQ(bench.Samples(0), expected);
        EXPECT_GE(expected.size(), 5U);
        EXPECT_EQ(bench.Samples(1), std::vector<double>(expected.size(), -2.5));
        EXPECT_EQ(bench.Blocks(0).front().GetState(), START);
        EXPECT_EQ(bench.Blocks(0).back().GetState(), STOP);
        EXPECT_EQ(fake.Heard().substr(0, 24), "*RST;:CONF:VOLT:DC\nMEAS?") << isSerial;
        for (std::size_t i = 1; i < expected.size(); ++i)
            EXPECT_GE(bench.Blocks(0)[i].GetTimestamp(), bench.Blocks(0)[i - 1].GetTimestamp());
    }
}

TEST(Instrument, AGapEndsTheSignalsBeforeTheyBeginAgain) {
    int asked = 0;
    FakeInstrument fake(false, [&](const std::string&) {
        if (++asked == 3) tc::MachineClock().WaitUntil(tc::MachineClock().Milliseconds() + 20.0, nullptr);
        return std::string("7\n");
    });
    ModuleBench bench("instrument", "Instrument");
    ASSERT_TRUE(bench.Set(fake.Settings() + "interval=1 ms\ntimeout=20\n")) << bench.Error();
    bench.WireOutput(0);
    ASSERT_TRUE(RunUntil(bench, 6)) << bench.Error();
    EXPECT_GE(bench.Module().GetGaps().count, 1);
    EXPECT_THAT(bench.States(0), HasSubstr("STOP START"));
}

TEST(Instrument, EachBlockOfSamplesIsASignal) {
    FakeInstrument fake(false, [](const std::string&) { return std::string("#16\0\1\0\2\xFF\xFD\n", 10); });
    ModuleBench bench("instrument", "Instrument");
    ASSERT_TRUE(
        bench.Set(fake.Settings() + "answer=block\nformat=s16be\nquery=CURV?\ninterval=1 ms\ntimeout=20\n"))
        << bench.Error();
    bench.WireOutput(0);
    ASSERT_TRUE(RunUntil(bench, 6)) << bench.Error();
    const std::vector<double>& samples = bench.Samples(0);
    ASSERT_GE(samples.size(), 6U);
    EXPECT_THAT(std::vector(samples.begin(), samples.begin() + 6), ElementsAre(1, 2, -3, 1, 2, -3));
    EXPECT_EQ(bench.States(0).substr(0, 17), "COMPLETE COMPLETE");
}

TEST(Instrument, OneThatFailsIsNamedAndWhatItSaidIsSent) {
    const struct {
        const char* last;  // answer
        const char* reason;
    } rows[] = {{"bye", "it closed the connection"},
                {"", "no answer to 'READ?' within 0.5 s; check the query and the timeout"},
                {"OVERLOAD\n", "the answer 'OVERLOAD' is no number"}};
    for (const auto& row : rows) {
        int asked = 0;
        FakeInstrument fake(false, [&](const std::string&) {
            return ++asked <= 3 ? std::string("7\n") : std::string(row.last);
        });
        ModuleBench bench("instrument", "Instrument");
        ASSERT_TRUE(
            bench.Set(fake.Settings() + "interval=1 ms\ntimeout=" + (*row.last == '\0' ? "0.5\n" : "20\n")));
        bench.WireOutput(0);
        EXPECT_FALSE(RunUntil(bench, 1000));
        EXPECT_THAT(bench.Error(), HasSubstr(row.reason));
        EXPECT_THAT(bench.Samples(0), ElementsAre(7, 7, 7));
        EXPECT_EQ(bench.Blocks(0).back().GetState(), STOP);
    }
    ModuleBench bench("instrument", "Instrument");
    ASSERT_TRUE(bench.Set("connection=serial\naddress=/dev/there-is-none\n"));
    bench.WireOutput(0);
    EXPECT_FALSE(bench.Start());
    EXPECT_THAT(bench.Error(),
                HasSubstr("no instrument answers at /dev/there-is-none (No such file or directory)"));
    bench.Finish();
}

}  // namespace
