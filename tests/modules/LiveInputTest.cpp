// What the bytes of live input mean, and the conformance test of all devices: each is driven through the same
// feed without its thread, with a clock that is moved by hand.
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <functional>
#include <map>
#include <numeric>

#include "modules/capture/AlsaDevice.h"
#include "modules/live/LiveSource.h"
#include "modules/live/StreamDevice.h"
#include "sigweave/module/ModuleSignals.h"
#include "tests/support/HandMovedClock.h"
#include "tests/support/OwnFolder.h"
#include "tests/support/SoftwareDevice.h"

namespace {

using live::Packets;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Bytes = std::vector<std::byte>;

Bytes ToBytes(const std::string& text) {
    const auto* const first = reinterpret_cast<const std::byte*>(text.data());
    return {first, first + text.size()};
}

TEST(SampleFormat, BytesHaveTheMeaningOfTheirWords) {
    // The bytes 81 02 03 84 05 06 07 88, as far as a sample goes.
    const Bytes bytes = ToBytes("\x81\x02\x03\x84\x05\x06\x07\x88");
    const std::map<std::string, double> expected = {
        {"s8", -127},           {"u8", 129},           {"s16le", 0x0281},   {"s16be", -0x7EFE},
        {"u16le", 0x0281},      {"u16be", 0x8102},     {"s24le", 0x030281}, {"s24be", -0x7EFDFD},
        {"s32le", -0x7BFCFD7F}, {"s32be", -0x7EFDFC7C}};
    for (const live::SampleFormat& format : live::FORMATS) {
        if (format.kind == live::SampleFormat::FLOAT) continue;
        double values[2] = {};
        live::Decode(format, bytes.data(), 4, 1, 1.0, 0.0, values);
        EXPECT_EQ(values[0], expected.at(format.word)) << format.word;
        EXPECT_LE(format.RangeMinimum(), values[0]);
        EXPECT_GE(format.RangeMaximum(), values[0]);
    }
    // 1.5 is 3FC00000 and 3FF8000000000000 by IEEE 754.
    const std::pair<const char*, std::string> floats[] = {{"f32le", std::string("\0\0\xC0\x3F", 4)},
                                                          {"f32be", std::string("\x3F\xC0\0\0", 4)},
                                                          {"f64le", std::string("\0\0\0\0\0\0\xF8\x3F", 8)},
                                                          {"f64be", std::string("\x3F\xF8\0\0\0\0\0\0", 8)}};
    for (const auto& [word, text] : floats) {
        const auto* const format =
            std::ranges::find(live::FORMATS, std::string(word), &live::SampleFormat::word);
        const Bytes twice = ToBytes(text + text);
        double values[2] = {};
        live::Decode(*format, twice.data(), text.size(), 2, 2.0, 1.0, values);
        EXPECT_THAT(values, ElementsAre(4.0, 4.0)) << word;
    }
}

// "lost:bytes" of each piece.
std::string Unpack(Packets& packets, const std::string& bytes, bool isDatagram) {
    std::string text;
    packets.Give(ToBytes(bytes), isDatagram);
    for (Packets::Piece piece; packets.Next(piece);) {
        if (piece.lost != 0) text += "[" + std::to_string(piece.lost) + "]";
        text.append(reinterpret_cast<const char*>(piece.frames.data()), piece.frames.size());
    }
    return text;
}

TEST(Packets, FramesComeWholeHoweverTheStreamIsCut) {
    const std::string sent = "aabbccddeeff";
    for (std::size_t cut = 1; cut <= sent.size(); ++cut) {
        Packets packets({.frameBytes = 2});
        std::string got;
        for (std::size_t at = 0; at < sent.size(); at += cut)
            got += Unpack(packets, sent.substr(at, cut), false);
        EXPECT_EQ(got, sent) << cut;
    }
    const std::string stream("\x01\0abcd\x02\0efgh\x05\0ijkl", 18);
    for (std::size_t cut = 1; cut <= stream.size(); ++cut) {
        Packets packets({.frameBytes = 2, .numberBytes = 2, .packetFrames = 2});
        std::string got;
        for (std::size_t at = 0; at < stream.size(); at += cut)
            got += Unpack(packets, stream.substr(at, cut), false);
        EXPECT_EQ(got, "abcdefgh[4]ijkl") << cut;
        EXPECT_EQ(packets.Rest(), 0U);
    }
}

TEST(Packets, NumbersShowLossAndLatenessAndBeginAnew) {
    Packets packets({.frameBytes = 1, .numberBytes = 2, .isNumberBigEndian = true});
    const auto datagram = [&](unsigned number, const std::string& bytes) {
        const char header[] = {static_cast<char>(number >> 8), static_cast<char>(number)};
        return Unpack(packets, std::string(header, 2) + bytes, true);
    };
    EXPECT_EQ(datagram(65534, "ab"), "ab") << "the first is where it begins";
    EXPECT_EQ(datagram(65535, "cd"), "cd");
    EXPECT_EQ(datagram(0, "ef"), "ef") << "after the largest";
    EXPECT_EQ(datagram(3, "gh"), "[4]gh");
    EXPECT_EQ(datagram(2, "xx"), "") << "given up already";
    EXPECT_EQ(packets.Late(), 1);
    EXPECT_EQ(datagram(40000, "ij"), "[-1]ij") << "another sender";
    EXPECT_EQ(datagram(40001, ""), "");
    EXPECT_EQ(packets.Broken(), 2);
    Packets counting({.frameBytes = 1, .numberBytes = 4, .numbersFrames = true});
    EXPECT_EQ(Unpack(counting, std::string("\x0A\0\0\0abc", 7), true), "abc");
    EXPECT_EQ(Unpack(counting, std::string("\x0F\0\0\0de", 6), true), "[2]de");
}

// A world in which one kind of device stands.
class Rig {
 public:
    virtual ~Rig() = default;
    virtual std::unique_ptr<live::Device> Make() = 0;
    // To be called after the device was opened.
    virtual void Send(const Bytes& bytes) = 0;
    // False when there is no such thing.
    virtual bool End() = 0;
    virtual bool Vanish() = 0;
    // The device loses something, and nobody knows how much.
    virtual bool Overrun() { return false; }
    virtual bool CutsFrames() const { return true; }
};

class SoftwareRig final : public Rig {
 public:
    std::unique_ptr<live::Device> Make() override { return std::make_unique<SoftwareDevice>(world); }
    void Send(const Bytes& bytes) override {
        world.Give({live::Device::DATA, bytes, std::exchange(lost, 0)});
    }
    bool Overrun() override {
        lost = live::UNKNOWN_LOSS;
        return true;
    }
    bool End() override {
        world.Give({live::Device::END, {}});
        return true;
    }
    bool Vanish() override {
        world.Give({live::Device::FAILED, {}});
        return true;
    }

