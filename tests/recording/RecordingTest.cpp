// Recordings as files: what is found again of one that is cut, damaged or still being written.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <random>
#include <sstream>

#include "sigweave/module/TCPortHelper.h"
#include "sigweave/recording/RecordingReader.h"
#include "sigweave/recording/RecordingWriter.h"
#include "sigweave/signal/TCBusSerializeHelper.h"

namespace {
std::atomic<int> syncs = 0, syncFailure = 0;
}

// In the place of the system's, also for the library.
extern "C" __attribute__((visibility("default"))) int fdatasync(int file) {
    ++syncs;
    errno = syncFailure;
    return syncFailure == 0 ? static_cast<int>(syscall(SYS_fdatasync, file)) : -1;
}

namespace {

namespace fs = std::filesystem;
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

// Of three signals: the second's type is none that its blocks would suggest, and the third, of which no type
// is known, stays without a block unless a test writes one.
class Writing {
 public:
    explicit Writing(const std::string& path) {
        static constexpr const char* TYPES[] = {"TYPEINFO{TypeInfo} DOUBLE[]{TIME_DOMAIN}",
                                                "TYPEINFO{TypeInfo} DOUBLE[]{SPECTRUM}", nullptr};
        EXPECT_TRUE(writer.Prepare(path.c_str(), true)) << writer.GetError();
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(writer.AddSignal("Signal " + std::to_string(i + 1), TYPES[i], 2), i);
            streams[i].source.AddOutputStream(streams[i].line.SetInputStream(0));
        }
        EXPECT_TRUE(writer.Begin({{"graph", "[a]\nmodule=A\n"}})) << writer.GetError();
    }
    void Append(int signal, const std::vector<double>& values, const std::string& name = "") {
        EXPECT_TRUE(writer.Append(signal, Wait(signal, values, name))) << writer.GetError();
    }
    // A block that waits to be recorded.
    TCIOStream& Wait(int signal, const std::vector<double>& values, const std::string& name = "") {
        Stream& stream = streams[signal];
        TCTypeInfo ti;
        ti.SetSignalname(!name.empty() ? name.c_str() : signal == 0 ? "sine" : "caf\xC3\xA9");
        ti.SetTimestamp(1.7e12 + 0.5 * static_cast<double>(stream.blocks));
        ti.SetSamplerate(1000.0);
        ti.SetState(stream.blocks++ == 0 ? START : BUSY);
        stream.source.SetTI(&ti, false);
        stream.source.WriteDblVec(values.data(), static_cast<int>(values.size()));
        return stream.line;
    }
    // Of two channels; the first has no metadata, and the second has two blocks with some.
    void AppendBus(int signal, std::initializer_list<double> timestamps) {
        Stream& stream = streams[signal];
        const double value = 0.5;
        const int extent = 1;
        stream.source.StartWriteSegments();
        const auto write = [&](int channel, const TCTypeInfo* ti) {
            const TCString name = TCBusSerializeHelper::GenSegmentName(TCPortHelper::TYPE_DOUBLEARRAY,
                                                                       nullptr, 0, channel, "channel", "");
            stream.source.WriteBusSegment(name, TCIOStream::DOUBLE, 1, &extent, &value, true, ti);
        };
        write(0, nullptr);
        for (const double timestamp : timestamps) {
            TCTypeInfo ti;
            ti.SetTimestamp(timestamp);
            write(1, &ti);
        }
        stream.source.EndWriteSegments();
        EXPECT_TRUE(writer.Append(signal, stream.line)) << writer.GetError();
    }
    tc::RecordingWriter writer;

