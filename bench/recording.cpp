// What does it cost to record a double, with checksum, into the memory of the system for files, against the
// XML recording? What does it cost to check and unpack one, and to find the blocks of a recording without its
// index?
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "sigweave/recording/RecordBytes.h"
#include "sigweave/recording/RecordingReader.h"
#include "sigweave/recording/RecordingWriter.h"
#include "sigweave/signal/forms/FrameChecksum.h"
#include "sigweave/signal/forms/StreamRecord.h"

namespace {

constexpr const char* TYPE = "DOUBLE[]{TIME_DOMAIN}";
constexpr std::int64_t DOUBLES = 1 << 24;  // 128 MB

// A file in the folder for temporary files, which ends with the program.
class File {
 public:
    explicit File(const std::string& name)
        : path(std::filesystem::temp_directory_path() / (std::to_string(getpid()) + name)) {}
    ~File() { std::filesystem::remove(path); }
    const char* Path() const { return path.c_str(); }

 private:
    std::filesystem::path path;
};

// The block waits at `source`, from where it is shared as often as it is recorded.
struct Line {
    explicit Line(std::int64_t size) : values(static_cast<std::size_t>(size)) {
        std::mt19937_64 random(42);
        std::uniform_real_distribution<double> uniform(-10, 10);
        for (double& value : values) value = uniform(random);
        writer.AddOutputStream(source.SetInputStream(3));
        writer.WriteDblVec(values.data(), static_cast<int>(size));
        input.SetInputStream(3);
    }
    TCIOStream& Next() {
        input.CopyBlockRefs(source);
        return input;
    }
    std::vector<double> values;
    TCIOStream writer, source, input;
};

bool Record(const File& file, Line& line, std::int64_t blocks) {
    tc::RecordingWriter writer;
    bool isWritten = writer.Prepare(file.Path(), true);
    writer.AddSignal("Signal", TYPE, 1);
    isWritten = isWritten && writer.Begin({});
    for (std::int64_t block = 0; block < blocks && isWritten; ++block)
        isWritten = writer.Append(0, line.Next());
    return isWritten && writer.Close();
}

void BM_Recording_Write(benchmark::State& state) {
    const File file("write.mcap");
    Line line(state.range(0));
    const std::int64_t blocks = DOUBLES / state.range(0);
    for (auto _ : state)
        if (!Record(file, line, blocks)) state.SkipWithError("not recorded");
    state.SetItemsProcessed(state.iterations() * DOUBLES);
}

// Eight signals whose blocks come together.
void BM_Recording_WriteEight(benchmark::State& state) {
    constexpr int SIGNALS = 8;
    const File file("eight.mcap");
    std::vector<std::unique_ptr<Line>> lines;
    for (int i = 0; i < SIGNALS; ++i) lines.push_back(std::make_unique<Line>(state.range(0)));
    std::vector<TCIOStream*> inputs(SIGNALS);
    for (auto _ : state) {
        tc::RecordingWriter writer;
        bool isWritten = writer.Prepare(file.Path(), true);
        for (int i = 0; i < SIGNALS; ++i) writer.AddSignal("Signal " + std::to_string(i + 1), TYPE, 1);
        isWritten = isWritten && writer.Begin({});
        for (std::int64_t step = 0; step < DOUBLES / SIGNALS / state.range(0) && isWritten; ++step) {
            for (int i = 0; i < SIGNALS; ++i)
                inputs[static_cast<std::size_t>(i)] = &lines[static_cast<std::size_t>(i)]->Next();
            isWritten = writer.AppendEach(inputs);
        }
        if (!isWritten || !writer.Close()) state.SkipWithError("not recorded");
    }
    state.SetItemsProcessed(state.iterations() * DOUBLES);
}

void BM_Recording_WriteXml(benchmark::State& state) {
    constexpr std::int64_t LESS = 16;
    const File file("write.xml");
    Line line(state.range(0));
    for (auto _ : state) {
        tc::StreamRecordWriter writer;
        bool isWritten = writer.Open(file.Path(), TYPE, 1);
        for (std::int64_t block = 0; block < DOUBLES / LESS / state.range(0) && isWritten; ++block)
            isWritten = writer.Append(line.Next());
        if (!isWritten || !writer.Close()) state.SkipWithError("not recorded");
    }
    state.SetItemsProcessed(state.iterations() * DOUBLES / LESS);
}

void BM_Recording_Read(benchmark::State& state) {
    const File file("read.mcap");
    Line line(state.range(0));
    Record(file, line, DOUBLES / state.range(0));
    for (auto _ : state) {
        tc::RecordingReader reader;
        std::int64_t blocks = 0;
        if (reader.Open(file.Path()))
            while (reader.Next() == 1) ++blocks;
        if (blocks != DOUBLES / state.range(0)) state.SkipWithError("not read");
    }
    state.SetItemsProcessed(state.iterations() * DOUBLES);
}

void BM_Recording_Scan(benchmark::State& state) {
    const File file("scan.mcap");
    Line line(state.range(0));
    Record(file, line, DOUBLES / state.range(0));
    for (auto _ : state) {
        tc::RecordingReader reader;
        if (!reader.Open(file.Path(), tc::RecordingReader::Opening::BY_SCAN)) state.SkipWithError("not read");
    }
    state.SetItemsProcessed(state.iterations() * DOUBLES);
}

// 100 GB, of which the beginnings and ends of blocks and the index records are on the disk: 6400 blocks of 16
// MiB of zeros, each with an index record after it.
class HugeFile {
 public:
    static constexpr std::int64_t BLOCKS = 6400;

