#include "sigweave/recording/RecordScan.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

namespace tc::recording {
namespace {

constexpr std::int64_t LONG_VIEW = 1 << 20;
constexpr std::int64_t SHORT_VIEW = 4096;
constexpr std::int64_t NEAR = 64 << 10;
constexpr std::int64_t LAST_INDEX_WITHIN = 64 << 20;

bool IsSealed(unsigned char opcode) {
    return opcode == HEADER || opcode == METADATA || opcode == SCHEMA || opcode == CHANNEL || opcode == INDEX;
}

}  // namespace

const char* RecordScan::Window::View(std::int64_t offset, std::int64_t size, std::int64_t fileSize) {
    if (offset < 0 || size < 0 || offset > fileSize || size > fileSize - offset) return nullptr;
    if (mapped != nullptr && offset + size <= mappedSize) return mapped + offset;
    if (offset >= begin && offset + size <= begin + count) return buffer.data() + (offset - begin);
    const bool goesOn = offset >= begin && offset <= begin + count + NEAR;
    const std::int64_t wanted = std::min(std::max(size, goesOn ? LONG_VIEW : SHORT_VIEW), fileSize - offset);
    if (static_cast<std::int64_t>(buffer.size()) < wanted) buffer.resize(static_cast<std::size_t>(wanted));
    begin = offset;
    count = file->ReadAt(offset, buffer.data(), static_cast<std::size_t>(wanted));
    if (count >= size) return buffer.data();
    count = 0;
    return nullptr;
}

void RecordScan::Window::Use(const char* bytes, std::int64_t bytesThere) {
    mapped = bytes;
    mappedSize = bytesThere;
}

RecordScan::RecordScan(std::unique_ptr<InputFile> input)
    : file(std::move(input)), window(*file), probe(*file), size(file->Size()) {}

bool RecordScan::Refresh() {
    const std::int64_t now = file->Size();
    if (now < size) return false;
    size = now;
    window.Forget();
    probe.Forget();
    return true;
}

std::shared_ptr<const char> RecordScan::Map() {
    if (mapped == nullptr) mapped = file->Map(size);
    if (mapped == nullptr) return nullptr;
    window.Use(mapped.get(), size);
    probe.Use(mapped.get(), size);
    return mapped;
}

Found RecordScan::Look(std::int64_t place, Window& view) const {
    Found found;
    const std::int64_t left = size - place;
    if (left <= 0) {
        found.kind = Found::END;
        return found;
    }
    const auto tailSize = static_cast<std::int64_t>(TAIL.size());
    const std::int64_t seen = std::min(left, FRAME_AT + FRAME_HEAD);
    const char* bytes = view.View(place, seen, size);
    if (bytes == nullptr) return found;
    if (left >= tailSize && std::memcmp(bytes, TAIL.data(), TAIL.size()) == 0) {
        found.kind = Found::TAIL_RECORDS;
        found.size = tailSize;
        return found;
    }
    if (!ReadMessageHead({bytes, static_cast<std::size_t>(seen)}, left, found.head))
        return LookForRecord(place, view);
    char head[FRAME_AT];
    std::memcpy(head, bytes, sizeof head);
    const char* const end = view.View(place + FRAME_AT + found.head.frameSize, MESSAGE_END, size);
    if (end == nullptr || !IsMessage(head, end)) return found;
    found.kind = Found::BLOCK;
    found.size = FRAME_AT + found.head.frameSize + MESSAGE_END;
    return found;
}

Found RecordScan::LookForRecord(std::int64_t place, Window& view) const {
    Found found;
    const char* bytes = view.View(place, RECORD_HEAD, size);
    if (bytes == nullptr || !IsSealed(static_cast<unsigned char>(*bytes))) return found;
    std::uint64_t length = 0;
    std::memcpy(&length, bytes + 1, sizeof length);
    if (length > static_cast<std::uint64_t>(LARGEST_SEALED)) return found;
    found.size = RECORD_HEAD + static_cast<std::int64_t>(length);
    bytes = view.View(place, found.size, size);
    if (bytes == nullptr) return found;
    found.record = {bytes, static_cast<std::size_t>(found.size)};
    if (!Unseal(found.record, found.content)) return found;
    found.opcode = static_cast<Opcode>(*bytes);
    found.kind = Found::RECORD;
    return found;
}

std::int64_t RecordScan::FindBlock(std::int64_t from) {
    constexpr std::int64_t MARK = sizeof FRAME_MARK;
    for (std::int64_t place = from + FRAME_AT; place + MARK <= size;) {
        const std::int64_t seen = std::min(LONG_VIEW, size - place);
        const char* const bytes = window.View(place, seen, size);
        if (bytes == nullptr) return -1;
        const char* const last = bytes + seen - MARK;
        for (const char* next = bytes; next <= last; ++next) {
            next = static_cast<const char*>(std::memchr(next, FRAME_MARK & 0xFF, last - next + 1));
            if (next == nullptr) break;
            if (std::memcmp(next, &FRAME_MARK, MARK) != 0) continue;
            const std::int64_t candidate = place + (next - bytes) - FRAME_AT;
            if (Look(candidate, probe).kind == Found::BLOCK) return candidate;
        }
        place += seen - MARK + 1;
    }
    return -1;
}

bool RecordScan::IndexAt(std::int64_t place, Index& index) {
    if (place < static_cast<std::int64_t>(MAGIC.size())) return false;
    const Found found = LookForRecord(place, probe);
    return found.kind == Found::RECORD && found.opcode == INDEX &&
           ReadIndex(found.record, static_cast<std::uint64_t>(place), index);
}

bool RecordScan::ReadLastIndex(Index& index) {
    constexpr std::int64_t OFFSET_BEFORE = CHECKSUM_SIZE + 8;
    const std::int64_t tailAt = size - static_cast<std::int64_t>(TAIL.size());
    std::int64_t place = 0;
    if (const char* const end = probe.View(tailAt - OFFSET_BEFORE, sizeof place, size)) {
        std::memcpy(&place, end, sizeof place);
        if (place < tailAt && IndexAt(place, index)) return true;
    }
    std::string mark(sizeof INDEX_MARK, '\0');
    std::memcpy(mark.data(), &INDEX_MARK, sizeof INDEX_MARK);
    for (std::int64_t end = size; end > 0 && end > size - LAST_INDEX_WITHIN; end -= LONG_VIEW) {
        const std::int64_t begin = std::max<std::int64_t>(end - LONG_VIEW, 0);
        const std::int64_t seen = std::min(end + static_cast<std::int64_t>(mark.size()) - 1, size) - begin;
        const char* const bytes = window.View(begin, seen, size);
        if (bytes == nullptr) return false;
        const std::string_view piece(bytes, static_cast<std::size_t>(seen));
        for (std::size_t found = piece.rfind(mark); found != std::string_view::npos;
             found = found > 0 ? piece.rfind(mark, found - 1) : std::string_view::npos)
            if (IndexAt(begin + static_cast<std::int64_t>(found) - RECORD_HEAD, index)) return true;
    }
    return false;
}

}  // namespace tc::recording
