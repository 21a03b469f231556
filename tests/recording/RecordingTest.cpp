// Recordings as files: what is found again of one that is cut, damaged or still being written.
#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <random>
#include <sstream>

#include "sigweave/recording/RecordingReader.h"
#include "sigweave/recording/RecordingWriter.h"

namespace {
int syncs = 0, syncFailure = 0;
}

// In the place of the system's, also for the library.
extern "C" __attribute__((visibility("default"))) int fdatasync(int file) {
    ++syncs;
    errno = syncFailure;
    return syncFailure == 0 ? static_cast<int>(syscall(SYS_fdatasync, file)) : -1;
}

namespace {

using tc::RecordingReader;
using testing::HasSubstr;
using Opening = RecordingReader::Opening;

// Where the record of a block is in a file, and what the block is.
struct Place {
    std::int64_t begin = 0;
    std::int64_t end = 0;
    int signal = 0;
    std::int64_t number = 0;
    double value = 0.0;

    friend bool operator==(const Place&, const Place&) = default;
    friend void PrintTo(const Place& place, std::ostream* out) {
        *out << place.signal << "/" << place.number << " at " << place.begin;
    }
};

class Writing {
 public:
    explicit Writing(const std::string& path, int signals = 2) : streams(static_cast<std::size_t>(signals)) {
        EXPECT_TRUE(writer.Prepare(path.c_str(), true)) << writer.GetError();
        for (int i = 0; i < signals; ++i) {
            writer.AddSignal("Signal " + std::to_string(i + 1), "TYPEINFO{TypeInfo} DOUBLE[]{TIME_DOMAIN}",
                             2);
            streams[static_cast<std::size_t>(i)].source.AddOutputStream(
                streams[static_cast<std::size_t>(i)].line.SetInputStream(0));
        }
        EXPECT_TRUE(writer.Begin({{"graph", "[a]\nmodule=A\n"}})) << writer.GetError();
    }
    void Append(int signal, const std::vector<double>& values) {
        Stream& stream = streams[static_cast<std::size_t>(signal)];
        TCTypeInfo ti;
        ti.SetSignalname(signal == 0 ? "sine" : "caf\xC3\xA9");
        ti.SetTimestamp(1.7e12 + 0.5 * static_cast<double>(stream.blocks));
        ti.SetSamplerate(1000.0);
        ti.SetState(stream.blocks++ == 0 ? START : BUSY);
        stream.source.SetTI(&ti, false);
        stream.source.WriteDblVec(values.data(), static_cast<int>(values.size()));
        EXPECT_TRUE(writer.Append(signal, stream.line)) << writer.GetError();
    }
    tc::RecordingWriter writer;

