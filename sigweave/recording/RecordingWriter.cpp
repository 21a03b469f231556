#include "sigweave/recording/RecordingWriter.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <mutex>
#include <string_view>

#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/persistence/XmlBytes.h"
#include "sigweave/platform/Event.h"
#include "sigweave/platform/OutputFile.h"
#include "sigweave/platform/PathText.h"
#include "sigweave/platform/ReplacedFile.h"
#include "sigweave/platform/SystemError.h"
#include "sigweave/platform/Thread.h"
#include "sigweave/recording/RecordBytes.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/FileMessages.h"

namespace tc {
namespace {

using namespace recording;
using Block = TCIOStream::Block;

constexpr Bilingual NO_BLOCK("no block is waiting", "es wartet kein Block");
constexpr Bilingual NOT_PACKED(
    "the block cannot be recorded: it holds addresses, which mean nothing in a file, more than 32 levels of "
    "blocks, or 2 GB and more",
    "der Block lässt sich nicht aufzeichnen: Er enthält Adressen, die in einer Datei nichts bedeuten, mehr "
    "als 32 Ebenen von Blöcken oder 2 GB und mehr");
constexpr Bilingual NOT_SYNCED("what was recorded may not be on the disk: %1",
                               "die Aufzeichnung ist womöglich nicht auf der Platte: %1");
constexpr Bilingual IS_WRITTEN("it is being written", "sie wird gerade geschrieben");

constexpr std::int64_t INDEX_STEP = 1 << 20;
constexpr std::int64_t INDEX_SHARE = 64;  // of the file, at most, however many signals there are
constexpr std::size_t MOST_SIGNALS = 65535;
constexpr std::size_t MUCH_GATHERED = 1 << 18;  // bytes

std::string Utf8(std::string_view text) {
    std::string buffer;
    return std::string(ToXmlText(text, buffer));
}

// The metadata of the block, or of the first block in it that has any.
const TCTypeInfo* MetadataOf(const Block& block) {
    if (block.GetTI() != nullptr) return block.GetTI();
    for (int i = 0; i < block.SegmentCnt(); ++i) {
        const TCIOStream::DataSegment& segment = *block.Segment(i);
        for (int j = 0; segment.GetBlocks() != nullptr && j < segment.GetElementCount(); ++j)
            if (const TCTypeInfo* const ti = MetadataOf(*segment.GetBlocks()[j])) return ti;
    }
    return nullptr;
}

// In nanoseconds since 1970; unchanged for a time that the file cannot hold.
void ToLogTime(double milliseconds, std::uint64_t& time) {
    constexpr double NANOSECONDS = 1e6;
    constexpr double LATEST = 1.8e13;
    if (!(milliseconds >= 0.0) || milliseconds > LATEST) return;
    const double whole = std::floor(milliseconds);
    time = static_cast<std::uint64_t>(whole) * static_cast<std::uint64_t>(NANOSECONDS) +
           static_cast<std::uint64_t>(std::nearbyint((milliseconds - whole) * NANOSECONDS));
}

// The fields of a record, without its head and seal.
std::string FieldsOf(const std::string& record) {
    std::string_view content;
    Unseal(record, content);
    return std::string(content);
}

struct Signal {
    std::string port;
    std::string type;
    int items = 0;
    std::uint64_t blocks = 0;
    std::uint64_t samples = 0;
    std::uint64_t logTime = 0;
    std::string schema;      // fields
    std::string definition;  // fields; empty until its first block
};

}  // namespace

// Syncs from a thread of its own, so that the run does not wait for the disk.
class Syncing {
 public:
    Syncing(OutputFile& output, double seconds)
        : file(output), thread("record-sync", [this, seconds] { Work(seconds * 1000.0); }) {}
    ~Syncing() { stop.Set(); }
    void Wrote() { isDirty.store(true, std::memory_order_relaxed); }
    // 0: all went well.
    int Failure() const { return failure.load(std::memory_order_relaxed); }

