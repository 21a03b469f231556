#include "host/engine/FramePieces.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>
#include <utility>

#include "sigweave/services/Bilingual.h"

namespace host::engine {
namespace {

using tc::Bilingual;

constexpr std::uint32_t MARK = 0x43505753;
constexpr std::uint32_t VERSION = 1;
constexpr std::size_t FRAME_HEAD = 24;  // whose last 8 bytes are its checksum
constexpr std::int64_t LARGEST_UNIT = INT_MAX;
constexpr std::uint64_t MULTIPLIER = 0x9E3779B97F4A7C15;

std::uint64_t Mix(std::uint64_t digest, std::uint64_t value) {
    digest = (digest ^ value) * MULTIPLIER;
    return digest ^ (digest >> 29);
}

struct Head {
    std::uint32_t mark = MARK;
    std::uint32_t version = VERSION;
    std::uint64_t number = 0;
    std::uint64_t digest = 0;
    std::uint16_t kind = 0;
    std::uint16_t hasMore = 0;
    std::uint32_t line = 0;
    std::int64_t step = 0;
    std::uint32_t size = 0;
    std::uint32_t offset = 0;
};
static_assert(sizeof(Head) == PIECE_HEAD && offsetof(Head, offset) == PIECE_HEAD - 4);

constexpr std::uint32_t HAS_MADE = 1, IS_TIMED = 2, IS_OVER = 4;

struct TurnBytes {
    std::int32_t source = -1;
    std::uint32_t flags = 0;
    double milliseconds = 0.0;
    double lastLength = 0.0;
    double gap = 0.0;
};
static_assert(sizeof(TurnBytes) == TURN_SIZE);

// The first piece of a frame holds its checksum, which stands for all of its bytes.
std::uint64_t DigestOf(std::uint64_t before, const Head& head, std::string_view bytes) {
    std::uint64_t digest = Mix(before, head.number);
    digest = Mix(digest, std::uint64_t{head.kind} << 48 | std::uint64_t{head.hasMore} << 32 | head.line);
    digest = Mix(digest, static_cast<std::uint64_t>(head.step));
    digest = Mix(digest, std::uint64_t{head.size} << 32 | head.offset);
    if (head.kind == Unit::Block && head.offset > 0) return digest;
    const std::size_t counted = head.kind == Unit::Block ? std::min(bytes.size(), FRAME_HEAD) : bytes.size();
    for (std::size_t at = 0; at < counted; at += sizeof(std::uint64_t)) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes.data() + at, std::min(sizeof word, counted - at));
        digest = Mix(digest, word);
    }
    return digest;
}

bool ReadHead(std::string_view piece, Head& head) {
    if (piece.size() < PIECE_HEAD || piece.size() > LARGEST_PIECE) return false;
    std::memcpy(&head, piece.data(), sizeof head);
    return head.mark == MARK && head.version == VERSION && head.number > 0;
}

}  // namespace

void PieceMaker::Begin(const Unit& made) {
    unit = &made;
    offset = 0;
    isEmpty = made.bytes.empty();
}

bool PieceMaker::Take(std::string& piece) {
    if (unit == nullptr || (offset == unit->bytes.size() && !isEmpty)) return false;
    const std::size_t count = std::min(unit->bytes.size() - offset, LARGEST_PIECE - PIECE_HEAD);
    const std::string_view bytes = std::string_view(unit->bytes).substr(offset, count);
    Head head;
    head.number = ++number;
    head.kind = unit->kind;
    head.hasMore = unit->hasMore ? 1 : 0;
    head.line = unit->line;
    head.step = unit->step;
    head.size = static_cast<std::uint32_t>(unit->bytes.size());
    head.offset = static_cast<std::uint32_t>(offset);
    head.digest = digest = DigestOf(digest, head, bytes);
    piece.assign(reinterpret_cast<const char*>(&head), sizeof head);
    piece += bytes;
    offset += count;
    isEmpty = false;
    return true;
}

