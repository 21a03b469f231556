#include <gmock/gmock.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>

#include "studio/server/Trace.h"

namespace {

using studio::Picture;
using studio::Trace;
using studio::Wish;
using testing::ElementsAre;

// A signal that is written block by block, as by a module, and seen by one trace.
class Signal {
 public:
    explicit Signal(double rate) {
        writer.AddOutputStream(reader.SetInputStream(9));
        info.SetSamplerate(rate);
        info.SetSignalname("tone");
        info.SetTimestamp(1000.0);
        info.SetState(START);
    }

    void Send(Trace& trace, const std::vector<double>& values) {
        writer.SetTI(&info, false);
        writer.WriteDblVec(values.data(), static_cast<int>(values.size()));
        trace.Add(*reader.GetWaitingBlock(0));
        reader.RemoveContents(true);
        info.SetState(BUSY);
    }

    TCTypeInfo info;

 private:
    TCIOStream writer;
    TCIOStream reader;
};

Picture Take(Trace& trace) {
    Picture picture;
    trace.Publish();
    EXPECT_TRUE(trace.Take(picture));
    return picture;
}

Wish Window(double seconds) {
    Wish wish;
    wish.seconds = seconds;
    return wish;
}

TEST(Trace, ShowsOneSampleInTenMillion) {
    Signal signal(1e6);
    Trace trace(Window(10.0));
    std::vector<double> block(10000, 1.0);
    for (int i = 0; i < 1000; ++i) {
        block[1234] = i == 567 ? -3.0 : 1.0;
        signal.Send(trace, block);
    }
    const Picture picture = Take(trace);
    EXPECT_EQ(picture.perColumn, 10000);
    EXPECT_EQ(picture.first, 0);
    ASSERT_EQ(picture.low.size(), 1000u);
    EXPECT_EQ(picture.low[567], -3.0);
    EXPECT_EQ(std::ranges::count(picture.low, 1.0), 999);
    EXPECT_EQ(std::ranges::count(picture.high, 1.0), 1000);
}

TEST(Trace, KeepsTheNewestWindowAndItsPlaceInTheSignal) {
    Signal signal(1000.0);
    Trace trace(Window(3.0));  // 3 samples a column
    double next = 0.0;
    for (const int size : {7, 1, 2000, 995, 4}) {
        std::vector<double> block;
        for (int i = 0; i < size; ++i) block.push_back(next++);
        signal.Send(trace, block);
    }
    const Picture picture = Take(trace);
    EXPECT_EQ(picture.perColumn, 3);
    EXPECT_EQ(picture.newest, 3007);
    ASSERT_EQ(picture.low.size(), 1000u);
    EXPECT_EQ(picture.first, 9);  // 1003 columns were begun, the last of one sample
    for (std::size_t i = 0; i < 1000; ++i) {
        EXPECT_EQ(picture.low[i], 9.0 + 3.0 * static_cast<double>(i));
        EXPECT_EQ(picture.high[i], std::min(picture.low[i] + 2.0, 3006.0));
    }
    EXPECT_EQ(picture.window, 1000);
    EXPECT_EQ(picture.start, 1000.0);
    EXPECT_EQ(picture.name, "tone");
}

TEST(Trace, BeginsAnewWithEachSignal) {
    Signal signal(1000.0);
    Trace trace(Window(1.0));
    signal.Send(trace, {1, 2, 3});
    signal.info.SetState(STOP);
    signal.Send(trace, {4});
    EXPECT_TRUE(Take(trace).ended);
    signal.info.SetState(COMPLETE);
    signal.Send(trace, {7, 8});
    const Picture picture = Take(trace);
    EXPECT_THAT(picture.low, ElementsAre(7, 8));
    EXPECT_EQ(picture.signals, 2);
}

TEST(Trace, BeginsAtTheTriggerAndShowsWholeSweeps) {
    Wish wish = Window(0.1);
    wish.triggers = true;
    wish.level = 0.5;
    Signal signal(10000.0);  // 1 sample a column
    Trace trace(wish);
    std::vector<double> ramp(1500);  // rises through 0.5 at 700 alone
    for (std::size_t i = 0; i < ramp.size(); ++i) ramp[i] = i < 700 ? 0.0 : static_cast<double>(i);
    signal.Send(trace, {ramp.begin(), ramp.begin() + 650});
    EXPECT_TRUE(Take(trace).low.empty());
    signal.Send(trace, {ramp.begin() + 650, ramp.end()});
    EXPECT_EQ(Take(trace).low.size(), 800u);
    signal.Send(trace, std::vector<double>(400, 9.0));
    const Picture picture = Take(trace);
    EXPECT_EQ(picture.first, 700);
    ASSERT_EQ(picture.low.size(), 1000u);
    EXPECT_EQ(picture.low.front(), 700.0);
    EXPECT_EQ(picture.low.back(), 9.0);
}

TEST(Trace, ShowsSingleSamples) {
    Wish wish;
    wish.kind = Wish::Samples;
    wish.samples = 4;
    Signal signal(1000.0);
    Trace trace(wish);
    signal.Send(trace, {1, 2});
    EXPECT_THAT(Take(trace).low, ElementsAre(1, 2));
    signal.Send(trace, {3, 4, 5});
    const Picture picture = Take(trace);
    EXPECT_THAT(picture.low, ElementsAre(2, 3, 4, 5));
    EXPECT_EQ(picture.first, 1);
}

TEST(Trace, ShowsLevelsOfWholeStretches) {
    Wish wish = Window(0.004);
    wish.kind = Wish::Level;
    Signal signal(1000.0);  // 4 samples a level
    Trace trace(wish);
    signal.Send(trace, {3, -4});
    EXPECT_DOUBLE_EQ(Take(trace).low.at(0), std::sqrt(12.5));
    signal.Send(trace, {3, 4, 1, -1, 1, -1, 100});
    const Picture picture = Take(trace);
    EXPECT_THAT(picture.low, ElementsAre(std::sqrt(12.5), 1.0));
    EXPECT_THAT(picture.high, ElementsAre(4.0, 1.0));
    for (int i = 0; i < 1000; ++i) signal.Send(trace, {2});
    EXPECT_EQ(Take(trace).low.size(), 99u);
    EXPECT_EQ(Take(trace).first % 4, 0);
}

// A sine of amplitude 10 in the bin 8 of 64, which is 20 dB, then one of 1 in the bin 16.
TEST(Trace, ShowsTheNewestColumnsOfASpectrogram) {
    constexpr double TURN = 6.283185307179586;
    Wish wish = Window(0.2 * 64);
    wish.kind = Wish::Spectrogram;
    Signal signal(1000.0);  // 64 samples a column
    Trace trace(wish);
    std::vector<double> block;
    for (int i = 0; i < 64 * 150; ++i) block.push_back(10.0 * std::sin(TURN * 8 * i / 64));
    signal.Send(trace, block);
    const Picture before = Take(trace);
    EXPECT_EQ(before.bins, 32u);
    EXPECT_EQ(before.levels.size(), 32u * 150);
    EXPECT_NEAR(before.top, 20.0, 1e-3);
    EXPECT_EQ(before.levels[8], 255);
    EXPECT_EQ(before.levels[20], 1);
    for (int i = 0; i < 64 * 150; ++i) block[static_cast<std::size_t>(i)] = std::sin(TURN * 16 * i / 64);
    signal.Send(trace, block);
    signal.Send(trace, {0.0});  // of a column that is not whole
    const Picture after = Take(trace);
    EXPECT_EQ(after.first, 100 * 64);
    ASSERT_EQ(after.levels.size(), 32u * 200);
    EXPECT_EQ(after.levels[32 * 49 + 8], 255);
    EXPECT_EQ(after.levels[32 * 50 + 16], 255 - 40);  // 20 dB lower
    EXPECT_EQ(after.levels[32 * 199 + 16], 255 - 40);
    EXPECT_EQ(Encode(after, 1, Wish::Spectrogram).size() % 4, 0u);
}

TEST(Trace, ShowsTheNewestTexts) {
    Wish wish;
    wish.kind = Wish::Texts;
    wish.samples = 2;
    TCIOStream writer;
    TCIOStream reader;
    writer.AddOutputStream(reader.SetInputStream(9));
    TCTypeInfo info;
    info.SetState(START);
    Trace trace(wish);
    for (const char* text : {"one", "two", "three"}) {
        writer.SetTI(&info, false);
        const TCString value(text);
        writer.WriteStrVec(&value, 1);
        trace.Add(*reader.GetWaitingBlock(0));
        reader.RemoveContents(true);
        info.SetState(BUSY);
    }
    const Picture picture = Take(trace);
    ASSERT_EQ(picture.texts.size(), 2u);
    EXPECT_EQ(picture.texts[1].text, "three");
    EXPECT_EQ(picture.texts[1].at, 2);
    EXPECT_EQ(picture.first, 1);
}

TEST(Trace, PassesOverWhatIsNoNumber) {
    Signal signal(1000.0);
    Trace trace(Window(2.0));
    const double none = std::numeric_limits<double>::quiet_NaN();
    signal.Send(trace, {none, 1.0, none, none});
    const Picture picture = Take(trace);
    EXPECT_EQ(picture.low[0], 1.0);
    EXPECT_EQ(picture.high[0], 1.0);
    EXPECT_GT(picture.low[1], picture.high[1]);  // which is drawn as a gap
}

TEST(Trace, HandsOutEachPictureOnce) {
    Signal signal(1000.0);
    Trace trace(Window(1.0));
    signal.Send(trace, {1});
    Picture picture;
    EXPECT_TRUE(trace.Take(picture));
    EXPECT_FALSE(trace.Take(picture));
}

// Small differences from a large value survive the way in 32 bits.
TEST(Trace, IsSentRelativeToItsMiddle) {
    Picture picture;
    picture.low = {1e9 - 0.25, 1e9};
    picture.high = {1e9, 1e9 + 0.25};
    const std::string bytes = Encode(picture, 42, Wish::Envelope);
    std::uint32_t length = 0;
    std::memcpy(&length, bytes.data(), 4);
    ASSERT_EQ(length % 4, 0u);
    ASSERT_EQ(bytes.size(), 4 + length + 16);
    const auto header = nlohmann::json::parse(bytes.substr(4, length));
    EXPECT_EQ(header["key"], 42);
    EXPECT_EQ(header["columns"], 2);
    float values[4];
    std::memcpy(values, bytes.data() + 4 + length, 16);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(
            header["base"].get<double>() + static_cast<double>(values[i]),
            i < 2 ? picture.low[static_cast<std::size_t>(i)] : picture.high[static_cast<std::size_t>(i - 2)]);
}

}  // namespace