 private:
    void Work(double milliseconds) {
        while (WaitForHandle(stop.GetHandle(), milliseconds) == WAIT_TIMED_OUT)
            if (isDirty.exchange(false) && !file.Flush()) failure = errno;
    }

    OutputFile& file;
    Event stop;
    std::atomic<bool> isDirty = false;
    std::atomic<int> failure = 0;
    Thread thread;  // last: it uses the others
};

struct RecordingWriter::Impl {
    bool Write(std::string_view bytes);
    void Gather(std::uint16_t channel, TCIOStream& input, std::int64_t frameSize, std::uint64_t samples);
    bool WriteGathered();
    void Define(Signal& signal, std::uint16_t id, const TCTypeInfo* ti);
    void PutIndexRecord();

    std::string path;
    std::unique_ptr<ReplacedFile> whole;  // until it begins
    std::unique_ptr<OutputFile> file;     // from then on
    std::unique_ptr<Syncing> syncing;
    std::vector<Signal> signals;
    std::string pending;            // records before the next block
    std::vector<char> message;      // what is written next: those records and then blocks
    std::size_t gatheredBytes = 0;  // in it
    std::vector<std::pair<std::uint16_t, std::uint64_t>> gathered;  // channels and samples of those blocks
    std::int64_t end = 0;                                           // of the file
    std::int64_t nextIndexAt = 0;
    Index index;
    std::uint64_t lastOfLevel[64] = {};  // offset of the last index record that 2^level divides
};

// Cuts off what a full disk left, so that the file stays as it was before.
bool RecordingWriter::Impl::Write(std::string_view bytes) {
    if (!file->WriteAt(end, bytes)) {
        const int reason = errno;
        file->Shrink(end);
        errno = reason;
        return false;
    }
    end += static_cast<std::int64_t>(bytes.size());
    if (syncing != nullptr) syncing->Wrote();
    return true;
}

void RecordingWriter::Impl::Define(Signal& signal, std::uint16_t id, const TCTypeInfo* ti) {
    Map metadata = {{"port", signal.port}};
    if (ti != nullptr) {
        TCString unit;
        metadata.emplace_back("unit", Utf8(ti->GetUnit().ToString(unit)));
        metadata.emplace_back("rate", ShortestText(ti->GetSamplerate()));
    }
    const std::string name = ti != nullptr ? Utf8(ti->GetSignalnameString()) : "";
    std::string record;
    RecordMaker maker(record, CHANNEL);
    maker.U16(id).U16(id).Text(name.empty() ? signal.port : name).Text(ENCODING).Pairs(metadata).Seal();
    signal.definition = FieldsOf(record);
    pending += record;
}

void RecordingWriter::Impl::PutIndexRecord() {
    ++index.number;
    index.offset = static_cast<std::uint64_t>(end) + pending.size();
    const int levels = std::countr_zero(index.number) + 1;
    index.before.assign(lastOfLevel, lastOfLevel + levels);
    std::fill_n(lastOfLevel, levels, index.offset);
    index.entries.clear();
    for (const Signal& signal : signals)
        index.entries.push_back({static_cast<std::uint16_t>(&signal - signals.data() + 1), signal.blocks,
                                 signal.samples, signal.logTime, signal.schema, signal.definition});
    const std::size_t before = pending.size();
    PutIndex(pending, index);
    nextIndexAt =
        end + std::max(INDEX_STEP, INDEX_SHARE * static_cast<std::int64_t>(pending.size() - before));
}

void RecordingWriter::Impl::Gather(std::uint16_t channel, TCIOStream& input, std::int64_t frameSize,
                                   std::uint64_t samples) {
    Signal& signal = signals[channel - 1U];
    const std::size_t before = gathered.empty() ? pending.size() : gatheredBytes;
    gatheredBytes = before + static_cast<std::size_t>(FRAME_AT + frameSize + MESSAGE_END);
    if (message.size() < gatheredBytes) message.resize(gatheredBytes);
    if (gathered.empty()) pending.copy(message.data(), before);
    char* const record = message.data() + before;
    input.SerializeBlock(record + FRAME_AT);
    ++signal.blocks;
    signal.samples += samples;
    PutMessage(record, {channel, static_cast<std::uint32_t>(signal.blocks), signal.logTime, frameSize});
    gathered.emplace_back(channel, samples);
}

// What cannot be written does not count; the records before it are tried again with the next block.
bool RecordingWriter::Impl::WriteGathered() {
    if (gathered.empty()) return true;
    const bool isWritten = Write({message.data(), gatheredBytes});
    for (const auto& [channel, samples] : gathered) {
        if (isWritten) break;
        --signals[channel - 1U].blocks;
        signals[channel - 1U].samples -= samples;
    }
    gathered.clear();
    gatheredBytes = 0;
    if (isWritten) pending.clear();
    return isWritten;
}

// Those that are between Begin and Close, for SyncAll.
struct RecordingWriter::Begun {
    std::mutex mutex;
    std::vector<const Impl*> all;