 private:
    SoftwareDevice::World world;
    std::int64_t lost = 0;
};

// A sound device of the library's own, which gives nothing; the calls that take samples are replaced.
class SoundRig final : public Rig {
 public:
    std::unique_ptr<live::Device> Make() override {
        const std::string path = (ProgramFolder() / "asound.conf").string();
        std::ofstream(path) << "pcm.standin { type null }\n";
        setenv("ALSA_CONFIG_PATH", path.c_str(), 1);
        Answers().clear();
        static constexpr live::PcmCalls CALLS = {&Read, [](void*) { return 0; }};
        return std::make_unique<live::AlsaDevice>(
            live::CapturePlan{.device = "standin", .format = &live::FORMATS[2], .channels = 2, .rate = 1000},
            CALLS);
    }
    void Send(const Bytes& bytes) override { Answers().push_back({0, bytes}); }
    bool End() override { return false; }
    bool Vanish() override {
        Answers().push_back({-ENODEV, {}});
        return true;
    }
    bool Overrun() override {
        Answers().push_back({-EPIPE, {}});
        return true;
    }
    bool CutsFrames() const override { return false; }

 private:
    struct Answer {
        long code;
        Bytes bytes;
    };
    static std::deque<Answer>& Answers() {
        static std::deque<Answer> answers;
        return answers;
    }
    static long Read(void*, void* to, unsigned long frames) {
        if (Answers().empty()) return -EAGAIN;
        const Answer answer = Answers().front();
        Answers().pop_front();
        EXPECT_LE(answer.bytes.size(), 4 * frames);
        if (!answer.bytes.empty()) std::memcpy(to, answer.bytes.data(), answer.bytes.size());
        return answer.code < 0 ? answer.code : static_cast<long>(answer.bytes.size() / 4);
    }
};

// A pipe, or a file that grows.
class FileRig final : public Rig {
 public:
    explicit FileRig(bool isPipe) : path(folder->Path() / "file"), pipe(isPipe) {}
    std::unique_ptr<live::Device> Make() override {
        if (pipe)
            mkfifo(path.c_str(), 0600);
        else
            std::ofstream(path) << "";
        return std::make_unique<live::StreamDevice>(
            live::StreamPlace{.kind = live::StreamPlace::FILE, .path = path.string(), .grows = !pipe});
    }
    void Send(const Bytes& bytes) override {
        if (!file.is_open()) file.open(path, std::ios::binary | std::ios::app);
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        file.flush();
    }
    bool End() override {
        file.close();
        return pipe;
    }
    bool Vanish() override {
        if (!pipe) std::filesystem::resize_file(path, 0);
        return !pipe;
    }