std::string WriteTurn(const SourceTurn& turn) {
    TurnBytes bytes;
    bytes.source = turn.source;
    bytes.flags = (turn.hasMade ? HAS_MADE : 0) | (turn.isTimed ? IS_TIMED : 0) | (turn.isOver ? IS_OVER : 0);
    bytes.milliseconds = turn.milliseconds;
    bytes.lastLength = turn.lastLength;
    bytes.gap = turn.gap;
    return {reinterpret_cast<const char*>(&bytes), sizeof bytes};
}

bool ReadTurn(std::string_view text, SourceTurn& turn) {
    TurnBytes bytes;
    if (text.size() < sizeof bytes) return false;
    std::memcpy(&bytes, text.data(), sizeof bytes);
    if (bytes.source < 0 || bytes.flags > (HAS_MADE | IS_TIMED | IS_OVER)) return false;
    const auto has = [&](std::uint32_t flag) { return (bytes.flags & flag) != 0; };
    turn = {bytes.source,       has(HAS_MADE),    has(IS_TIMED), has(IS_OVER),
            bytes.milliseconds, bytes.lastLength, bytes.gap};
    return true;
}

bool ReadPieceNumber(std::string_view piece, std::uint64_t& number, std::uint64_t& digest) {
    Head head;
    if (!ReadHead(piece, head)) return false;
    number = head.number;
    digest = head.digest;
    return true;
}

PieceOrder::Outcome PieceOrder::Put(std::string piece) {
    Head head;
    if (!error.empty()) return Outcome::Known;
    if (!ReadHead(piece, head)) {
        error = Bilingual("a message of %1 bytes is no part of a block",
                          "eine Nachricht von %1 Byte ist kein Teil eines Blocks")
                    .With({std::to_string(piece.size())});
        return Outcome::Taken;
    }
    if (firstSeen == 0) firstSeen = head.number;
    if (head.number < next) return Outcome::Known;
    if (head.number >= next + MOST_IN_FLIGHT) return Outcome::TooEarly;
    if (head.number > next) {
        early.emplace(head.number, std::move(piece));
        return Outcome::Taken;
    }
    Add(piece);
    AddEarly();
    return Outcome::Taken;
}

void PieceOrder::AddEarly() {
    for (auto first = early.begin(); first != early.end() && first->first == next && error.empty();
         first = early.begin()) {
        Add(first->second);
        early.erase(first);
    }
}

// It has the number that comes next.
void PieceOrder::Add(std::string_view piece) {
    Head head;
    ReadHead(piece, head);
    const std::string_view bytes = piece.substr(PIECE_HEAD);
    if (DigestOf(digest, head, bytes) != head.digest) {
        error = Bilingual(
                    "message %1 does not continue the ones before it: its sender makes other blocks than "
                    "before, or it was changed on its way",
                    "Nachricht %1 setzt die vorigen nicht fort: ihr Absender erzeugt andere Blöcke als "
                    "zuvor, oder sie wurde unterwegs verändert")
                    .With({std::to_string(head.number)});
        return;
    }
    if (!isOpen) {
        current = {static_cast<Unit::Kind>(head.kind), head.hasMore == 1, head.line, head.step, {}, 0};
        size = head.size;
    }
    const bool isSame = current.kind == head.kind && current.line == head.line && size == head.size;
    const bool isKnown = head.kind <= Unit::Turn && head.hasMore <= 1;
    if (!isKnown || !isSame || head.size > LARGEST_UNIT || head.offset != current.bytes.size() ||
        bytes.size() > size - current.bytes.size() || (bytes.empty() && size > 0)) {
        error =
            Bilingual("message %1 contradicts the ones before it", "Nachricht %1 widerspricht den vorigen")
                .With({std::to_string(head.number)});
        return;
    }
    current.bytes += bytes;
    digest = head.digest;
    ++next;
    isOpen = current.bytes.size() < size;
    current.lastPiece = head.number;
    if (!isOpen) whole.push_back(std::move(current));
}

bool PieceOrder::Take(Unit& unit) {
    if (whole.empty()) return false;
    unit = std::move(whole.front());
    whole.pop_front();
    return true;
}

}  // namespace host::engine
