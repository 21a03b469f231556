#include <gmock/gmock.h>

#include <cstring>
#include <random>
#include <tuple>

#include "host/engine/FramePieces.h"
#include "tests/support/PackedFrame.h"

namespace {

using host::engine::PieceMaker;
using host::engine::PieceOrder;
using host::engine::Unit;
using testing::HasSubstr;

Unit BlockOf(std::uint32_t line, std::size_t size, char fill) {
    return {Unit::Block, line == 3, line, -1, std::string(size, fill)};
}

std::vector<std::string> PiecesOf(const std::vector<Unit>& units) {
    PieceMaker maker;
    std::vector<std::string> pieces;
    for (const Unit& unit : units) {
        maker.Begin(unit);
        for (std::string piece; maker.Take(piece);) pieces.push_back(piece);
    }
    return pieces;
}

constexpr host::SourceTurn TURN = {7, true, false, true, 0.1, 62.5, 1e300};

// 1 MB in three pieces, one of a few bytes, one without any, the end of a turn, and an end.
const std::vector<Unit> UNITS = {BlockOf(3, 1 << 20, 'a'),
                                 BlockOf(0, 100, 'b'),
                                 BlockOf(1, 0, 'c'),
                                 {Unit::End, false, 0, 7, "complete"},
                                 {Unit::Turn, false, 2, -1, host::engine::WriteTurn(TURN) + "frame"}};

void ExpectUnits(PieceOrder& order) {
    Unit unit;
    for (const Unit& sent : UNITS) {
        ASSERT_TRUE(order.Take(unit)) << order.GetError();
        EXPECT_EQ(unit.kind, sent.kind);
        EXPECT_EQ(unit.hasMore, sent.hasMore);
        EXPECT_EQ(unit.line, sent.line);
        EXPECT_EQ(unit.step, sent.step);
        EXPECT_TRUE(unit.bytes == sent.bytes);
    }
    EXPECT_FALSE(order.Take(unit));
    EXPECT_FALSE(order.IsHolding());
}

TEST(FramePieces, FitIntoMessagesAndComeTogetherInAnyOrder) {
    std::vector<std::string> pieces = PiecesOf(UNITS);
    ASSERT_EQ(pieces.size(), 7u);
    for (const std::string& piece : pieces) EXPECT_LE(piece.size(), 512u << 10);
    std::mt19937 random(1);
    for (int trial = 0; trial < 100; ++trial) {
        std::vector<std::string> sent = pieces;
        sent.insert(sent.end(), pieces.begin(), pieces.begin() + trial % 7);  // some of them twice
        std::shuffle(sent.begin(), sent.end(), random);
        PieceOrder order;
        for (const std::string& piece : sent) EXPECT_NE(order.Put(piece), PieceOrder::Outcome::TooEarly);
        ExpectUnits(order);
    }
}

TEST(FramePieces, HoldTheTurnsOfSources) {
    host::SourceTurn read;
    const std::string& bytes = UNITS.back().bytes;
    ASSERT_TRUE(host::engine::ReadTurn(bytes, read));
    EXPECT_EQ(bytes.substr(host::engine::TURN_SIZE), "frame");
    const auto all = [](const host::SourceTurn& turn) {
        return std::tuple(turn.source, turn.hasMade, turn.isTimed, turn.isOver, turn.milliseconds,
                          turn.lastLength, turn.gap);
    };
    EXPECT_EQ(all(read), all(TURN));
    EXPECT_FALSE(host::engine::ReadTurn(bytes.substr(0, host::engine::TURN_SIZE - 1), read));
    for (const std::size_t at : {3, 5}) {  // a source below 0, and an unknown flag
        std::string changed = bytes;
        changed[at] = '\xFF';
        EXPECT_FALSE(host::engine::ReadTurn(changed, read));
    }
}

TEST(FramePieces, ThatWereTakenAreKnownAndThoseFarAheadAreNotHeld) {
    std::vector<Unit> units(host::engine::MOST_IN_FLIGHT + 2, BlockOf(0, 24, 'x'));
    const std::vector<std::string> pieces = PiecesOf(units);
    PieceOrder order;
    EXPECT_EQ(order.Put(pieces[0]), PieceOrder::Outcome::Taken);
    EXPECT_EQ(order.Put(pieces[0]), PieceOrder::Outcome::Known);
    EXPECT_EQ(order.Put(pieces.back()), PieceOrder::Outcome::TooEarly);
    EXPECT_FALSE(order.IsHolding());
    EXPECT_EQ(order.Put(pieces[pieces.size() - 2]), PieceOrder::Outcome::Taken);
    EXPECT_TRUE(order.IsHolding());
    EXPECT_EQ(order.First(), 2u);
    EXPECT_EQ(order.FirstSeen(), 1u);
}

// Any byte of any piece; the bytes of frames are what their own checksums are for.
TEST(FramePieces, ThatWereChangedAreRefused) {
    const std::vector<std::string> pieces = PiecesOf({UNITS[1], UNITS[3], UNITS[4]});
    for (std::size_t piece = 0; piece < pieces.size(); ++piece)
        for (std::size_t at = 0; at < (piece == 0 ? host::engine::PIECE_HEAD + 24 : pieces[piece].size());
             ++at) {
            PieceOrder order;
            bool isRefused = false;
            for (std::size_t i = 0; i < pieces.size(); ++i) {
                std::string sent = pieces[i];
                if (i == piece) sent[at] = static_cast<char>(sent[at] ^ 0x20);
                isRefused = order.Put(sent) == PieceOrder::Outcome::TooEarly || isRefused;
            }
            Unit unit;
            int taken = 0;
            while (order.Take(unit)) ++taken;
            // A changed number leaves a gap.
            EXPECT_TRUE(!order.GetError().empty() || order.IsHolding() || isRefused || taken < 3)
                << "byte " << at << " of piece " << piece;
        }
}

TEST(FramePieces, ThatClaimMoreThanThereIsTakeNoMemoryForIt) {
    std::string piece = PiecesOf({UNITS[1]})[0];
    const std::uint32_t size = 0x7FFFFFFF;
    std::memcpy(piece.data() + 40, &size, sizeof size);
    PieceOrder order;
    order.Put(piece);
    Unit unit;
    EXPECT_FALSE(order.Take(unit));
    EXPECT_THAT(order.GetError(), HasSubstr("does not continue"));
    PieceOrder short_;
    short_.Put("SWPC");
    EXPECT_THAT(short_.GetError(), HasSubstr("4 bytes"));
}

TEST(FramePieces, OfOtherBlocksHaveAnotherDigest) {
    PieceMaker same, other;
    std::string piece;
    Unit first = UNITS[1];
    Unit changed = first;
    changed.bytes[16] = 'z';  // in the checksum of the frame
    same.Begin(first), other.Begin(changed);
    while (same.Take(piece)) {
    }
    while (other.Take(piece)) {
    }
    EXPECT_EQ(same.LastNumber(), other.LastNumber());
    EXPECT_NE(same.LastDigest(), other.LastDigest());
}

}  // namespace
