// PieceOrder, given messages that a network or a hostile server could bring: whatever they are, no more comes
// out than went in; and pieces of real units, in any order and with any of them twice, come out as they were
// sent.
#include <algorithm>
#include <vector>

#include "fuzz/Fuzz.h"
#include "host/engine/FramePieces.h"

namespace {

using host::engine::PieceMaker;
using host::engine::PieceOrder;
using host::engine::Unit;

// The parts of the input as messages, as they are or where their heads were right but for the digest.
void PutAnything(const std::uint8_t* data, std::size_t size) {
    PieceOrder order;
    std::size_t sent = 0, taken = 0;
    while (size > 0) {
        fuzz::Parts parts(data, size);
        const std::size_t wanted = static_cast<std::size_t>(parts.NextInt(0, 4096));
        const std::string rest = parts.Rest();
        const std::string piece = rest.substr(0, wanted);
        sent += piece.size();
        order.Put(piece);
        for (Unit unit; order.Take(unit);) {
            taken += unit.bytes.size();
            host::SourceTurn turn;
            const std::string head = unit.bytes.substr(0, host::engine::TURN_SIZE);
            if (host::engine::ReadTurn(unit.bytes, turn))
                fuzz::Require(host::engine::WriteTurn(turn) == head, "a turn is read as it was written");
        }
        data += size - (rest.size() - piece.size());
        size = rest.size() - piece.size();
    }
    fuzz::Require(taken <= sent, "no more comes out than went in");
}

// Bytes of the input: sizes and contents of units, then the order in which their pieces come.
void PutUnits(const std::uint8_t* data, std::size_t size) {
    std::vector<Unit> units;
    std::vector<std::string> pieces;
    PieceMaker maker;
    for (std::size_t i = 0; i < std::min<std::size_t>(size, 8); ++i) {
        const bool isEnd = data[i] % 5 == 0;
        units.push_back({isEnd              ? Unit::End
                         : data[i] % 7 == 0 ? Unit::Turn
                                            : Unit::Block,
                         data[i] % 3 == 0, data[i], -1 + data[i] % 7,
                         std::string(std::size_t{data[i]} << (data[i] % 14), static_cast<char>(data[i]))});
    }
    for (const Unit& unit : units) {
        maker.Begin(unit);
        for (std::string piece; maker.Take(piece);) pieces.push_back(piece);
    }
    PieceOrder order;
    for (std::size_t i = 0; i < size && !pieces.empty(); ++i) order.Put(pieces[data[i] % pieces.size()]);
    for (const std::string& piece : pieces) order.Put(piece);
    fuzz::Require(order.GetError().empty(), "pieces that were made are taken");
    Unit taken;
    for (const Unit& unit : units) {
        fuzz::Require(order.Take(taken), "every unit comes");
        fuzz::Require(taken.bytes == unit.bytes && taken.line == unit.line && taken.step == unit.step &&
                          taken.kind == unit.kind && taken.hasMore == unit.hasMore,
                      "a unit comes as it was sent");
    }
}

// A piece that was changed is refused, or changed only in bytes that its frame's checksum guards.
void PutChanged(const std::uint8_t* data, std::size_t size) {
    if (size < 4) return;
    const Unit unit{Unit::Block, false, data[0], 0, std::string(64, static_cast<char>(data[1]))};
    PieceMaker maker;
    std::string piece;
    maker.Begin(unit);
    maker.Take(piece);
    const std::size_t at = (data[2] * 256u + data[3]) % piece.size();
    piece[at] = static_cast<char>(piece[at] ^ (size > 4 && data[4] != 0 ? data[4] : 1));
    PieceOrder order;
    order.Put(piece);
    Unit taken;
    if (order.Take(taken)) fuzz::Require(at >= host::engine::PIECE_HEAD + 24, "a changed head is noticed");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    PutAnything(data, size);
    PutUnits(data, size);
    PutChanged(data, size);
    return 0;
}