 private:
    struct Stream {
        TCIOStream source, line;
        int blocks = 0;
    };
    Stream streams[3];
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
        EXPECT_EQ(std::abs(read), 1);
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
        EXPECT_EQ(writing.writer.GetBlockCount(1), 4);
        EXPECT_TRUE(writing.writer.Close());
        EXPECT_TRUE(writing.writer.Close()) << "nothing is left to do";
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
    EXPECT_EQ(reader.GetFileSize(), std::ssize(sample.bytes));
    EXPECT_EQ(reader.GetFact("graph"), "[a]\nmodule=A\n");
    ASSERT_EQ(reader.GetSignals().size(), 3u);
    const tc::RecordingSignal& third = reader.GetSignals()[2];
    EXPECT_EQ(third.name + third.type, "Signal 3") << "nothing else is known of it";
    EXPECT_EQ(third.items + third.blocks, 0);
    const tc::RecordingSignal& second = reader.GetSignals()[1];
    EXPECT_EQ(second.name, "caf\xC3\xA9");
    EXPECT_EQ(second.port, "Signal 2");
    EXPECT_EQ(second.type, "TYPEINFO{TypeInfo} DOUBLE[]{SPECTRUM}");
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
            EXPECT_TRUE(content.blocks == sample.blocks || !content.damages.empty()) << at;
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
    const auto told = [](const std::string& bytes) {
        WriteAll("lost.mcap", bytes);
        RecordingReader reader;
        EXPECT_TRUE(reader.Open("lost.mcap"));
        ReadOn(reader);
        std::vector<std::string> losses;
        for (const tc::RecordingDamage& damage : reader.GetDamages())
            losses.push_back(reader.Describe(damage));
        EXPECT_TRUE(reader.Seek(1, 1));
        EXPECT_EQ(reader.GetDamages().size(), losses.size()) << "what a search passes is not met again";
        EXPECT_EQ(reader.GetError(), "lost.mcap: " + losses.back());
        return losses;
    };
    const auto changed = [&](std::int64_t at) {
        std::string bytes = sample.bytes;
        bytes[static_cast<std::size_t>(at)] ^= 1;
        return bytes;
    };
    const auto missing = [](const std::string& name, std::int64_t before, int last) {
        return "block " + std::to_string(last) + " of '" + name + "' is missing before byte " +
               std::to_string(before);
    };
    const Place& third = sample.blocks[3];
    EXPECT_THAT(
        told(changed(third.begin + 100)),
        testing::ElementsAre("block 3 of 'sine', at byte " + std::to_string(third.begin) + ", is damaged"));
    // After the last block only the index is looked for, with the head of its record in front of its mark.
    const auto index = static_cast<std::int64_t>(sample.bytes.rfind("SWIX")) - 9;
    for (const auto& [block, name, next] :
         {std::tuple(third, "sine", third.end), std::tuple(sample.blocks.back(), "caf\xC3\xA9", index)})
        EXPECT_THAT(told(changed(block.begin + 12)),
                    testing::ElementsAre(std::to_string(next - block.begin) + " bytes from byte " +
                                             std::to_string(block.begin) + " on are no block",
                                         missing(name, next, static_cast<int>(block.number))));
    // A record of the second signal's name, of which the first byte is left.
    const Place& second = sample.blocks[1];
    const std::int64_t gap = sample.blocks[2].begin - second.end;
    std::string erased = sample.bytes;
    erased.replace(static_cast<std::size_t>(second.end) + 1, static_cast<std::size_t>(gap) - 1,
                   std::string(static_cast<std::size_t>(gap) - 1, '\0'));
    EXPECT_THAT(told(erased), testing::ElementsAre(std::to_string(gap) + " bytes from byte " +
                                                   std::to_string(second.end) + " on are no block"));
    // Blocks that are taken out leave no byte that would be wrong.
    const Place& sixth = sample.blocks[7];
    const std::int64_t length = third.end - third.begin;
    ASSERT_EQ(sixth.end - sixth.begin, length);
    std::string bytes = sample.bytes;
    bytes.erase(static_cast<std::size_t>(sixth.begin), static_cast<std::size_t>(length));
    bytes.erase(static_cast<std::size_t>(third.begin), static_cast<std::size_t>(length));
    EXPECT_THAT(told(bytes), testing::ElementsAre(missing("sine", sample.blocks[4].begin - length, 3),
                                                  missing("sine", sample.blocks[9].begin - 2 * length, 6)));
}

