#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// The bytes of a recording (stored; never change, only append): an MCAP file without chunks and without a
// summary, each record of which can be checked by itself. docs/recordings.md describes it.
//
//   magic   Header   Metadata "sigweave.run"   Schemas   (Channel, Message, index)...   TAIL
//
// All records but those of the tail are sealed: they end with a checksum of what is before it, and their
// length is a multiple of 8 bytes. Each begins one byte after such a multiple, so that the numbers of a frame
// lie on one: the Header, which begins at 8, ends with a zero byte more.
namespace tc::recording {

inline constexpr std::string_view MAGIC{"\x89MCAP0\r\n", 8};
// Records of the end: DataEnd, Footer, and the magic again. It holds no numbers of its own.
inline constexpr std::string_view TAIL{
    "\x0F\x04\0\0\0\0\0\0\0\0\0\0\0"
    "\x02\x14\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"
    "\x89MCAP0\r\n",
    13 + 29 + 8};

enum Opcode : unsigned char {
    HEADER = 0x01,
    SCHEMA = 0x03,
    CHANNEL = 0x04,
    MESSAGE = 0x05,
    CHUNK = 0x06,
    METADATA = 0x0C,
    DATA_END = 0x0F,
    INDEX = 0x80,  // private to this program: other tools leave it out when they write a file anew
};

inline constexpr std::int64_t RECORD_HEAD = 9;    // opcode and length
inline constexpr std::int64_t MESSAGE_HEAD = 22;  // channel, sequence and both times
inline constexpr std::int64_t FRAME_AT = RECORD_HEAD + MESSAGE_HEAD;
inline constexpr std::int64_t CHECKSUM_SIZE = 8;
inline constexpr std::int64_t MESSAGE_END = CHECKSUM_SIZE + 1;  // behind the frame
inline constexpr std::int64_t FRAME_HEAD = 24;
inline constexpr std::uint32_t FRAME_MARK = 0x4B425753;
inline constexpr std::uint32_t INDEX_MARK = 0x58495753;  // "SWIX"
inline constexpr std::int64_t LARGEST_SEALED = 64 << 20;

inline constexpr const char* FACTS_NAME = "sigweave.run";
inline constexpr const char* SCHEMA_NAME = "sigweave.block";
inline constexpr const char* ENCODING = "sigweave.frame";

using Map = std::vector<std::pair<std::string, std::string>>;

// Appends one sealed record to a text.
class RecordMaker {
 public:
    RecordMaker(std::string& text, Opcode opcode);
    RecordMaker& U16(std::uint16_t value) { return Number(value); }
    RecordMaker& U32(std::uint32_t value) { return Number(value); }
    RecordMaker& U64(std::uint64_t value) { return Number(value); }
    // With its length before it.
    RecordMaker& Text(std::string_view value);
    RecordMaker& Pairs(const Map& map);
    // The length, zero bytes and the checksum; `last`, if any, goes right before the checksum.
    void Seal();
    void Seal(std::uint64_t last);

 private:
    template <class Value>
    RecordMaker& Number(Value value) {
        out.append(reinterpret_cast<const char*>(&value), sizeof value);
        return *this;
    }
    void Finish();

    std::string& out;
    std::size_t begin;
};

// The first record, always the same.
void PutHeader(std::string& out);

// Takes fields one after the other; each operation is false, and changes nothing, where the field is not
// there as a whole.
class FieldReader {
 public:
    explicit FieldReader(std::string_view bytes) : rest(bytes) {}
    template <class Value>
    bool Number(Value& value) {
        if (rest.size() < sizeof value) return false;
        __builtin_memcpy(&value, rest.data(), sizeof value);
        rest.remove_prefix(sizeof value);
        return true;
    }
    // Both view the bytes.
    bool Text(std::string_view& value);
    bool Pairs(Map& map);
    bool IsEmpty() const { return rest.empty(); }

 private:
    std::string_view rest;
};

// The first 31 bytes of a message, in front of its frame, and the 9 behind it.
struct MessageHead {
    std::uint16_t channel = 0;
    std::uint32_t sequence = 0;
    std::uint64_t logTime = 0;
    std::int64_t frameSize = 0;
};
void PutMessage(char* record, const MessageHead& head);

// The content, without the seal, of a sealed record; false when the bytes are no such record.
bool Unseal(std::string_view record, std::string_view& content);
// Whether the bytes, from a record's opcode on, begin with the head of a message in a file with that many
// bytes left. The message's own end is checked by `IsMessage`.
bool ReadMessageHead(std::string_view bytes, std::int64_t left, MessageHead& head);
bool IsMessage(const char* head, const char* end);

// What an index record says. Offsets are of records, from the beginning of the file; 0: there is none.
struct Index {
    struct Entry {
        std::uint16_t channel = 0;
        std::uint64_t blocks = 0;   // up to here
        std::uint64_t samples = 0;  // in the first arrays of those blocks
        std::uint64_t logTime = 0;  // of the last one
        std::string schema;         // the fields of the Schema and of the Channel
        std::string definition;     // empty: none yet
    };
    std::uint64_t number = 0;  // from 1
    std::uint64_t offset = 0;  // its own
    // Of the index records whose numbers are smaller by 1, 2, 4, ..., up to the largest power of two that the
    // number can be divided by.
    std::vector<std::uint64_t> before;
    std::vector<Entry> entries;
};
void PutIndex(std::string& out, const Index& index);
bool ReadIndex(std::string_view record, std::uint64_t offset, Index& index);

}  // namespace tc::recording