 private:
    struct Stream {
        TCIOStream source, line;
        int blocks = 0;
    };
    std::vector<Stream> streams;
};

std::string ReadAll(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

void WriteAll(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// What is read from where the reader is; -1 is passed over.
std::vector<Place> ReadOn(RecordingReader& reader) {
    std::vector<Place> found;
    for (int read = 0; (read = reader.Next()) != 0;) {
        if (read < 0) continue;
        const TCIOStream::DataSegment* const values = reader.GetBlock().Segment(0);
        found.push_back({reader.GetFrameOffset() - 31, reader.GetFrameOffset() + reader.GetFrameSize() + 9,
                         reader.GetSignal(), reader.GetBlockNumber(), values->GetDoubles()[0]});
    }
    return found;
}

struct Content {
    bool isOpen = false;
    bool isSound = false;  // nothing was noticed
    std::int64_t behind = 0;
    std::vector<Place> blocks;
    std::vector<tc::RecordingDamage> damages;
};

Content Read(const std::string& path, Opening opening) {
    RecordingReader reader;
    Content content;
    content.isOpen = reader.Open(path.c_str(), opening);
    if (!content.isOpen) return content;
    content.blocks = ReadOn(reader);
    content.damages = reader.GetDamages();
    content.behind = reader.GetBytesBehind();
    content.isSound = content.damages.empty() && reader.IsClosed() && content.behind == 0;
    return content;
}

// A small recording, its bytes, and the place of each block in it.
struct Sample {
    Sample() {
        Writing writing("sample.mcap");
        for (int i = 0; i < 12; ++i) writing.Append(i % 3 == 2, {i + 0.25, -1.0 * i, 0.0});
        EXPECT_TRUE(writing.writer.Close());
        bytes = ReadAll("sample.mcap");
        blocks = Read("sample.mcap", Opening::BY_SCAN).blocks;
    }
    // Those that a change of these bytes leaves whole.
    std::vector<Place> Outside(std::int64_t begin, std::int64_t end) const {
        std::vector<Place> left;
        std::ranges::copy_if(blocks, std::back_inserter(left),
                             [&](const Place& block) { return block.end <= begin || block.begin >= end; });
        return left;
    }
    std::string bytes;
    std::vector<Place> blocks;
};

TEST(Recording, ComesBackWithItsSignalsAndFacts) {
    const Sample sample;
    RecordingReader reader;
    ASSERT_TRUE(reader.Open("sample.mcap")) << reader.GetError();
    EXPECT_TRUE(reader.IsClosed());
    EXPECT_EQ(reader.GetFact("graph"), "[a]\nmodule=A\n");
    ASSERT_EQ(reader.GetSignals().size(), 2u);
    const tc::RecordingSignal& second = reader.GetSignals()[1];
    EXPECT_EQ(second.name, "caf\xC3\xA9");
    EXPECT_EQ(second.port, "Signal 2");
    EXPECT_EQ(second.type, "TYPEINFO{TypeInfo} DOUBLE[]{TIME_DOMAIN}");
    EXPECT_EQ(second.items, 2);
    EXPECT_EQ(second.rate, 1000.0);
    EXPECT_EQ(second.blocks, 4);
    EXPECT_EQ(second.samples, 12);
    EXPECT_EQ(second.endTime, 1700000000001500000u);
    EXPECT_EQ(sample.blocks.size(), 12u);
    for (std::size_t i = 0; i < sample.blocks.size(); ++i) {
        EXPECT_EQ(sample.blocks[i].value, static_cast<double>(i) + 0.25);
        EXPECT_EQ((sample.blocks[i].begin + 31) % 8, 0) << "numbers lie on multiples of their size";
    }
}

TEST(Recording, HasItsWholeBlocksWhereverItIsCut) {
    const Sample sample;
    WriteAll("cut.mcap", sample.bytes);
    for (std::size_t size = sample.bytes.size() - 1; size >= 8; --size) {
        std::filesystem::resize_file("cut.mcap", size);
        const auto left = static_cast<std::int64_t>(size);
        for (const Opening opening : {Opening::BY_INDEX, Opening::BY_SCAN}) {
            const Content content = Read("cut.mcap", opening);
            ASSERT_TRUE(content.isOpen) << size;
            EXPECT_EQ(content.blocks, sample.Outside(left, INT64_MAX)) << size;
            EXPECT_FALSE(content.isSound) << size;
            EXPECT_TRUE(content.damages.empty()) << "the end is no damage, " << size;
            const bool endsWithBlock =
                std::ranges::any_of(content.blocks, [left](const Place& block) { return block.end == left; });
            EXPECT_TRUE(!endsWithBlock || content.behind == 0) << size;
        }
    }
}

TEST(Recording, LosesNoOtherBlockByAFlippedBit) {
    const Sample sample;
    std::mt19937 random(7);
    WriteAll("flipped.mcap", sample.bytes);
    std::fstream file("flipped.mcap", std::ios::in | std::ios::out | std::ios::binary);
    const auto put = [&file](std::size_t at, int byte) {
        file.seekp(static_cast<std::streamoff>(at)).put(static_cast<char>(byte)).flush();
    };
    for (std::size_t at = 0; at < sample.bytes.size(); put(at, sample.bytes[at]), ++at) {
        put(at, sample.bytes[at] ^ (1 << random() % 8));
        const auto place = static_cast<std::int64_t>(at);
        for (const Opening opening : {Opening::BY_INDEX, Opening::BY_SCAN}) {
            const Content content = Read("flipped.mcap", opening);
            ASSERT_TRUE(content.isOpen) << at;
            EXPECT_EQ(content.blocks, sample.Outside(place, place + 1)) << at;
            EXPECT_FALSE(content.isSound) << at;
        }
    }
}

TEST(Recording, LosesNoOtherBlockByAHoleOfZeros) {
    const Sample sample;
    std::mt19937 random(11);
    const auto size = static_cast<int>(sample.bytes.size());
    for (int hole = 0; hole < 500; ++hole) {
        const int begin = static_cast<int>(random() % static_cast<unsigned>(size));
        const int end = std::min(size, begin + 1 + static_cast<int>(random() % 400));
        std::string bytes = sample.bytes;
        std::fill(bytes.begin() + begin, bytes.begin() + end, '\0');
        WriteAll("hole.mcap", bytes);
        const Content content = Read("hole.mcap", Opening::BY_INDEX);
        const std::vector<Place> outside = sample.Outside(begin, end);
        ASSERT_TRUE(content.isOpen || outside.empty());
        for (const Place& block : outside) EXPECT_THAT(content.blocks, testing::Contains(block)) << begin;
        EXPECT_EQ(content.isSound, bytes == sample.bytes) << begin << " to " << end;
    }
}

TEST(Recording, SaysWhatIsLostAndWhere) {
    const Sample sample;
    std::string bytes = sample.bytes;
    const Place& third = sample.blocks[3];
    bytes[static_cast<std::size_t>(third.begin) + 100] ^= 1;
    WriteAll("third.mcap", bytes);
    RecordingReader reader;
    ASSERT_TRUE(reader.Open("third.mcap"));
    for (int i = 0; i < 3; ++i) ASSERT_EQ(reader.Next(), 1);
    EXPECT_EQ(reader.Next(), -1);
    EXPECT_EQ(reader.GetError(),
              "third.mcap: block 3 of 'sine', at byte " + std::to_string(third.begin) + ", is damaged");
    EXPECT_EQ(ReadOn(reader).size(), 8u);
    // A block that is taken out leaves no byte that would be wrong.
    WriteAll("third.mcap", sample.bytes.substr(0, static_cast<std::size_t>(third.begin)) +
                               sample.bytes.substr(static_cast<std::size_t>(third.end)));
    ASSERT_TRUE(reader.Open("third.mcap"));
    while (reader.Next() == 1) continue;
    EXPECT_THAT(reader.GetError(), HasSubstr("1 blocks of 'sine' are missing"));
}

// Without the Schemas and an index, by the first blocks; without the Channel, by the number of the signal.
TEST(Recording, KnowsTypesWhoseDefinitionIsLost) {
    const Sample sample;
    std::string bytes = sample.bytes.substr(0, static_cast<std::size_t>(sample.blocks.back().end));
    const std::size_t schema = bytes.find("sigweave.block");
    std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(schema), sample.blocks[0].begin - schema, '\0');
    WriteAll("lost.mcap", bytes);
    RecordingReader reader;
    ASSERT_TRUE(reader.Open("lost.mcap")) << reader.GetError();
    ASSERT_EQ(reader.GetSignals().size(), 2u);
    for (const tc::RecordingSignal& signal : reader.GetSignals()) {
        EXPECT_EQ(signal.type, "TYPEINFO{TypeInfo} DOUBLE[]{TIME_DOMAIN}");
        EXPECT_EQ(signal.items, 2);
        EXPECT_EQ(signal.name, signal.channel == 1 ? "signal 1" : "caf\xC3\xA9");
    }
    EXPECT_EQ(ReadOn(reader), sample.blocks);
}

TEST(Recording, IsRefusedWhenItIsNone) {
    const std::pair<std::string, const char*> rows[] = {
        {"", "is not a recording"},
        {"<Stream/>", "is not a recording"},
        {std::string("\x89MCAP0\r\n\x01", 9) + std::string(40, 'x'), "MCAP file of another program"}};
    for (const auto& [bytes, told] : rows) {
        WriteAll("none.mcap", bytes);
        RecordingReader reader;
        EXPECT_FALSE(reader.Open("none.mcap"));
        EXPECT_THAT(reader.GetError(), testing::AllOf(HasSubstr("none.mcap"), HasSubstr(told)));
    }
    RecordingReader reader;
    EXPECT_FALSE(reader.Open("."));
    EXPECT_FALSE(reader.Open("/dev/null"));
    EXPECT_THAT(reader.GetError(), HasSubstr("not an ordinary file"));
}

// Byte by byte, which no writer does, so that every moment of a write is there.
TEST(Recording, IsReadWhileItIsWritten) {
    const Sample sample;
    std::filesystem::remove("growing.mcap");
    std::ofstream growing("growing.mcap", std::ios::binary);
    growing << sample.bytes.substr(0, 60) << std::flush;
    RecordingReader reader;
    ASSERT_TRUE(reader.Open("growing.mcap")) << reader.GetError();
    std::vector<Place> found;
    for (std::size_t size = 60; size < sample.bytes.size();) {
        growing << sample.bytes[size++] << std::flush;
        ASSERT_TRUE(reader.Refresh());
        std::ranges::copy(ReadOn(reader), std::back_inserter(found));
        ASSERT_TRUE(reader.GetDamages().empty()) << size;
        ASSERT_EQ(found.size(), sample.Outside(static_cast<std::int64_t>(size), INT64_MAX).size()) << size;
    }
    EXPECT_EQ(found, sample.blocks);
    EXPECT_TRUE(reader.IsClosed());
}

TEST(Recording, HasEveryBlockThatWasWritten) {
    Writing writing("open.mcap");
    for (int i = 1; i <= 3; ++i) {
        writing.Append(0, {1.0 * i});
        RecordingReader reader;
        ASSERT_TRUE(reader.Open("open.mcap")) << reader.GetError();
        EXPECT_TRUE(reader.IsBeingWritten());
        EXPECT_EQ(ReadOn(reader).size(), static_cast<std::size_t>(i));
        EXPECT_FALSE(reader.IsClosed());
    }
    tc::RecordingWriter other;
    EXPECT_FALSE(other.Prepare("open.mcap", true));
    EXPECT_THAT(other.GetError(), HasSubstr("it is being written"));
}

// Of a program that is started by a shell; `code` is its exit code.
std::string OutputOf(const std::string& command, int& code) {
    code = std::system((command + " >told 2>&1").c_str()) >> 8;
    return ReadAll("told");
}

// A program of a hundred lines, written by the description of the format alone.
TEST(Recording, IsReadByTheProgramInItsDescription) {
    const Sample sample;
    int code = 0;
    const std::string told =
        OutputOf("PYTHONIOENCODING=utf-8 /usr/bin/env python3 " READ_RECORDING " sample.mcap", code);
    if (code == 127) GTEST_SKIP() << "needs python3";
    EXPECT_EQ(code, 0) << told;
    EXPECT_THAT(told,
                HasSubstr("signal 2 caf\xC3\xA9 b'sigweave.frame' {'port': 'Signal 2', 'unit': '', 'rate': "
                          "'1000'}\n"));
    EXPECT_THAT(told,
                HasSubstr("block 2 3 1700000000001000000 (b'caf\\xc3\\xa9', 1700000000001.0, 1000.0, 1.0, "
                          "[0, 0, 0, 0, 0, 0, 0], 0.0, 1.0, 1) [(b'', [3], ['4020800000000000', "
                          "'c020000000000000', '0000000000000000'])]\n"))
        << "8.25, -8 and 0";
    EXPECT_EQ(std::ranges::count(told, '\n'), 2 + std::ssize(sample.blocks));
}

TEST(Recording, IsListedByTheReaderOfOtherPrograms) {
    const Sample sample;
    int code = 0;
    const char* const modules = std::getenv("SIGWEAVE_MCAP_MODULES");
    if (modules == nullptr)
        GTEST_SKIP() << "needs SIGWEAVE_MCAP_MODULES, a folder in which npm installed @mcap/core";
    const std::string file = std::filesystem::absolute("sample.mcap").string();
    const std::string told =
        OutputOf("(cd '" + std::string(modules) + "' && node " LIST_MCAP " '" + file + "')", code);
    EXPECT_EQ(code, 0) << told;
    EXPECT_EQ(told,
              "1 sine  1000 8 1700000000000000000 1700000000003500000\n"
              "2 caf\xC3\xA9  1000 4 1700000000000000000 1700000000001500000\n"
              "done\n");
}

// With some thirty index records, so that the way to a block is one of several steps.
TEST(Recording, FindsAnyBlockAndSampleByTheIndex) {
    constexpr int SAMPLES = 4096;
    constexpr int BLOCKS = 1000;
    {
        Writing writing("long.mcap");
        std::vector<double> values(SAMPLES);
        for (int i = 0; i < BLOCKS; ++i) {
            std::iota(values.begin(), values.end(), static_cast<double>(i) * SAMPLES);
            writing.Append(0, values);
            if (i % 100 == 0) writing.Append(1, {1.0 * i});
        }
        EXPECT_TRUE(writing.writer.Close());
    }
    RecordingReader reader;
    ASSERT_TRUE(reader.Open("long.mcap"));
    for (const int block : {1, 2, 31, 32, 33, 500, 999, 1000, 3}) {
        ASSERT_TRUE(reader.Seek(0, block)) << block;
        ASSERT_EQ(reader.Next(), 1) << block << reader.GetError();
        EXPECT_EQ(reader.GetBlockNumber(), block);
        EXPECT_EQ(reader.GetBlock().Segment(0)->GetDoubles()[0], (block - 1.0) * SAMPLES);
    }
    for (const int sample : {0, SAMPLES - 1, SAMPLES, 777 * SAMPLES + 5, BLOCKS * SAMPLES - 1}) {
        ASSERT_TRUE(reader.SeekSample(0, sample)) << sample;
        ASSERT_EQ(reader.Next(), 1);
        EXPECT_EQ(reader.GetBlockNumber(), sample / SAMPLES + 1);
    }
    EXPECT_TRUE(reader.Seek(1, 10) && reader.Next() == 1 && reader.GetSignal() == 1);
    EXPECT_EQ(reader.Next(), 1);
    EXPECT_EQ(reader.GetBlockNumber(), 902) << "the tenth of the other signal follows the 901st";
    EXPECT_FALSE(reader.Seek(0, BLOCKS + 1));
    EXPECT_FALSE(reader.SeekSample(0, std::int64_t{BLOCKS} * SAMPLES));

    const auto file = reader.Map();  // blocks are found in memory now, which stays when the reader closes
    ASSERT_NE(file, nullptr);
    ASSERT_TRUE(reader.SeekSample(0, 777 * SAMPLES + 5));
    ASSERT_EQ(reader.NextPlace(), 1);
    EXPECT_EQ(reader.GetSampleCount(), 778 * SAMPLES);
    EXPECT_FALSE(reader.IsShorter());
    const std::int64_t end = reader.GetFrameOffset() + reader.GetFrameSize();
    reader.Close();
    double last = 0.0;
    std::memcpy(&last, file.get() + end - sizeof last, sizeof last);
    EXPECT_EQ(last, 778.0 * SAMPLES - 1) << "a frame ends with its values";
}

TEST(Recording, IsPutOnTheDiskWithAllOthersThatAreBegun) {
    const std::string path = testing::TempDir() + "sync-all-";
    std::string error;
    auto first = std::make_unique<Writing>(path + "1.mcap"),
         second = std::make_unique<Writing>(path + "2.mcap");
    syncs = 0;
    EXPECT_TRUE(tc::RecordingWriter::SyncAll(error)) << error;
    EXPECT_EQ(syncs, 2);
    first.reset();
    syncFailure = EIO;
    EXPECT_FALSE(tc::RecordingWriter::SyncAll(error));
    syncFailure = 0;
    EXPECT_THAT(error, HasSubstr(path + "2.mcap"));
    second.reset();
    syncs = 0;
    EXPECT_TRUE(tc::RecordingWriter::SyncAll(error));
    EXPECT_EQ(syncs, 0);
}

}  // namespace