// Without the Schemas by the index, or else by the first blocks; without the Channel, by the number of the
// signal.
TEST(Recording, KnowsTypesWhoseDefinitionIsLost) {
    const Sample sample;
    std::string bytes = sample.bytes;
    const std::size_t schema = bytes.find("sigweave.block");
    std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(schema), sample.blocks[0].begin - schema, '\0');
    WriteAll("lost.mcap", bytes);
    RecordingReader reader;
    for (const Opening opening : {Opening::BY_INDEX, Opening::BY_SCAN}) {
        ASSERT_TRUE(reader.Open("lost.mcap", opening)) << reader.GetError();
        std::string told;
        for (const tc::RecordingSignal& signal : reader.GetSignals())
            told += signal.name + "|" + signal.port + "|" + signal.type + "\n";
        EXPECT_EQ(told,
                  "sine|Signal 1|TYPEINFO{TypeInfo} DOUBLE[]{TIME_DOMAIN}\n"
                  "caf\xC3\xA9|Signal 2|TYPEINFO{TypeInfo} DOUBLE[]{SPECTRUM}\n"
                  "Signal 3|Signal 3|\n");
    }
    WriteAll("lost.mcap", bytes.substr(0, static_cast<std::size_t>(sample.blocks.back().end)));
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

// Of blocks with a long name, and of a bus, which has the metadata of the first block in it that has any.
TEST(Recording, CountsTheSamplesOfAnyBlock) {
    const std::string name(700, 'n');
    {
        Writing writing("names.mcap");
        writing.Append(2, {1.0, 2.0, 3.0}, name);
        writing.AppendBus(1, {});
        writing.AppendBus(2, {1.6e12 + 0.25, 1.5e12});
        EXPECT_TRUE(writing.writer.Close());
    }
    for (const Opening opening : {Opening::BY_INDEX, Opening::BY_SCAN}) {
        RecordingReader reader;
        ASSERT_TRUE(reader.Open("names.mcap", opening));
        const tc::RecordingSignal& signal = reader.GetSignals()[2];
        EXPECT_EQ(signal.name, name);
        EXPECT_EQ(signal.type, "TYPEINFO{TypeInfo} DOUBLE[]{TIME_DOMAIN}") << "by its first block";
        EXPECT_EQ(signal.samples, 3 + 1) << "the first channel has one block";
        EXPECT_EQ(signal.endTime, 1600000000000250000u);
        EXPECT_EQ(reader.GetSignals()[1].endTime, 0u);
    }
}

