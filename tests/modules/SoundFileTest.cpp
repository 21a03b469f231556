#include <gmock/gmock.h>
#include <sndfile.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "tests/support/ModuleBench.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

// Values as left-justified 32-bit integers or as doubles, interleaved.
template <class T>
std::string WriteSound(const std::string& name, int format, int channels, const std::vector<T>& values,
                       int rate = 8000) {
    const std::string path = FreshFile(name);
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    const auto count = static_cast<sf_count_t>(values.size());
    if constexpr (std::is_same_v<T, int>) sf_write_int(file, values.data(), count);
    if constexpr (std::is_same_v<T, double>) {
        sf_command(file, SFC_SET_CLIPPING, nullptr, SF_FALSE);
        sf_write_double(file, values.data(), count);
    }
    sf_close(file);
    return path;
}

std::vector<int> Ramp(int samples) {
    std::vector<int> values(static_cast<std::size_t>(samples));
    for (int i = 0; i < samples; ++i)
        values[static_cast<std::size_t>(i)] = (i * 7919 % 65536 - 32768) * 65536;
    return values;
}

// A module that is set to the file, with its first outputs wired.
struct Player : ModuleBench {
    explicit Player(const std::string& path, const std::string& settings = "", int wired = 1)
        : ModuleBench("sound-file", "SoundFile"),
          opened(Set("file=\"" + path + "\"\nstart=2026-03-01T12:00:00Z\n" + settings)) {
        for (int i = 0; opened && i < wired; ++i) WireOutput(i);
    }
    bool opened;
};

