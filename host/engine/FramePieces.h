#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <string_view>

#include "host/parts/SourceTurn.h"

namespace host::engine {

// What one place sends to another: units in their order, each cut into pieces that fit into messages. Numbers
// are little-endian (sent between machines; never change):
//
//   0  mark "SWPC"   4  version   8  number of the piece, from 1   16  digest of all pieces up to this one
//   24  what the unit is, 2 bytes   26  whether more belong to it, 2 bytes   28  line   32  step
//   40  size of the whole unit   44  offset   48  bytes
//
// What a unit is: 0 a block's frame, 1 the end of what the place sends, 2 a turn of a source that is over
// (see WriteTurn), and after it the last frame of the turn, if it has any.
//
// The digest is formed of the heads and, for blocks, of the checksums in their frames: two senders that made
// the same blocks have the same digest at each number.

// What may be sent in one message.
inline constexpr std::size_t PIECE_HEAD = 48;
inline constexpr std::size_t LARGEST_PIECE = 512 << 10;  // with its head
inline constexpr int MOST_IN_FLIGHT = 256;               // messages whose order may get lost

struct Unit {
    enum Kind : std::uint16_t { Block, End, Turn };
    Kind kind = Block;
    bool hasMore = false;  // the next unit is to be taken together with it
    std::uint32_t line = 0;
    std::int64_t step = 0;        // see docs/machines.md
    std::string bytes;            // a packed frame; of an end how the place ended, as text
    std::uint64_t lastPiece = 0;  // its number, when the unit was received
};

// The bytes of a turn, little-endian: 0 the source's place   4 1 if it has made a block, 2 if that is timed,
// 4 if it is over, added up   8 milliseconds   16 lastLength   24 gap.
inline constexpr std::size_t TURN_SIZE = 32;
std::string WriteTurn(const SourceTurn& turn);
// Of the first bytes; false when they are none.
bool ReadTurn(std::string_view bytes, SourceTurn& turn);

// Cuts units into pieces.
class PieceMaker {
 public:
    // The unit's bytes must stay as they are until all of its pieces are taken; at most 2 GB.
    void Begin(const Unit& unit);
    // False when the unit has no more.
    bool Take(std::string& piece);
    std::uint64_t LastNumber() const { return number; }
    std::uint64_t LastDigest() const { return digest; }

 private:
    const Unit* unit = nullptr;
    std::size_t offset = 0;
    bool isEmpty = false;
    std::uint64_t number = 0;
    std::uint64_t digest = 0;
};

// The number and the digest of a piece; false when it is none.
bool ReadPieceNumber(std::string_view piece, std::uint64_t& number, std::uint64_t& digest);

// Puts pieces together again that come from one place, in any order and perhaps more than once. It holds at
// most MOST_IN_FLIGHT pieces that came too early, and of a unit never more than has come.
class PieceOrder {
 public:
    enum class Outcome {
        Taken,    // it was the next one, or waits until it is
        Known,    // it was taken before
        TooEarly  // pieces before it are lost: to be read again from First() on
    };
    // Of a piece that is damaged or contradicts those before it `GetError` says what is wrong; nothing more
    // is taken then.
    Outcome Put(std::string piece);
    // The next whole unit; false when there is none yet.
    bool Take(Unit& unit);
    // The number of the piece that is missing next.
    std::uint64_t First() const { return next; }
    bool IsHolding() const { return !early.empty(); }
    // Of the first piece that came at all; 0 when none did.
    std::uint64_t FirstSeen() const { return firstSeen; }
    // In the user's language; empty while all is well.
    const std::string& GetError() const { return error; }

 private:
    void Add(std::string_view piece);
    void AddEarly();

    std::uint64_t next = 1;
    std::uint64_t firstSeen = 0;
    std::uint64_t digest = 0;
    std::map<std::uint64_t, std::string> early;
    std::string error;
    Unit current;
    std::uint32_t size = 0;  // of the current unit
    bool isOpen = false;     // pieces of it are missing
    std::deque<Unit> whole;
};

}  // namespace host::engine