// Pieces of 1 MiB are searched for the mark of the next block, and overlap by the length of one.
TEST(Recording, FindsABlockWhoseMarkLiesAcrossABorder) {
    constexpr std::int64_t PIECE = 1 << 20;
    std::vector<double> values(130'000);
    std::vector<Place> blocks;
    for (std::int64_t distance = PIECE; distance != 0;
         distance = PIECE - (blocks[2].begin - blocks[1].begin)) {
        if (distance != PIECE) values.resize(values.size() + static_cast<std::size_t>(distance / 8));
        Writing writing("border.mcap");
        writing.Append(0, std::vector<double>(60'000));
        writing.Append(0, values);
        writing.Append(0, {1.0});
        EXPECT_TRUE(writing.writer.Close());
        blocks = Read("border.mcap", Opening::BY_SCAN).blocks;
        ASSERT_EQ(blocks.size(), 3u);
        ASSERT_LT(values.size(), 132'000u);
    }
    std::string bytes = ReadAll("border.mcap");
    bytes[static_cast<std::size_t>(blocks[1].begin) + 12] ^= 1;
    WriteAll("border.mcap", bytes);
    EXPECT_THAT(Read("border.mcap", Opening::BY_SCAN).blocks, testing::ElementsAre(blocks[0], blocks[2]));
}

// Byte by byte, which no writer does, so that every moment of a write is there; each of them wrong at first,
// as when the writer takes back what a full disk left of a block. The search for blocks after a damaged one
// sees the same.
TEST(Recording, IsReadWhileItIsWritten) {
    const Sample sample;
    for (const bool isDamaged : {false, true}) {
        std::string bytes = sample.bytes;
        const Place& first = sample.blocks[0];
        if (isDamaged) bytes[static_cast<std::size_t>(first.begin) + 12] ^= 1;
        const std::vector<Place> whole = sample.Outside(first.begin, isDamaged ? first.end : first.begin);
        WriteAll("growing.mcap", bytes.substr(0, 60));
        std::fstream growing("growing.mcap", std::ios::in | std::ios::out | std::ios::binary);
        RecordingReader reader;
        ASSERT_TRUE(reader.Open("growing.mcap")) << reader.GetError();
        std::vector<Place> found;
        for (std::size_t at = 60; at < bytes.size(); ++at) {
            for (const int written : {~bytes[at], +bytes[at]}) {
                growing.seekp(static_cast<std::streamoff>(at)).put(static_cast<char>(written)).flush();
                ASSERT_TRUE(reader.Refresh());
                std::ranges::copy(ReadOn(reader), std::back_inserter(found));
            }
            ASSERT_TRUE(isDamaged || reader.GetDamages().empty()) << at;
            ASSERT_EQ(std::ssize(found),
                      std::ranges::count_if(
                          whole, [&](const Place& block) { return block.end <= std::int64_t(at) + 1; }))
                << at;
        }
        EXPECT_EQ(found, whole);
        EXPECT_TRUE(reader.IsClosed());
    }
}

TEST(Recording, RefusesWhatCannotBeWritten) {
    tc::RecordingWriter unprepared;
    EXPECT_EQ(unprepared.AddSignal("Signal", nullptr, 0), -1);
    EXPECT_FALSE(unprepared.Begin({}) || unprepared.SyncEvery(1.0));
    EXPECT_EQ(unprepared.GetBlockCount(0), 0);
    Writing writing("refused.mcap");
    TCIOStream source, line;
    source.AddOutputStream(line.SetInputStream(0));
    EXPECT_FALSE(writing.writer.Append(0, line));
    EXPECT_THAT(writing.writer.GetError(), HasSubstr("refused.mcap: no block is waiting"));
    const double value = 0.5;
    source.WritePtr(&source, 1);
    source.WriteDblVec(&value, 1);
    EXPECT_FALSE(writing.writer.Append(0, line));
    EXPECT_THAT(writing.writer.GetError(), HasSubstr("it holds addresses"));
    EXPECT_FALSE(writing.writer.SyncEvery(0.0));
    EXPECT_TRUE(writing.writer.SyncEvery(1.0));
    EXPECT_TRUE(writing.writer.Append(0, line)) << "the next block waits, that one does not";
    EXPECT_TRUE(writing.writer.Close());
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

// From none to all signals in a step, blocks of 800 bytes to 400 KB, several index records.
TEST(Recording, IsTheSameWhereBlocksComeTogether) {
    Writing one("one.mcap"), together("together.mcap");
    std::mt19937 random(7);
    for (int step = 0; step < 60; ++step) {
        std::vector<TCIOStream*> inputs;
        for (int signal = 0; signal < 3; ++signal) {
            inputs.push_back(nullptr);
            if (random() % 3 == 0) continue;
            const std::vector<double> values(random() % 10 == 0 ? 50000 : 100 + random() % 9000, step);
            one.Append(signal, values);
            inputs.back() = &together.Wait(signal, values);
        }
        ASSERT_TRUE(together.writer.AppendEach(inputs)) << together.writer.GetError();
        ASSERT_EQ(fs::file_size("together.mcap"), fs::file_size("one.mcap")) << "all of it is there";
    }
    EXPECT_TRUE(one.writer.Close() && together.writer.Close());
    EXPECT_GT(fs::file_size("one.mcap"), 4U << 20U);
    EXPECT_TRUE(ReadAll("together.mcap") == ReadAll("one.mcap"));
}

TEST(Recording, CountsNothingOfWhatDoesNotFit) {
    std::signal(SIGXFSZ, SIG_IGN);
    Writing writing("full.mcap");
    writing.Append(0, {1.0, 2.0});
    const auto before = static_cast<rlim_t>(fs::file_size("full.mcap"));
    rlimit limit;
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit small = {before + 500, limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    TCIOStream* const large[] = {&writing.Wait(0, {3.0}), &writing.Wait(1, std::vector<double>(1000, 4.0))};
    EXPECT_FALSE(writing.writer.AppendEach(large));
    EXPECT_THAT(writing.writer.GetError(), HasSubstr("full.mcap"));
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_LE(fs::file_size("full.mcap"), before + 500);
    EXPECT_EQ(writing.writer.GetBlockCount(1), 0);
    writing.Append(1, {5.0});
    const std::int64_t counted = writing.writer.GetBlockCount(0) + writing.writer.GetBlockCount(1);
    EXPECT_TRUE(writing.writer.Close());
    const Content content = Read("full.mcap", Opening::BY_SCAN);
    EXPECT_TRUE(content.isSound);
    EXPECT_EQ(static_cast<std::int64_t>(content.blocks.size()), counted);
    EXPECT_EQ(content.blocks.back().value, 5.0);
    EXPECT_EQ(content.blocks.back().number, 1);
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
    EXPECT_THAT(told, HasSubstr("index 2 4 12 1700000000001500000\n"));
    EXPECT_EQ(std::ranges::count(told, '\n'), 3 + std::ssize(sample.blocks) + 3);
}

TEST(Recording, IsListedByTheReaderOfOtherPrograms) {
    const Sample sample;
    int code = 0;
    const std::string file = std::filesystem::absolute("sample.mcap").string();
    const std::string told = OutputOf(LIST_MCAP " '" MCAP_READER "' '" + file + "'", code);
    if (code == 77 || code == 127) GTEST_SKIP() << "needs node, and npm that can get @mcap/core";
    EXPECT_EQ(code, 0) << told;
    EXPECT_EQ(told,
              "1 sine  1000 8 1700000000000000000 1700000000003500000\n"
              "2 caf\xC3\xA9  1000 4 1700000000000000000 1700000000001500000\n"
              "3 Signal 3 undefined undefined 0 undefined undefined\n"
              "done\n");
}

// By all of this process so far.
std::int64_t BytesRead() {
    std::string name;
    std::int64_t bytes = 0;
    std::ifstream("/proc/self/io") >> name >> bytes;
    EXPECT_GT(bytes, 0) << name;
    return bytes;
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
    std::filesystem::copy_file("long.mcap", "cut.mcap", std::filesystem::copy_options::overwrite_existing);
    std::filesystem::resize_file("cut.mcap", std::filesystem::file_size("cut.mcap") - 30);
    for (const char* const path : {"cut.mcap", "long.mcap"}) {
        const std::int64_t before = BytesRead();
        ASSERT_TRUE(reader.Open(path));
        ASSERT_TRUE(reader.Seek(0, 900));
        EXPECT_LT(BytesRead() - before, std::int64_t{BLOCKS} * SAMPLES * 2) << "a quarter of " << path;
    }
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
    EXPECT_EQ(reader.GetBlockNumber(), 902) << "nothing has changed";
    EXPECT_TRUE(reader.Next() == 1 && reader.GetBlockNumber() == 903);

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
