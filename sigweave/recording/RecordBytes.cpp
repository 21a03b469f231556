#include "sigweave/recording/RecordBytes.h"

#include <bit>
#include <cstring>

#include "sigweave/signal/forms/FrameChecksum.h"

static_assert(std::endian::native == std::endian::little, "numbers are stored as they lie in memory");

namespace tc::recording {
namespace {

constexpr std::size_t WORD = 8;
constexpr std::uint32_t INDEX_VERSION = 1;

std::uint64_t ChecksumOf(const char* bytes, std::size_t size) {
    FrameChecksum sum;
    sum.Add(bytes, size / WORD);
    return sum.Value();
}

// Of the 31 bytes before the frame and a zero byte.
std::uint64_t HeadChecksum(const char* head) {
    char words[FRAME_AT + 1] = {};
    std::memcpy(words, head, FRAME_AT);
    return ChecksumOf(words, sizeof words);
}

template <class Value>
Value Load(const char* bytes) {
    Value value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

template <class Value>
char* Store(char* bytes, Value value) {
    std::memcpy(bytes, &value, sizeof value);
    return bytes + sizeof value;
}

}  // namespace

RecordMaker::RecordMaker(std::string& text, Opcode opcode) : out(text), begin(text.size()) {
    out += static_cast<char>(opcode);
    U64(0);
}

RecordMaker& RecordMaker::Text(std::string_view value) {
    U32(static_cast<std::uint32_t>(value.size()));
    out += value;
    return *this;
}

RecordMaker& RecordMaker::Pairs(const Map& map) {
    const std::size_t at = out.size();
    U32(0);
    for (const auto& [key, value] : map) Text(key).Text(value);
    Store(out.data() + at, static_cast<std::uint32_t>(out.size() - at - sizeof(std::uint32_t)));
    return *this;
}

void RecordMaker::Seal() {
    out.resize(out.size() + (WORD - (out.size() - begin) % WORD) % WORD);
    Finish();
}

void RecordMaker::Seal(std::uint64_t last) {
    out.resize(out.size() + (WORD - (out.size() - begin) % WORD) % WORD);
    U64(last);
    Finish();
}

void RecordMaker::Finish() {
    const std::size_t size = out.size() - begin;
    const bool isHeader = out[begin] == static_cast<char>(HEADER);
    const std::size_t length = size + CHECKSUM_SIZE + (isHeader ? 1 : 0) - RECORD_HEAD;
    Store(out.data() + begin + 1, static_cast<std::uint64_t>(length));
    U64(ChecksumOf(out.data() + begin, size));
    if (isHeader) out += '\0';
}

// No profile, for there is none for these blocks.
void PutHeader(std::string& out) {
    RecordMaker(out, HEADER).Text("").Text("sigweave").Seal();
}

bool FieldReader::Text(std::string_view& value) {
    std::uint32_t length = 0;
    FieldReader after(rest);
    if (!after.Number(length) || after.rest.size() < length) return false;
    value = after.rest.substr(0, length);
    rest = after.rest.substr(length);
    return true;
}

bool FieldReader::Pairs(Map& map) {
    std::string_view bytes;
    if (!Text(bytes)) return false;
    FieldReader pairs(bytes);
    std::string_view key;
    std::string_view value;
    while (!pairs.IsEmpty()) {
        if (!pairs.Text(key) || !pairs.Text(value)) return false;
        map.emplace_back(key, value);
    }
    return true;
}

void PutMessage(char* record, const MessageHead& head) {
    char* at = record;
    *at++ = static_cast<char>(MESSAGE);
    at = Store(at, static_cast<std::uint64_t>(MESSAGE_HEAD + head.frameSize + MESSAGE_END));
    at = Store(at, head.channel);
    at = Store(at, head.sequence);
    at = Store(at, head.logTime);
    Store(at, head.logTime);
    char* const end = record + FRAME_AT + head.frameSize;
    Store(end, HeadChecksum(record));
    end[CHECKSUM_SIZE] = '\0';
}

bool ReadMessageHead(std::string_view bytes, std::int64_t left, MessageHead& head) {
    if (bytes.size() < FRAME_AT + FRAME_HEAD || static_cast<unsigned char>(bytes[0]) != MESSAGE) return false;
    const auto length = Load<std::uint64_t>(bytes.data() + 1);
    if (length > static_cast<std::uint64_t>(left - RECORD_HEAD) ||
        length < MESSAGE_HEAD + FRAME_HEAD + MESSAGE_END)
        return false;
    FieldReader fields(bytes.substr(RECORD_HEAD));
    std::uint64_t publishTime = 0;
    fields.Number(head.channel);
    fields.Number(head.sequence);
    fields.Number(head.logTime);
    fields.Number(publishTime);
    head.frameSize = static_cast<std::int64_t>(length) - MESSAGE_HEAD - MESSAGE_END;
    const char* const frame = bytes.data() + FRAME_AT;
    return publishTime == head.logTime && Load<std::uint32_t>(frame) == FRAME_MARK &&
           Load<std::uint32_t>(frame + 8) == head.frameSize;
}

bool IsMessage(const char* head, const char* end) {
    return Load<std::uint64_t>(end) == HeadChecksum(head) && end[CHECKSUM_SIZE] == '\0';
}

bool Unseal(std::string_view record, std::string_view& content) {
    constexpr std::size_t LEAST = 2 * WORD + CHECKSUM_SIZE;
    if (!record.empty() && record[0] == static_cast<char>(HEADER)) {
        if (record.back() != '\0') return false;
        record.remove_suffix(1);
    }
    if (record.size() < LEAST || record.size() % WORD != 0) return false;
    const std::size_t summed = record.size() - CHECKSUM_SIZE;
    if (Load<std::uint64_t>(record.data() + summed) != ChecksumOf(record.data(), summed)) return false;
    content = record.substr(RECORD_HEAD, summed - RECORD_HEAD);
    return true;
}

void PutIndex(std::string& out, const Index& index) {
    RecordMaker record(out, INDEX);
    record.U32(INDEX_MARK).U32(INDEX_VERSION).U64(index.number);
    record.U32(static_cast<std::uint32_t>(index.before.size()));
    for (const std::uint64_t offset : index.before) record.U64(offset);
    record.U32(static_cast<std::uint32_t>(index.entries.size()));
    for (const Index::Entry& entry : index.entries)
        record.U16(entry.channel)
            .U64(entry.blocks)
            .U64(entry.samples)
            .U64(entry.logTime)
            .Text(entry.schema)
            .Text(entry.definition);
    record.Seal(index.offset);
}

bool ReadIndex(std::string_view record, std::uint64_t offset, Index& index) {
    std::string_view content;
    if (!Unseal(record, content) || content.size() < WORD) return false;
    index.offset = Load<std::uint64_t>(content.data() + content.size() - WORD);
    FieldReader fields(content.substr(0, content.size() - WORD));
    std::uint32_t mark = 0, version = 0, count = 0;
    if (!fields.Number(mark) || mark != INDEX_MARK || !fields.Number(version) || version != INDEX_VERSION ||
        !fields.Number(index.number) || index.number == 0 || !fields.Number(count) ||
        count > static_cast<std::uint32_t>(std::countr_zero(index.number)) + 1)
        return false;
    index.before.clear();
    for (std::uint64_t each = 0; index.before.size() < count; index.before.push_back(each))
        if (!fields.Number(each) || each >= offset) return false;
    if (!fields.Number(count)) return false;
    index.entries.clear();
    for (std::uint32_t i = 0; i < count; ++i) {
        Index::Entry entry;
        std::string_view schema, definition;
        if (!fields.Number(entry.channel) || !fields.Number(entry.blocks) || !fields.Number(entry.samples) ||
            !fields.Number(entry.logTime) || !fields.Text(schema) || !fields.Text(definition))
            return false;
        entry.schema = schema;
        entry.definition = definition;
        index.entries.push_back(std::move(entry));
    }
    return index.offset == offset && !index.before.empty();
}

}  // namespace tc::recording
