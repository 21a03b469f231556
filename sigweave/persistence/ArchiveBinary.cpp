#include "sigweave/persistence/ArchiveBinary.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <limits>

#include "sigweave/persistence/ArchiveNumbers.h"
#include "sigweave/persistence/ArchiveXml.h"
#include "sigweave/services/Bilingual.h"

namespace tc {
namespace {

using Type = ArchiveItem::Type;

constexpr std::string_view MAGIC = "SWARCHIV";
constexpr std::uint32_t VERSION = 1;
constexpr std::size_t HEADER = 20;       // magic, version, count of records, checksum of these
constexpr std::size_t RECORD_HEAD = 12;  // length, checksum of the length, checksum of the item
constexpr std::size_t ITEM_HEAD = 13;    // type, number, length of the label, length of the value

static_assert(std::endian::native == std::endian::little, "the form is little-endian");

// CRC-32 as in zip and png.
constexpr std::array<std::uint32_t, 256> MakeTable() {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
        std::uint32_t rest = byte;
        for (int bit = 0; bit < 8; ++bit) rest = (rest >> 1) ^ ((rest & 1) != 0 ? 0xEDB88320u : 0);
        table[byte] = rest;
    }
    return table;
}

std::uint32_t Checksum(std::string_view bytes) {
    static constexpr auto TABLE = MakeTable();
    std::uint32_t sum = ~0u;
    for (const char byte : bytes) sum = (sum >> 8) ^ TABLE[(sum ^ static_cast<unsigned char>(byte)) & 0xFF];
    return ~sum;
}

template <class T>
void Put(std::string& out, T value) {
    out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

template <class T>
void PutAt(std::string& out, std::size_t at, T value) {
    std::memcpy(out.data() + at, &value, sizeof value);
}

template <class T>
T Get(std::string_view bytes, std::size_t at) {
    T value;
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}

bool IsNumber(Type type) {
    return type == Type::Integer || type == Type::Double;
}

void WriteItem(std::string& out, const ArchiveItem& item) {
    Put(out, item.type);
    Put(out, static_cast<std::int32_t>(item.number));
    Put(out, static_cast<std::uint32_t>(item.label.size()));
    const std::size_t length = out.size();
    Put(out, std::uint32_t{0});
    out += item.label;
    const std::size_t begin = out.size();
    if (IsNumber(item.type))
        Put(out, item.bits);
    else
        out += item.text;
    for (const ArchiveItem& inner : item.items) WriteItem(out, inner);
    PutAt(out, length, static_cast<std::uint32_t>(out.size() - begin));
}

// Reads the items of one record, or of a subsection in it.
class ItemReader {
 public:
    // `bytes` are those of the whole archive, for the places in messages.
    ItemReader(std::string_view archiveBytes, CString& errorText) : bytes(archiveBytes), error(errorText) {}

    // After those that `items` has already; `numbers` are theirs.
    bool ReadItems(std::size_t begin, std::size_t end, int level, std::vector<ArchiveItem>& items,
                   ArchiveNumbers& numbers) {
        for (std::size_t at = begin, next = begin; at < end; at = next) {
            ArchiveItem& item = items.emplace_back();
            if (!ReadItem(next, end, level, item)) return false;
            if (!numbers.Add(item.number))
                return Fail(at, {"item %1 is there twice", "Element %1 gibt es zweimal"},
                            std::to_string(item.number));
        }
        return true;
    }
    bool Fail(std::size_t at, const Bilingual& what, const std::string& insert = {}) {
        error = Bilingual("damaged at byte %1: %2", "beschädigt bei Byte %1: %2")
                    .With({std::to_string(at), what.With({insert})});
        return false;
    }

 private:
    bool ReadItem(std::size_t& at, std::size_t end, int level, ArchiveItem& item) {
        if (end - at < ITEM_HEAD) return Fail(at, {"an item is cut off", "ein Element ist abgeschnitten"});
        item.type = Get<Type>(bytes, at);
        item.number = Get<std::int32_t>(bytes, at + 1);
        const std::size_t label = Get<std::uint32_t>(bytes, at + 5);
        const std::size_t length = Get<std::uint32_t>(bytes, at + 9);
        const std::size_t value = at + ITEM_HEAD + label;
        if (label + length > end - at - ITEM_HEAD)
            return Fail(at,
                        {"item %1 is longer than what holds it", "Element %1 ist länger als sein Behälter"},
                        std::to_string(item.number));
        item.label = bytes.substr(at + ITEM_HEAD, label);
        const std::size_t begin = at;
        at = value + length;
        return ReadValue(begin, value, length, level, item);
    }

    bool ReadValue(std::size_t begin, std::size_t value, std::size_t length, int level, ArchiveItem& item) {
        const bool isKnown = item.type >= Type::Subsection && item.type <= Type::StringUnquotedXML;
        if (!isKnown || (IsNumber(item.type) && length != sizeof item.bits))
            return Fail(begin, {"item %1 has no type that is known", "Element %1 hat keinen bekannten Typ"},
                        std::to_string(item.number));
        if (IsNumber(item.type)) {
            item.bits = Get<std::uint64_t>(bytes, value);
            return true;
        }
        if (item.type != Type::Subsection) {
            item.text = bytes.substr(value, length);
            const bool isFragment = item.type != Type::StringUnquotedXML || IsXmlFragment(item.text);
            return isFragment ||
                   Fail(value, {"item %1 is no well-formed XML", "Element %1 ist kein wohlgeformtes XML"},
                        std::to_string(item.number));
        }
        if (level == MOST_ARCHIVE_LEVELS)
            return Fail(begin,
                        {"subsections are nested too deep", "Unterabschnitte sind zu tief verschachtelt"});
        ArchiveNumbers numbers;
        return ReadItems(value, value + length, level + 1, item.items, numbers);
    }

    std::string_view bytes;
    CString& error;
};

bool ReadHeader(std::string_view bytes, CString& error) {
    if (!bytes.starts_with(MAGIC.substr(0, std::min(bytes.size(), MAGIC.size()))) || bytes.empty()) {
        error = Bilingual("this is no binary archive", "das ist kein binäres Archiv").Text();
        return false;
    }
    ItemReader reader(bytes, error);
    if (bytes.size() < HEADER)
        return reader.Fail(bytes.size(), {"the header is cut off", "der Kopf ist abgeschnitten"});
    if (Get<std::uint32_t>(bytes, 16) != Checksum(bytes.substr(0, 16)))
        return reader.Fail(0, {"the header was changed", "der Kopf wurde verändert"});
    const auto version = Get<std::uint32_t>(bytes, 8);
    if (version == VERSION) return true;
    error = Bilingual("the archive has version %1; this program reads version %2",
                      "das Archiv hat Version %1; dieses Programm liest Version %2")
                .With({std::to_string(version), std::to_string(VERSION)});
    return false;
}

}  // namespace

std::string WriteBinaryArchive(const ArchiveTree& archive) {
    std::string out(MAGIC);
    Put(out, VERSION);
    Put(out, static_cast<std::uint32_t>(archive.Items().size()));
    Put(out, Checksum(out));
    for (const ArchiveItem& item : archive.Items()) {
        const std::size_t head = out.size();
        out.append(RECORD_HEAD, '\0');
        WriteItem(out, item);
        const std::size_t length = out.size() - head - RECORD_HEAD;
        if (length > std::numeric_limits<std::uint32_t>::max()) return {};
        PutAt(out, head, static_cast<std::uint32_t>(length));
        const std::string_view all = out;
        PutAt(out, head + 4, Checksum(all.substr(head, 4)));
        PutAt(out, head + 8, Checksum(all.substr(head + RECORD_HEAD)));
    }
    return out;
}

bool ReadBinaryArchive(std::string_view bytes, ArchiveTree& archive, CString& error) {
    if (!ReadHeader(bytes, error)) return false;
    ItemReader reader(bytes, error);
    std::vector<ArchiveItem> items;
    ArchiveNumbers numbers;
    std::size_t at = HEADER;
    for (std::uint32_t rest = Get<std::uint32_t>(bytes, 12); rest > 0; --rest) {
        if (bytes.size() - at < RECORD_HEAD)
            return reader.Fail(
                bytes.size(),
                {"the archive ends there, %1 items early", "das Archiv endet dort, %1 Elemente zu früh"},
                std::to_string(rest));
        const std::size_t length = Get<std::uint32_t>(bytes, at);
        const std::size_t begin = at + RECORD_HEAD;
        if (Get<std::uint32_t>(bytes, at + 4) != Checksum(bytes.substr(at, 4)))
            return reader.Fail(at, {"a length was changed", "eine Länge wurde verändert"});
        if (length > bytes.size() - begin)
            return reader.Fail(
                bytes.size(),
                {"the archive ends there, %1 items early", "das Archiv endet dort, %1 Elemente zu früh"},
                std::to_string(rest));
        if (Get<std::uint32_t>(bytes, at + 8) != Checksum(bytes.substr(begin, length)))
            return reader.Fail(
                begin, {"an item of %1 bytes was changed", "ein Element von %1 Bytes wurde verändert"},
                std::to_string(length));
        if (!reader.ReadItems(begin, begin + length, 0, items, numbers)) return false;
        at = begin + length;
    }
    if (at < bytes.size())
        return reader.Fail(at, {"bytes follow that are no item", "es folgen Bytes, die kein Element sind"});
    archive.SetItems(std::move(items));
    return true;
}

}  // namespace tc
