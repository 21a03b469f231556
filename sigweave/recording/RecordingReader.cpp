#include "sigweave/recording/RecordingReader.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <limits>
#include <map>
#include <optional>
#include <string_view>

#include "sigweave/platform/InputFile.h"
#include "sigweave/platform/PathText.h"
#include "sigweave/platform/SystemError.h"
#include "sigweave/recording/FrameShape.h"
#include "sigweave/recording/RecordBytes.h"
#include "sigweave/recording/RecordScan.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/signal/forms/BlockType.h"

namespace tc {
namespace {

using namespace recording;

constexpr Bilingual NOT_ORDINARY("it is not an ordinary file", "es ist keine gewöhnliche Datei");
constexpr Bilingual NO_RECORDING("%1 is not a recording", "%1 ist keine Aufzeichnung");
constexpr Bilingual OF_OTHERS(
    "%1 is an MCAP file of another program, or was written anew by one, but not a recording",
    "%1 ist eine MCAP-Datei eines anderen Programms oder wurde von einem neu geschrieben, aber keine "
    "Aufzeichnung");
constexpr Bilingual NOT_READ("%1 cannot be read: %2", "%1 lässt sich nicht lesen: %2");
constexpr Bilingual LOST_BYTES("%1 bytes from byte %2 on are no block", "%1 Byte ab Byte %2 sind kein Block");
constexpr Bilingual LOST_BLOCK("block %1 of '%2', at byte %3, is damaged",
                               "Block %1 von '%2' bei Byte %3 ist beschädigt");
constexpr Bilingual LOST_ONE("block %4 of '%2' is missing before byte %3",
                             "Block %4 von '%2' fehlt vor Byte %3");
constexpr Bilingual LOST_BLOCKS("%1 blocks of '%2' are missing before byte %3, up to block %4",
                                "%1 Blöcke von '%2' fehlen vor Byte %3, bis Block %4");
constexpr Bilingual NO_NAME("signal %1", "Signal %1");

// Where the head of a frame mostly ends, and where at the latest.
constexpr std::int64_t SHAPE_WITHIN = 512;
constexpr std::int64_t MOST_SHAPE = 1 << 20;

void ReadSchema(std::string_view fields, RecordingSignal& signal) {
    FieldReader reader(fields);
    std::uint16_t id = 0;
    std::string_view name, encoding, data;
    if (!reader.Number(id) || !reader.Text(name) || !reader.Text(encoding) || !reader.Text(data)) return;
    const std::size_t blank = data.find(' ');
    if (name != SCHEMA_NAME || blank == std::string_view::npos) return;
    int items = 0;
    const auto end = std::from_chars(data.data(), data.data() + blank, items).ptr;
    if (end != data.data() + blank || items <= 0 || static_cast<std::size_t>(items) > data.size() / 2) return;
    signal.items = items;
    signal.type = data.substr(blank + 1);
}

void ReadChannel(std::string_view fields, RecordingSignal& signal) {
    FieldReader reader(fields);
    std::uint16_t id = 0, schema = 0;
    std::string_view topic, encoding;
    Map metadata;
    if (!reader.Number(id) || !reader.Number(schema) || !reader.Text(topic) || !reader.Text(encoding) ||
        !reader.Pairs(metadata) || encoding != ENCODING)
        return;
    signal.name = topic;
    for (const auto& [key, value] : metadata) {
        if (key == "port") signal.port = value;
        if (key == "unit") signal.unit = value;
        if (key == "rate") std::from_chars(value.data(), value.data() + value.size(), signal.rate);
    }
}

}  // namespace

struct RecordingReader::Impl {
    explicit Impl(std::unique_ptr<InputFile> input) : scan(std::move(input)) {
        writer.AddOutputStream(queue.SetInputStream(0));
    }
    ~Impl() { queue.ExchangeBinary(&block, false); }

    // What was met of a signal on the way to `at`.
    struct Progress {
        std::int64_t number = 0;  // of its last block
        std::int64_t samples = 0;
    };