    static Begun& Get() {
        static Begun* const begun = new Begun;  // recordings may end after static objects
        return *begun;
    }
    void Add(const Impl* recording) {
        const std::lock_guard lock(mutex);
        all.push_back(recording);
    }
    void Remove(const Impl* recording) {
        const std::lock_guard lock(mutex);
        std::erase(all, recording);
    }
};

RecordingWriter::RecordingWriter() = default;
RecordingWriter::~RecordingWriter() {
    Close();
}

bool RecordingWriter::Prepare(const char* path, bool mayReplace) {
    Close();
    error.clear();
    impl = std::make_unique<Impl>();
    impl->path = path;
    impl->whole = ReplacedFile::Open(NativePath(path), {.exclusive = true, .mayReplace = mayReplace});
    return impl->whole != nullptr || Fail(errno == EWOULDBLOCK ? IS_WRITTEN.Text() : LastSystemErrorText());
}

int RecordingWriter::AddSignal(const std::string& port, const char* typeString, int itemCount) {
    if (impl == nullptr || impl->signals.size() >= MOST_SIGNALS) return -1;
    Signal& signal = impl->signals.emplace_back();
    signal.port = Utf8(port);
    signal.type = Utf8(typeString != nullptr ? typeString : "");
    signal.items = typeString != nullptr ? itemCount : 0;
    return static_cast<int>(impl->signals.size()) - 1;
}

bool RecordingWriter::Begin(const RecordingFacts& facts) {
    if (impl == nullptr || impl->whole == nullptr) return false;
    std::string text(MAGIC);
    PutHeader(text);
    RecordMaker(text, METADATA).Text(FACTS_NAME).Pairs(facts).Seal();
    for (Signal& signal : impl->signals) {
        std::string record;
        RecordMaker(record, SCHEMA)
            .U16(static_cast<std::uint16_t>(&signal - impl->signals.data() + 1))
            .Text(SCHEMA_NAME)
            .Text(ENCODING)
            .Text(std::to_string(signal.items) + " " + signal.type)
            .Seal();
        signal.schema = FieldsOf(record);
        text += record;
    }
    const std::unique_ptr<ReplacedFile> whole = std::move(impl->whole);
    errno = 0;
    if (std::fwrite(text.data(), 1, text.size(), whole->Get()) == text.size())
        impl->file = whole->CommitAndGoOn();
    if (impl->file == nullptr) return FailToWrite();
    impl->end = static_cast<std::int64_t>(text.size());
    impl->nextIndexAt = impl->end + INDEX_STEP;
    Begun::Get().Add(impl.get());
    return true;
}

bool RecordingWriter::SyncEvery(double seconds) {
    if (impl == nullptr || impl->file == nullptr || !(seconds > 0.0)) return false;
    impl->syncing = std::make_unique<Syncing>(*impl->file, seconds);
    impl->syncing->Wrote();
    return true;
}

bool RecordingWriter::SyncAll(std::string& error) {
    Begun& begun = Begun::Get();
    const std::lock_guard lock(begun.mutex);
    for (const Impl* recording : begun.all) {
        if (recording->file->Flush()) continue;
        error = recording->path + ": " + NOT_SYNCED.With({LastSystemErrorText()});
        return false;
    }
    return true;
}

bool RecordingWriter::Append(int number, TCIOStream& input) {
    return Gather(number, input) && WriteGathered();
}

bool RecordingWriter::AppendEach(std::span<TCIOStream* const> inputs) {
    bool isGathered = true;
    for (int number = 0; isGathered && number < static_cast<int>(inputs.size()); ++number)
        if (TCIOStream* const input = inputs[static_cast<std::size_t>(number)])
            isGathered = Gather(number, *input);
    const std::string reason = error;
    const bool isWritten = WriteGathered();
    if (!isGathered) error = reason;
    return isGathered && isWritten;
}

// Definitions and an index record come before a block, and say what is in the file.
bool RecordingWriter::Gather(int number, TCIOStream& input) {
    const Block* const block = input.GetWaitingBlock(0);
    if (impl == nullptr || impl->file == nullptr || block == nullptr) return Fail(NO_BLOCK.Text());
    Signal& signal = impl->signals[static_cast<std::size_t>(number)];
    const auto channel = static_cast<std::uint16_t>(number + 1);
    const int frameSize = input.SerializeBlock(nullptr);
    if (frameSize <= 0) {
        input.RemoveContents(false);
        return Fail(NOT_PACKED.Text());
    }
    const TCTypeInfo* const ti = MetadataOf(*block);
    if (ti != nullptr) ToLogTime(ti->GetTimestamp(), signal.logTime);
    const int samples = block->SegmentCnt() > 0 ? block->Segment(0)->GetElementCount() : 0;
    const bool isIndexDue = impl->end + static_cast<std::int64_t>(impl->gatheredBytes) >= impl->nextIndexAt;
    if ((signal.definition.empty() || isIndexDue || impl->gatheredBytes >= MUCH_GATHERED) && !WriteGathered())
        return false;
    if (signal.definition.empty()) impl->Define(signal, channel, ti);
    if (impl->end >= impl->nextIndexAt) impl->PutIndexRecord();
    impl->Gather(channel, input, frameSize, static_cast<std::uint64_t>(samples));
    return true;
}

bool RecordingWriter::WriteGathered() {
    if (impl == nullptr || impl->file == nullptr) return false;
    errno = 0;
    if (!impl->WriteGathered()) return FailToWrite();
    if (impl->syncing == nullptr || impl->syncing->Failure() == 0) return true;
    errno = impl->syncing->Failure();
    return Fail(NOT_SYNCED.With({LastSystemErrorText()}));
}

bool RecordingWriter::Close() {
    const std::unique_ptr<Impl> ended = std::move(impl);
    if (ended == nullptr || ended->file == nullptr) return true;
    Begun::Get().Remove(ended.get());
    for (Signal& signal : ended->signals)
        if (signal.definition.empty())
            ended->Define(signal, static_cast<std::uint16_t>(&signal - ended->signals.data() + 1), nullptr);
    ended->PutIndexRecord();
    ended->pending += TAIL;
    errno = 0;
    const bool isWritten = ended->Write(ended->pending);
    const bool isSynced = ended->syncing == nullptr || ended->file->Flush();
    ended->syncing = nullptr;
    if (isWritten && isSynced && ended->file->Close()) return true;
    error = WhyNotWritten(ended->path, LastSystemErrorText());
    return false;
}

std::int64_t RecordingWriter::GetBlockCount(int signal) const {
    return impl != nullptr ? static_cast<std::int64_t>(impl->signals[static_cast<std::size_t>(signal)].blocks)
                           : 0;
}

bool RecordingWriter::FailToWrite() {
    error = WhyNotWritten(impl->path, LastSystemErrorText());
    return false;
}

bool RecordingWriter::Fail(const std::string& reason) {
    error = (impl != nullptr ? impl->path + ": " : "") + reason;
    return false;
}

}  // namespace tc