 private:
    std::unique_ptr<tc::OwnedFolder> folder = MakeOwnFolder();
    std::filesystem::path path;
    bool pipe;
    std::ofstream file;
};

class SocketRig final : public Rig {
 public:
    explicit SocketRig(live::StreamPlace::Kind deviceKind) : kind(deviceKind) {}
    ~SocketRig() override { Close(); }
    std::unique_ptr<live::Device> Make() override {
        live::StreamPlace place{
            .kind = kind, .path = (folder->Path() / "socket").string(), .host = "127.0.0.1"};
        if (kind == live::StreamPlace::LOCAL) ListenLocal(place.path);
        auto made = std::make_unique<live::StreamDevice>(place);
        device = made.get();
        return made;
    }
    void Send(const Bytes& bytes) override {
        if (peer < 0) Connect();
        EXPECT_EQ(send(peer, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    }
    bool End() override {
        if (kind == live::StreamPlace::UDP) return false;
        Close();
        return true;
    }
    bool Vanish() override {
        if (kind != live::StreamPlace::LISTEN) return false;
        const linger reset{1, 0};  // the connection is reset, not closed
        setsockopt(peer, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
        return End();
    }

 private:
    void Close() {
        for (int* const socket : {&peer, &listener})
            if (*socket >= 0) close(std::exchange(*socket, -1));
    }
    void ListenLocal(const std::string& path) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        listener = socket(AF_UNIX, SOCK_STREAM, 0);
        ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ASSERT_EQ(listen(listener, 1), 0);
    }
    void Connect() {
        if (kind == live::StreamPlace::LOCAL) {
            peer = accept(listener, nullptr, nullptr);
            return;
        }
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(device->Port()));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        peer = socket(AF_INET, kind == live::StreamPlace::UDP ? SOCK_DGRAM : SOCK_STREAM, 0);
        ASSERT_EQ(connect(peer, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }

    std::unique_ptr<tc::OwnedFolder> folder = MakeOwnFolder();
    live::StreamPlace::Kind kind;
    live::StreamDevice* device = nullptr;
    int listener = -1;
    int peer = -1;
};

constexpr double RATE = 1000.0;
constexpr double START = 1.7e12;
constexpr std::size_t BLOCK = 100;

// The module of a device: two channels of 16 bits.
class Source final : public live::LiveSource {
 public:
    Source() : LiveSource(0, {}) { Declare(live::FORMATS[2], std::vector<live::Channel>(2), RATE, "source"); }
    const char* GetModuleId() const override { return "Source"; }
    const char* GetDescription() const override { return ""; }
    int Take(std::unique_ptr<live::Device> device, const live::FeedPlan& plan) {
        return Begin(std::move(device), plan, START);
    }
    live::Feed& Input() { return channels.Input(); }
};

class LiveDevice
    : public testing::TestWithParam<std::pair<const char*, std::function<std::unique_ptr<Rig>()>>> {
 protected:
    void Begin(const live::Packing& packing = {}, double silence = 0.0) {
        rig = GetParam().second();
        std::unique_ptr<live::Device> device = rig->Make();
        std::string error;
        ASSERT_TRUE(device->Open(error)) << error;
        source.AddLine(OUTPUT, 0);
        source.AddOutputStream(0, stream.SetInputStream(3));
        source.GetMessageA(TCPortHelper::MESSAGE_RUNNING, 1);
        ASSERT_EQ(source.Take(std::move(device), {.packing = packing,
                                                  .block = BLOCK,
                                                  .silence = silence,
                                                  .clock = &clock,
                                                  .hasThread = false}),
                  0);
    }
    void TearDown() override {
        source.Done();
        source.DeleteStreams();
    }

    live::Feed& Input() { return source.Input(); }

    // The bytes of frames: left counts, right is its opposite.
    static Bytes Frames(int first, int count) {
        Bytes bytes;
        for (int i = first; i < first + count; ++i)
            for (const int value : {i, -i})
                for (const int byte : {value, value >> 8}) bytes.push_back(static_cast<std::byte>(byte));
        return bytes;
    }

    // Until that position was read, however many turns that takes; `works`: and sent.
    void ReadTo(std::int64_t position, bool works = true) {
        while (Input().Position() < position) {
            Input().Pump();
            if (works) Work();
            if (Input().Position() >= position) break;
            ASSERT_EQ(tc::WaitForHandle(Input().Source().Handle(), 20000.0), tc::WAIT_SIGNALLED);
        }
    }
    void SendFrames(int first, int count) {
        rig->Send(Frames(first, count));
        ReadTo(first + count);
    }
    void ReadToEnd() {
        while (Input().Pump()) {
            void* const handles[] = {Input().Source().Handle()};
            tc::WaitForAnyHandle(handles, 20000.0);
        }
        Work();
    }
    void Work() {
        while (source.Fetch() == 0) {
            if (source.Execute() < 0) failure = source.GetLastErrorText();
            const double* values = nullptr;
            int rows = 0;
            int columns = 0;
            while (stream.PeekDblData(0, values, &rows, &columns) > 0) {
                blocks.push_back(*stream.PeekTI());
                samples.insert(samples.end(), values, values + stream.GetBlockLen(0, 0));
                stream.RemoveContents(false);
            }
        }
    }
    std::string States() const {
        std::string states;
        for (const TCTypeInfo& ti : blocks) states += "0123"[ti.GetState()];
        return states;
    }
    // A device that runs at another speed than its rate says.
    void RunAt(double speed, int seconds) {
        Begin();
        for (int i = 0; i < seconds * 5; ++i) {
            clock.Move(200.0 / speed);
            SendFrames(i * 200, 200);
            samples.clear();
        }
        EXPECT_NEAR(Input().MeasuredRate(), speed * RATE, 0.005);
        EXPECT_DOUBLE_EQ(blocks.back().GetTimestamp(), START + 1000.0 * seconds - 200.0);
        EXPECT_EQ(source.GetGaps().count, 0);
    }
    static std::vector<double> Count(int first, int end) {
        std::vector<double> numbers(static_cast<std::size_t>(end - first));
        std::iota(numbers.begin(), numbers.end(), first);
        return numbers;
    }

    HandMovedClock clock;
    std::unique_ptr<Rig> rig;
    TCIOStream stream;
    Source source;
    std::string failure;
    std::vector<double> samples;
    std::vector<TCTypeInfo> blocks;
};

TEST_P(LiveDevice, BlocksAreWholeAndStampedByPositionHoweverThePiecesCome) {
    Begin();
    EXPECT_EQ(source.Fetch(), 1) << "nothing yet";
    int sent = 0;
    for (const int count : {1, 7, 92, 100, 33, 250, 17}) {
        clock.Move(sent % 3 * 40.0);
        SendFrames(sent, count);
        sent += count;
    }
    ASSERT_EQ(sent, 500);
    EXPECT_EQ(samples, Count(0, 400)) << "whether the rest is the end is not known yet";
    if (!rig->End()) {
        source.Interrupt();
        Work();
    } else {
        ReadToEnd();
    }
    EXPECT_EQ(samples, Count(0, 500));
    EXPECT_EQ(States(), "01112");
    for (std::size_t i = 0; i < blocks.size(); ++i)
        EXPECT_DOUBLE_EQ(blocks[i].GetTimestamp(), START + 100.0 * static_cast<double>(i));
    EXPECT_EQ(source.GetGaps().count, 0);
    EXPECT_THAT(failure, IsEmpty());
}

TEST_P(LiveDevice, LostPacketsEndTheSignalAndCount) {
    Begin({.numberBytes = 2, .isNumberBigEndian = true, .packetFrames = 30});
    if (!rig->CutsFrames()) GTEST_SKIP() << "it gives whole samples only";
    for (int packet = 0; packet < 20; ++packet) {
        if (packet == 4 || packet == 5 || packet == 11) continue;
        Bytes bytes = {std::byte{0}, static_cast<std::byte>(packet)};
        const Bytes frames = Frames(30 * packet, 30);
        bytes.insert(bytes.end(), frames.begin(), frames.end());
        rig->Send(bytes);
        ReadTo(30 * (packet + 1));
    }
    EXPECT_EQ(source.GetGaps().count, 2);
    EXPECT_EQ(source.GetGaps().samples, 90);
    EXPECT_DOUBLE_EQ(source.GetGaps().first, START + 120.0);
    source.Interrupt();
    Work();
    EXPECT_EQ(States().substr(0, 4), "0202") << "120 samples, a gap, 150, a gap";
    EXPECT_DOUBLE_EQ(blocks[2].GetTimestamp(), START + 180.0);
    EXPECT_EQ(samples[120], 180.0);
}

TEST_P(LiveDevice, AnOverrunIsAGapAsLongAsTheClockSays) {
    Begin();
    clock.Move(250.0);
    SendFrames(0, 250);
    if (!rig->Overrun()) GTEST_SKIP() << "it has none";
    clock.Move(175.0);
    rig->Send(Frames(325, 100));
    ReadTo(425);
    source.Interrupt();
    Work();
    EXPECT_EQ(States(), "0123");
    EXPECT_DOUBLE_EQ(blocks[3].GetTimestamp(), START + 325.0);
    EXPECT_EQ(source.GetGaps().count, 1);
    EXPECT_EQ(source.GetGaps().samples, 75);
}

TEST_P(LiveDevice, OneThatVanishesIsNamedAndWhatCameIsSent) {
    Begin();
    SendFrames(0, 250);
    if (!rig->Vanish()) GTEST_SKIP() << "it only ends";
    ReadToEnd();
    EXPECT_EQ(samples, Count(0, 250));
    EXPECT_EQ(States(), "012");
    EXPECT_THAT(failure, testing::Not(IsEmpty()));
}

TEST_P(LiveDevice, OneThatIsSilentForTooLongIsGone) {
    Begin({}, 800.0);
    clock.Move(5000.0);
    EXPECT_TRUE(Input().Pump()) << "it has not begun";
    SendFrames(0, 250);
    clock.Move(799.0);
    EXPECT_TRUE(Input().Pump());
    clock.Move(1.0);
    EXPECT_FALSE(Input().Pump());
    Work();
    EXPECT_EQ(samples, Count(0, 250));
    EXPECT_EQ(States(), "012");
    EXPECT_THAT(failure, HasSubstr(" for 0.8 s: its sender has gone"));
}

TEST_P(LiveDevice, AFullRingLosesNothingOfAPipeAndCountsWhatIsLostOfOthers) {
    Begin();
    const bool holdsBack = Input().Source().CanHoldBack();
    const int room = static_cast<int>(Input().Ring().Capacity());
    // The connection itself holds that much.
    for (int sent = 0; sent < room + 2000; sent += 200) {
        rig->Send(Frames(sent, 200));
        if (sent + 200 <= room || !holdsBack) ReadTo(sent + 200, false);
    }
    Input().Pump();
    EXPECT_EQ(Input().Ring().Room(), 0U);
    Work();
    if (holdsBack) {
        ReadTo(room + 2000);
        EXPECT_EQ(Input().Overrun(), 0);
    } else {
        SendFrames(room + 2000, 101);
        EXPECT_EQ(Input().Overrun(), 2000);
        EXPECT_EQ(source.GetGaps().samples, 2000);
    }
    EXPECT_EQ(source.GetGaps().count, holdsBack ? 0 : 1);
}

// In simulated time.
TEST_P(LiveDevice, AnHourOfDriftIsMeasuredAndNothingIsLost) {
    RunAt(1.00005, 3600);
}

TEST_P(LiveDevice, AWrongRateIsMeasured) {
    RunAt(0.9, 60);
}

INSTANTIATE_TEST_SUITE_P(
    All, LiveDevice,
    testing::Values(
        LiveDevice::ParamType{"Software", [] { return std::make_unique<SoftwareRig>(); }},
        LiveDevice::ParamType{"Sound", [] { return std::make_unique<SoundRig>(); }},
        LiveDevice::ParamType{"Pipe", [] { return std::make_unique<FileRig>(true); }},
        LiveDevice::ParamType{"GrowingFile", [] { return std::make_unique<FileRig>(false); }},
        LiveDevice::ParamType{"Listen",
                              [] { return std::make_unique<SocketRig>(live::StreamPlace::LISTEN); }},
        LiveDevice::ParamType{"Unix", [] { return std::make_unique<SocketRig>(live::StreamPlace::LOCAL); }},
        LiveDevice::ParamType{"Udp", [] { return std::make_unique<SocketRig>(live::StreamPlace::UDP); }}),
    [](const auto& row) { return std::string(row.param.first); });

}  // namespace
