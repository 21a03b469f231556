// What instruments answer, and the module against a small one of the test's own.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <cmath>
#include <functional>
#include <mutex>

#include "modules/instrument/ScpiAnswer.h"
#include "sigweave/platform/Event.h"
#include "sigweave/platform/Thread.h"
#include "sigweave/platform/linux/Handle.h"
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
                {"#0abc\n", "f32be", "is no block of given length"},
                {"#x", "f32be", "is no block"},
                {"#2x4", "f32be", "is no block"},
                {"#9999999999", "f32be", "is no block"},
                {"#13abc", "f32be", "3 bytes, which is no whole number of samples of 4"}};
    for (const auto& row : rows) {
        ScpiAnswer answer(row.format != nullptr ? FormatOf(row.format) : nullptr, 1);
        std::vector<double> values;
        std::string error;
        answer.Give(Bytes(row.answer));
        EXPECT_EQ(answer.Take(values, error), ScpiAnswer::WRONG) << row.answer;
        EXPECT_THAT(error, HasSubstr(row.reason));
    }
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
        ASSERT_TRUE(
            bench.Set(fake.Settings() +
                      "commands=\"*RST;:CONF:VOLT:DC\"\nquery=MEAS?\nvalues=2\nunit=\"V, A\"\ninterval=1 ms\n"
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
        EXPECT_EQ(bench.States(0).substr(0, 10), "START BUSY");
        EXPECT_EQ(bench.Blocks(0).back().GetState(), STOP);
        EXPECT_EQ(fake.Heard().substr(0, 24), "*RST;:CONF:VOLT:DC\nMEAS?") << isSerial;
        for (std::size_t i = 1; i < expected.size(); ++i)
            EXPECT_GE(bench.Blocks(0)[i].GetTimestamp(), bench.Blocks(0)[i - 1].GetTimestamp());
    }
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