TEST(SoundFile, ValuesAreTheFilesOwn) {
    const int least = std::numeric_limits<int>::min();
    const struct {
        const char* name;
        int format;
        int shift;
        double least, greatest, bias;
    } rows[] = {{"u8.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 24, 0, 255, 128},
                {"s8.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_S8, 24, -128, 127, 0},
                {"s16.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 16, -32768, 32767, 0},
                {"s16.au", SF_FORMAT_AU | SF_FORMAT_PCM_16, 16, -32768, 32767, 0},
                {"s24.wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_24, 8, -8388608, 8388607, 0},
                {"s24.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 8, -8388608, 8388607, 0},
                {"s16.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 16, -32768, 32767, 0},
                {"s32.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_32, 0, -2147483648.0, 2147483647, 0}};
    for (const auto& row : rows) {
        const int one = 1 << row.shift;
        const std::string path = WriteSound<int>(
            row.name, row.format, 1, {least, 0, one, -one, 42 * one, std::numeric_limits<int>::max()});
        Player own(path);
        ASSERT_TRUE(own.opened && own.Run()) << own.Error();
        const double bias = row.bias;
        EXPECT_THAT(own.Samples(0), ElementsAre(row.least, bias, bias + 1, bias - 1, bias + 42, row.greatest))
            << row.name;
        EXPECT_EQ(own.Blocks(0)[0].GetRangeMin(), row.least) << row.name;
        EXPECT_EQ(own.Blocks(0)[0].GetRangeMax(), row.greatest) << row.name;
    }
}

TEST(SoundFile, FloatsAreNotClippedAndFactorAndOffsetApply) {
    const std::string path =
        WriteSound<double>("float.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1, {0.25, -12.5, 9.75, 0x1p-100});
    Player stored(path);
    ASSERT_TRUE(stored.Run());
    EXPECT_THAT(stored.Samples(0), ElementsAre(0.25, -12.5, 9.75, 0x1p-100));
    EXPECT_EQ(stored.Blocks(0)[0].GetRangeMax(), 12.5);
    Player scaled(path, "factor=-2\noffset=1");
    ASSERT_TRUE(scaled.Run());
    EXPECT_THAT(scaled.Samples(0), ElementsAre(0.5, 26.0, -18.5, 1.0));
    EXPECT_EQ(scaled.Blocks(0)[0].GetRangeMin(), -24.0);
}

TEST(SoundFile, BlocksCarryCompleteMetadata) {
    const std::vector<int> values = Ramp(5000);
    Player player(WriteSound("stereo.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, values, 1000),
                  "unit=\"V * 1e-003\"\nfactor=0.5", 2);
    ASSERT_TRUE(player.Run()) << player.Error();
    EXPECT_EQ(player.States(1), "START BUSY STOP");
    ASSERT_EQ(player.Samples(1).size(), 2500U);
    for (std::size_t i = 0; i < 2500; ++i) ASSERT_EQ(player.Samples(1)[i], values[2 * i + 1] / 131072.0) << i;
    const TCTypeInfo& ti = player.Blocks(1)[2];
    TCString unit;
    EXPECT_STREQ(ti.GetSignalname(), "Channel 2");
    EXPECT_EQ(ti.GetTimestamp(), 1772366400000.0 + 2048.0);
    EXPECT_EQ(ti.GetSamplerate(), 1000.0);
    EXPECT_STREQ(ti.GetUnit().ToString(unit), "V * 1e-003");
    const std::vector<double> before = player.Samples(0);
    ASSERT_TRUE(player.Run());
    EXPECT_EQ(player.Samples(0), before);
}

TEST(SoundFile, TheBusHoldsEveryChannel) {
    Player player(WriteSound("bus.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 3, Ramp(300)), "", 4);
    ASSERT_TRUE(player.Run());
    TCIOStream& bus = player.Stream(3);
    ASSERT_EQ(bus.StartReadSegments(), 1);
    TCTypeInfo ti;
    const TCIOStream::DataSegment* channel = bus.ReadBusSegment(bus.FindBusSegment("Channel 3", -1), &ti);
    ASSERT_NE(channel, nullptr);
    EXPECT_EQ(channel->GetElementCount(), 100);
    EXPECT_EQ(channel->GetDoubles()[1], 5 * 7919 % 65536 - 32768);
    EXPECT_EQ(ti.GetState(), COMPLETE);
    EXPECT_STREQ(ti.GetSignalname(), "Channel 3");
}

TEST(SoundFile, EndsItsSignalsWhenInterrupted) {
    Player player(WriteSound("long.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, Ramp(100000)), "block=100");
    ASSERT_TRUE(player.Start() && player.Pump(2));
    EXPECT_DOUBLE_EQ(player.Module().GetProgress(), 0.002);
    player.Module().Interrupt();
    ASSERT_TRUE(player.Pump() && player.Finish());
    EXPECT_EQ(player.States(0), "START BUSY STOP");
}

TEST(SoundFile, RefusesWhatIsNoSound) {
    std::ofstream(FreshFile("text.wav")) << "These are words, and not at all a sound.\n";
    std::ofstream(FreshFile("empty.wav")).close();
    WriteSound("silent.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, std::vector<int>());
    WriteSound("header.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, Ramp(100));
    std::filesystem::resize_file("header.wav", 30);
    const std::pair<const char*, const char*> rows[] = {
        {"missing.wav", "does not exist"},   {"empty.wav", "is empty"},
        {"text.wav", "is not a sound file"}, {"silent.wav", "no samples"},
        {"header.wav", "header.wav is no"},  {".", "is a folder"}};
    for (const auto& [name, reason] : rows) {
        const Player player(name);
        EXPECT_FALSE(player.opened) << name;
        EXPECT_THAT(player.Error(), AllOf(HasSubstr(name), HasSubstr(reason)));
    }
}

TEST(SoundFile, DeliversAFileThatBreaksOffAndThenFails) {
    const std::pair<const char*, int> rows[] = {{"cut.wav", SF_FORMAT_WAV},   {"cut.aiff", SF_FORMAT_AIFF},
                                                {"cut.au", SF_FORMAT_AU},     {"cut.w64", SF_FORMAT_W64},
                                                {"cut.rf64", SF_FORMAT_RF64}, {"cut.flac", SF_FORMAT_FLAC},
                                                {"cut.voc", SF_FORMAT_VOC}};
    const std::vector<int> values = Ramp(20000);
    for (const auto& [name, format] : rows) {
        const std::string path = WriteSound(name, format | SF_FORMAT_PCM_16, 1, values);
        std::filesystem::resize_file(path, std::filesystem::file_size(path) / 2);
        Player player(path);
        EXPECT_FALSE(player.Run()) << name;
        const std::vector<double>& samples = player.Samples(0);
        EXPECT_GT(samples.size(), 5000U) << name;
        for (std::size_t i = 0; i < samples.size(); ++i)
            ASSERT_EQ(samples[i], values[i] / 65536) << name << i;
        EXPECT_EQ(player.Blocks(0).back().GetState(), STOP) << name;
        const std::string held = std::to_string(samples.size());
        EXPECT_THAT(player.Error(),
                    HasSubstr(path + " breaks off: it promises 20000 samples and holds " + held));
    }
}

TEST(SoundFile, SaysThatAnOggStreamBreaksOff) {
    std::vector<double> values(200000);
    for (std::size_t i = 0; i < values.size(); ++i) values[i] = 0.5 * std::sin(0.01 * static_cast<double>(i));
    const std::string path = WriteSound("cut.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, 1, values);
    Player player(path);
    ASSERT_TRUE(player.Run()) << player.Error();
    EXPECT_EQ(player.Samples(0).size(), 200000U);
    std::filesystem::resize_file(path, std::filesystem::file_size(path) / 2);
    EXPECT_FALSE(player.Run());
    EXPECT_EQ(player.Blocks(0).back().GetState(), STOP);
    EXPECT_THAT(player.Error(), HasSubstr("cut.ogg breaks off"));
}

}  // namespace