    HugeFile() : file("huge.mcap") {
        using namespace tc::recording;
        std::string begin(MAGIC);
        PutHeader(begin);
        out.open(file.Path(), std::ios::binary);
        Put(begin);
        const std::string schema = Fields(SCHEMA), channel = Fields(CHANNEL);
        std::uint64_t lastOfLevel[64] = {};
        Index index;
        for (index.number = 1; index.number <= BLOCKS; ++index.number) {
            PutBlock(static_cast<std::uint32_t>(index.number));
            index.offset = static_cast<std::uint64_t>(end);
            const int levels = std::countr_zero(index.number) + 1;
            index.before.assign(lastOfLevel, lastOfLevel + levels);
            std::fill_n(lastOfLevel, levels, index.offset);
            index.entries = {{1, index.number, index.number * COUNT, 0, schema, channel}};
            std::string record;
            PutIndex(record, index);
            Put(record);
        }
        Put(std::string(TAIL));
        out.close();
    }
    const char* Path() const { return file.Path(); }

 private:
    static constexpr std::int64_t COUNT = 1 << 21;

    static std::string Fields(tc::recording::Opcode opcode) {
        using namespace tc::recording;
        std::string record;
        RecordMaker maker(record, opcode);
        if (opcode == SCHEMA)
            maker.U16(1).Text(SCHEMA_NAME).Text(ENCODING).Text(std::string("1 ") + TYPE).Seal();
        else
            maker.U16(1).U16(1).Text("huge").Text(ENCODING).Pairs({}).Seal();
        std::string_view content;
        Unseal(record, content);
        return std::string(content);
    }
    void Put(const std::string& bytes) {
        out.seekp(end);
        out << bytes;
        end += static_cast<std::int64_t>(bytes.size());
    }
    // No metadata; one array of doubles without a name, which begins at byte 48 of the frame.
    void PutBlock(std::uint32_t number) {
        using namespace tc::recording;
        constexpr std::int64_t FRAME = 48 + 8 * COUNT;
        std::string head(static_cast<std::size_t>(FRAME_AT) + 48, '\0');
        const std::uint32_t words[] = {FRAME_MARK, 2, static_cast<std::uint32_t>(FRAME), 0};
        std::memcpy(head.data() + FRAME_AT, words, sizeof words);
        char* const body = head.data() + FRAME_AT + FRAME_HEAD;
        const std::int32_t shape[] = {1, 0, 2, 1, static_cast<std::int32_t>(COUNT)};
        std::memcpy(body + 1, shape, sizeof shape);
        tc::FrameChecksum sum;
        sum.Add(body, 3);
        const std::uint64_t checksum = sum.Value();
        std::memcpy(head.data() + FRAME_AT + 16, &checksum, sizeof checksum);
        whole.resize(static_cast<std::size_t>(FRAME_AT + FRAME + MESSAGE_END));
        PutMessage(whole.data(), {1, number, 0, FRAME});
        head.replace(0, FRAME_AT, whole, 0, FRAME_AT);
        Put(head);
        end += FRAME - 48;
        Put(whole.substr(whole.size() - MESSAGE_END));
    }

    File file;
    std::ofstream out;
    std::string whole;  // a record, for its head and end
    std::int64_t end = 0;
};

const HugeFile& Huge() {
    static const HugeFile file;
    return file;
}

void BM_Recording_OpenHuge(benchmark::State& state) {
    const char* const path = Huge().Path();
    for (auto _ : state) {
        tc::RecordingReader reader;
        if (!reader.Open(path) || reader.GetSignals()[0].blocks != HugeFile::BLOCKS)
            state.SkipWithError("not opened");
    }
}

void BM_Recording_FindInHuge(benchmark::State& state) {
    tc::RecordingReader reader;
    if (!reader.Open(Huge().Path())) state.SkipWithError("not opened");
    std::mt19937 random(3);
    for (auto _ : state)
        if (!reader.Seek(0, 1 + static_cast<std::int64_t>(random() % HugeFile::BLOCKS)))
            state.SkipWithError("not found");
}

BENCHMARK(BM_Recording_OpenHuge);
BENCHMARK(BM_Recording_FindInHuge);
BENCHMARK(BM_Recording_Write)->Arg(1024)->Arg(8192)->Arg(65536)->UseRealTime();
BENCHMARK(BM_Recording_WriteEight)->Arg(1024)->UseRealTime();
BENCHMARK(BM_Recording_WriteXml)->Arg(1024)->UseRealTime();
BENCHMARK(BM_Recording_Read)->Arg(1024)->Arg(65536)->UseRealTime();
BENCHMARK(BM_Recording_Scan)->Arg(1024)->Arg(65536)->UseRealTime();

}  // namespace
