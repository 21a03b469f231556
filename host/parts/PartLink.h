#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/parts/SourceTurn.h"
#include "sigweave/services/TCLogFile.h"

namespace host {

// What was said in a step, to be said by the last part, where everything comes together in its order.
struct PartText {
    enum class Kind : std::uint8_t { State, Warning, Error, Module };
    Kind kind = Kind::Module;
    int severity = -1;  // of a module's: 0 error, 1 warning, 2 note, -1: for the log alone
    TCLogFile::LOG_LEVEL level = TCLogFile::TRACE;
    std::string who;  // instance, or the module's name
    std::string text;
};

// What one part of a run hands to the next: a point in the order of all steps, and what was made there. It is
// all that crosses the seam between two parts: numbers, texts and packed frames, no pointers.
//
// `place` is the smallest place (in the order of the steps of the whole graph) of all modules that stepped in
// the parts before since the last delivery; -1 when a source did. In the uncut run every module at a larger
// place that had work stepped before; so the receiving part lets its own ones step, as long as one beyond
// `place` has work, and only then takes what is here. Places and cuts are numbered alike in all parts, which
// have the same graph and the same plan.
struct PartDelivery {
    enum class Kind : std::uint8_t { Blocks, Ended, Failed };

    struct Piece {
        int cut = 0;              // which output, by its number in the plan
        std::vector<char> frame;  // one block, packed (docs/packed-frames.md)
    };

    Kind kind = Kind::Blocks;
    int place = 0;
    int failedPart = -1;
    std::vector<PartText> texts;
    SourceTurn turn;           // that ends with it, of a source before the place where signals meet
    std::uint64_t before = 0;  // the link's own: the last of what came before it (see PlaceRun::SetDone)

    // Frames keep their storage when the delivery is used again, so that a steady flow allocates nothing.
    Piece& Add(int cut) {
        if (used == pieces.size()) pieces.emplace_back();
        pieces[used].cut = cut;
        return pieces[used++];
    }
    std::size_t PieceCount() const { return used; }
    Piece& PieceAt(std::size_t index) { return pieces[index]; }
    std::size_t Bytes() const {
        std::size_t bytes = 0;
        for (std::size_t i = 0; i < used; ++i) bytes += pieces[i].frame.size();
        return bytes;
    }
    bool IsEmpty() const { return kind == Kind::Blocks && used == 0 && texts.empty() && turn.source < 0; }
    void Clear() {
        kind = Kind::Blocks;
        used = 0;
        failedPart = -1;
        texts.clear();
        turn = SourceTurn();
    }

 private:
    std::vector<Piece> pieces;
    std::size_t used = 0;  // of them
};

// The seam: how deliveries get from one part to the next. A link keeps their order, loses none and adds none;
// how it does that, through a ring in memory (RingLink.h) or over a network, does not matter to the parts. It
// is bounded: where the receiver is slow, Send waits. As each part only sends to the next one, and the last
// waits for nobody, all of them come to an end.
class PartLink {
 public:
    // Takes the delivery, which afterwards is one to be filled again (with whatever is in it; Clear it).
    // False when the receiver takes no more, because its part has failed: the run is over.
    virtual bool Send(PartDelivery& delivery) = 0;

 protected:
    ~PartLink() = default;
};

}  // namespace host