    std::int64_t FindWhole(std::int64_t from);
    bool LacksBlocks(std::string_view record);
    void Learn(const Found& found);
    void LearnFields(std::uint16_t channel, std::string_view schema, std::string_view definition);
    int SignalOf(std::uint16_t channel);
    std::int64_t SamplesOf(const Found& found, std::int64_t at);
    void ReadBeginning();
    void Adopt(const Index& index);
    void Scan();
    bool IsRecording();
    int Step(bool decode);
    int Take(const Found& found, bool decode);
    int Lose(const RecordingDamage& damage);
    bool Decode(const Found& found);
    template <class Reached>
    bool SeekTo(int signal, Reached reached);
    template <class Reached>
    bool FindIndexBefore(int channel, Reached reached, Index& index);

    RecordScan scan;
    std::string path;
    std::int64_t beginning = 0;  // of the records after the magic
    std::vector<RecordingSignal> signals;
    std::map<std::uint16_t, int> signalOf;  // channel -> index
    RecordingFacts facts;
    bool isClosed = false;
    std::int64_t wholeEnd = 0;  // of the last whole record
    std::optional<Index> lastIndex;

    std::int64_t at = 0;
    std::vector<Progress> progress;  // one a signal
    std::vector<RecordingDamage> damages;
    bool isGapTold = false;
    int signal = -1;
    std::int64_t frameAt = 0;
    std::int64_t frameSize = 0;
    std::uint64_t time = 0;
    TCIOStream writer;
    TCIOStream queue;
    TCIOStream::Block* block = nullptr;
};

int RecordingReader::Impl::SignalOf(std::uint16_t channel) {
    const auto [place, isNew] = signalOf.try_emplace(channel, static_cast<int>(signals.size()));
    if (isNew) {
        signals.emplace_back().channel = channel;
        signals.back().name = NO_NAME.With({std::to_string(channel)});
        progress.emplace_back();
    }
    return place->second;
}

void RecordingReader::Impl::LearnFields(std::uint16_t channel, std::string_view schema,
                                        std::string_view definition) {
    RecordingSignal& learned = signals[static_cast<std::size_t>(SignalOf(channel))];
    if (!schema.empty()) ReadSchema(schema, learned);
    if (!definition.empty()) ReadChannel(definition, learned);
}

void RecordingReader::Impl::Learn(const Found& found) {
    FieldReader fields(found.content);
    std::uint16_t channel = 0;
    std::string_view name;
    switch (found.opcode) {
        case METADATA:
            if (!fields.Text(name) || name != FACTS_NAME) return;
            facts.clear();
            if (!fields.Pairs(facts)) facts.clear();
            return;
        case SCHEMA:
            if (fields.Number(channel)) LearnFields(channel, found.content, {});
            return;
        case CHANNEL:
            if (fields.Number(channel)) LearnFields(channel, {}, found.content);
            return;
        default:
            return;
    }
}

std::int64_t RecordingReader::Impl::SamplesOf(const Found& found, std::int64_t place) {
    for (const std::int64_t most : {SHAPE_WITHIN, MOST_SHAPE}) {
        const std::int64_t within = std::min(most, found.head.frameSize);
        const char* const frame = scan.View(place + FRAME_AT, within);
        if (frame == nullptr) return 0;
        const std::int64_t count = CountFirstElements({frame, static_cast<std::size_t>(within)});
        if (count >= 0) return count;
    }
    return 0;
}

// Up to the first record that is none of the beginning.
void RecordingReader::Impl::ReadBeginning() {
    const char* const magic = scan.View(0, static_cast<std::int64_t>(MAGIC.size()));
    const bool isMcap = magic != nullptr && std::memcmp(magic, MAGIC.data(), MAGIC.size()) == 0;
    beginning = isMcap ? static_cast<std::int64_t>(MAGIC.size()) : 0;
    at = beginning;
    for (;;) {
        const Found found = scan.Look(at);
        if (found.kind != Found::RECORD) return;
        Learn(found);
        at += found.size;
        wholeEnd = at;
    }
}

void RecordingReader::Impl::Adopt(const Index& index) {
    for (const Index::Entry& entry : index.entries) {
        LearnFields(entry.channel, entry.schema, entry.definition);
        const auto position = static_cast<std::size_t>(SignalOf(entry.channel));
        progress[position] = {static_cast<std::int64_t>(entry.blocks),
                              static_cast<std::int64_t>(entry.samples)};
        signals[position].blocks = progress[position].number;
        signals[position].samples = progress[position].samples;
        signals[position].endTime = entry.logTime;
    }
    at = static_cast<std::int64_t>(index.offset);
}

// From `at` to the end, by the heads of the records alone.
void RecordingReader::Impl::Scan() {
    for (int step = 0; (step = Step(false)) != 0;) {
        if (step < 0) continue;
        const auto position = static_cast<std::size_t>(signal);
        signals[position].blocks = progress[position].number;
        signals[position].samples = progress[position].samples;
        signals[position].endTime = time;
    }
}

// By a block or an index that is whole, or by its first record, within which it may end.
bool RecordingReader::Impl::IsRecording() {
    const bool hasBlocks = std::ranges::any_of(signals, [](const auto& each) { return each.blocks > 0; });
    if (lastIndex || hasBlocks) return true;
    std::string first(MAGIC);
    PutHeader(first);
    const std::int64_t seen = std::min(scan.Size(), static_cast<std::int64_t>(first.size()));
    const char* const bytes = scan.View(0, seen);
    return beginning > 0 && bytes != nullptr && first.starts_with({bytes, static_cast<std::size_t>(seen)});
}

int RecordingReader::Impl::Step(bool decode) {
    for (;;) {
        const Found found = scan.Look(at);
        if (found.kind == Found::BLOCK) return Take(found, decode);
        if (found.kind == Found::END) return 0;
        if (found.kind == Found::NOTHING) {
            const std::int64_t next = FindWhole(at + 1);
            if (next < 0) return 0;
            return Lose({RecordingDamage::NO_RECORD, at, next - at, -1, 0, 0});
        }
        if (found.kind == Found::RECORD) Learn(found);
        if (found.kind == Found::RECORD && found.opcode == INDEX && LacksBlocks(found.record)) return -1;
        at += found.size;
        isClosed = isClosed || (found.kind == Found::TAIL_RECORDS && at == scan.Size());
        wholeEnd = std::max(wholeEnd, at);
    }
}

// The next whole block; after the last one, the last index record.
std::int64_t RecordingReader::Impl::FindWhole(std::int64_t from) {
    const std::int64_t found = scan.FindBlock(from);
    if (found >= 0 || !lastIndex) return found;
    const auto last = static_cast<std::int64_t>(lastIndex->offset);
    return last >= from ? last : -1;
}

// Whether a signal had more blocks before that index record than were met; told once.
bool RecordingReader::Impl::LacksBlocks(std::string_view record) {
    Index index;
    if (!ReadIndex(record, static_cast<std::uint64_t>(at), index)) return false;
    for (const Index::Entry& entry : index.entries) {
        const int position = SignalOf(entry.channel);
        Progress& met = progress[static_cast<std::size_t>(position)];
        const auto blocks = static_cast<std::int64_t>(entry.blocks);
        if (blocks == met.number) met.samples = static_cast<std::int64_t>(entry.samples);
        if (blocks <= met.number) continue;
        Lose({RecordingDamage::MISSING, at, std::ssize(record), position, blocks, blocks - met.number});
        met = {blocks, static_cast<std::int64_t>(entry.samples)};
        return true;
    }
    return false;
}

// Numbers are stored modulo 2^32.
int RecordingReader::Impl::Take(const Found& found, bool decode) {
    signal = SignalOf(found.head.channel);
    Progress& before = progress[static_cast<std::size_t>(signal)];
    const std::uint32_t ahead = found.head.sequence - static_cast<std::uint32_t>(before.number);
    const bool isLater = ahead > 0 && ahead < (1u << 31);
    if (isLater && ahead > 1 && !isGapTold) {
        isGapTold = true;
        return Lose({RecordingDamage::MISSING, at, found.size, signal, before.number + ahead - 1, ahead - 1});
    }
    isGapTold = false;
    before.number = isLater ? before.number + ahead : std::int64_t{found.head.sequence};
    if (!decode) before.samples += SamplesOf(found, at);
    frameAt = at + FRAME_AT;
    frameSize = found.head.frameSize;
    time = found.head.logTime;
    at += found.size;
    wholeEnd = std::max(wholeEnd, at);
    if (!decode || Decode(found)) return 1;
    return Lose({RecordingDamage::BLOCK, at - found.size, found.size, signal, before.number, 0});
}

bool RecordingReader::Impl::Decode(const Found& found) {
    queue.ExchangeBinary(&block, false);
    if (found.head.frameSize > std::numeric_limits<int>::max()) return false;
    const char* const frame = scan.View(frameAt, frameSize);
    return frame != nullptr && writer.DeSerializeBlock(frame, static_cast<int>(frameSize)) == 1 &&
           queue.ExchangeBinary(&block, true) == 1;
}

int RecordingReader::Impl::Lose(const RecordingDamage& damage) {
    damages.push_back(damage);
    if (damage.kind == RecordingDamage::NO_RECORD) at = damage.offset + damage.size;
    return -1;
}

// The last index record before which that was not reached; none: the search begins with the file.
template <class Reached>
bool RecordingReader::Impl::FindIndexBefore(int channel, Reached reached, Index& index) {
    const auto isReached = [&](const Index& each) {
        for (const Index::Entry& entry : each.entries)
            if (entry.channel == channel) return reached(entry);
        return false;
    };
    if (!lastIndex) return false;
    Index now = *lastIndex;
    for (;;) {
        if (!isReached(now)) {
            index = std::move(now);
            return true;
        }
        std::optional<Index> nearest;
        bool goesBack = false;
        for (std::size_t level = now.before.size(); level-- > 0 && !goesBack;) {
            Index each;
            if (now.before[level] == 0 || !scan.IndexAt(static_cast<std::int64_t>(now.before[level]), each) ||
                each.number >= now.number)
                continue;
            goesBack = isReached(each);
            (goesBack ? now : nearest.emplace()) = std::move(each);
        }
        if (goesBack) continue;
        if (nearest) index = std::move(*nearest);
        return nearest.has_value();
    }
}

template <class Reached>
bool RecordingReader::Impl::SeekTo(int wanted, Reached reached) {
    if (wanted < 0 || wanted >= static_cast<int>(signals.size())) return false;
    const auto position = static_cast<std::size_t>(wanted);
    const std::int64_t before = at;
    const std::vector<Progress> progressBefore = progress;
    const std::size_t damagesBefore = damages.size();
    std::ranges::fill(progress, Progress{});
    at = beginning;
    isGapTold = false;
    Index index;
    if (FindIndexBefore(
            signals[position].channel,
            [&](const Index::Entry& entry) {
                return reached(static_cast<std::int64_t>(entry.blocks),
                               static_cast<std::int64_t>(entry.samples));
            },
            index)) {
        for (const Index::Entry& entry : index.entries)
            progress[static_cast<std::size_t>(SignalOf(entry.channel))] = {
                static_cast<std::int64_t>(entry.blocks), static_cast<std::int64_t>(entry.samples)};
        at = static_cast<std::int64_t>(index.offset);
    }
    for (;;) {
        const Progress last = progress[position];
        const int step = Step(false);
        if (step == 0) break;
        const Progress now = progress[position];
        if (step < 0 || signal != wanted || !reached(now.number, now.samples)) continue;
        progress[position] = last;
        progress[position].number = now.number - 1;
        at = frameAt - FRAME_AT;
        damages.resize(std::min(damages.size(), damagesBefore));
        return true;
    }
    at = before;
    progress = progressBefore;
    damages.resize(std::min(damages.size(), damagesBefore));
    return false;
}

RecordingReader::RecordingReader() = default;
RecordingReader::~RecordingReader() = default;

bool RecordingReader::Open(const char* path, Opening opening) {
    error.clear();
    impl = nullptr;
    std::unique_ptr<InputFile> file = InputFile::Open(NativePath(path).c_str());
    if (file == nullptr) {
        const std::string reason = errno == ENODEV ? NOT_ORDINARY.Text() : LastSystemErrorText();
        error = NOT_READ.With({path, reason});
        return false;
    }
    impl = std::make_unique<Impl>(std::move(file));
    impl->path = path;
    impl->ReadBeginning();
    Index index;
    if (impl->scan.ReadLastIndex(index)) impl->lastIndex = index;
    if (impl->lastIndex && opening == Opening::BY_INDEX)
        impl->Adopt(*impl->lastIndex);
    else if (impl->lastIndex)
        for (const Index::Entry& entry : index.entries)
            impl->LearnFields(entry.channel, entry.schema, entry.definition);
    impl->Scan();
    if (impl->IsRecording()) {
        FindTypes();
        Rewind();
        return true;
    }
    const bool isMcap = impl->beginning > 0;
    error = (isMcap ? OF_OTHERS : NO_RECORDING).With({path});
    impl = nullptr;
    return false;
}

void RecordingReader::Close() {
    impl = nullptr;
}

const std::vector<RecordingSignal>& RecordingReader::GetSignals() const {
    return impl->signals;
}

const RecordingFacts& RecordingReader::GetFacts() const {
    return impl->facts;
}

std::string RecordingReader::GetFact(const char* name) const {
    for (const auto& [key, value] : impl->facts)
        if (key == name) return value;
    return "";
}

std::int64_t RecordingReader::GetFileSize() const {
    return impl->scan.Size();
}

bool RecordingReader::IsClosed() const {
    return impl->isClosed;
}

std::int64_t RecordingReader::GetBytesBehind() const {
    return impl->scan.Size() - impl->wholeEnd;
}

bool RecordingReader::IsBeingWritten() const {
    return impl->scan.File().IsBeingWritten();
}

int RecordingReader::Next() {
    const int step = impl->Step(true);
    if (step < 0) error = impl->path + ": " + Describe(impl->damages.back());
    return step;
}

int RecordingReader::NextPlace() {
    const int step = impl->Step(false);
    if (step < 0) error = impl->path + ": " + Describe(impl->damages.back());
    return step;
}

int RecordingReader::GetSignal() const {
    return impl->signal;
}

std::int64_t RecordingReader::GetBlockNumber() const {
    return impl->signal >= 0 ? impl->progress[static_cast<std::size_t>(impl->signal)].number : 0;
}

std::int64_t RecordingReader::GetFrameOffset() const {
    return impl->frameAt;
}

std::int64_t RecordingReader::GetFrameSize() const {
    return impl->frameSize;
}

std::uint64_t RecordingReader::GetTime() const {
    return impl->time;
}

std::int64_t RecordingReader::GetSampleCount() const {
    return impl->signal >= 0 ? impl->progress[static_cast<std::size_t>(impl->signal)].samples : 0;
}

std::shared_ptr<const char> RecordingReader::Map() {
    return impl->scan.Map();
}

TCIOStream::Block& RecordingReader::GetBlock() {
    return *impl->block;
}

const std::vector<RecordingDamage>& RecordingReader::GetDamages() const {
    return impl->damages;
}

std::string RecordingReader::Describe(const RecordingDamage& damage) const {
    const std::string place = std::to_string(damage.offset);
    if (damage.kind == RecordingDamage::NO_RECORD)
        return LOST_BYTES.With({std::to_string(damage.size), place});
    const std::string& name = impl->signals[static_cast<std::size_t>(damage.signal)].name;
    const std::string number = std::to_string(damage.block);
    if (damage.kind == RecordingDamage::BLOCK) return LOST_BLOCK.With({number, name, place});
    const Bilingual& lost = damage.count == 1 ? LOST_ONE : LOST_BLOCKS;
    return lost.With({std::to_string(damage.count), name, place, number});
}

void RecordingReader::Rewind() {
    impl->at = impl->beginning;
    impl->isGapTold = false;
    impl->damages.clear();
    impl->signal = -1;
    std::ranges::fill(impl->progress, Impl::Progress{});
}

bool RecordingReader::Seek(int signal, std::int64_t wanted) {
    return wanted > 0 &&
           impl->SeekTo(signal, [wanted](std::int64_t blocks, std::int64_t) { return blocks >= wanted; });
}

bool RecordingReader::SeekSample(int signal, std::int64_t wanted) {
    return wanted >= 0 &&
           impl->SeekTo(signal, [wanted](std::int64_t, std::int64_t samples) { return samples > wanted; });
}

// Of signals whose own is lost, by their first block.
void RecordingReader::FindTypes() {
    auto unknown = std::ranges::count_if(
        impl->signals, [](const RecordingSignal& signal) { return signal.items == 0 && signal.blocks > 0; });
    if (unknown > 0) Rewind();
    for (int step = 0; unknown > 0 && (step = impl->Step(true)) != 0;) {
        if (step < 0) continue;
        RecordingSignal& signal = impl->signals[static_cast<std::size_t>(impl->signal)];
        if (signal.items > 0) continue;
        BlockType type = TypeOf(*impl->block);
        signal.type = std::move(type.text);
        signal.items = type.items;
        --unknown;
    }
}

bool RecordingReader::IsShorter() const {
    return impl->scan.File().Size() < impl->scan.Size();
}

bool RecordingReader::Refresh() {
    return impl->scan.Refresh();
}

}  // namespace tc
