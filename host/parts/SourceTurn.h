#pragma once

namespace host {

// What one turn of a source did to the order of the turns after it (see FairTurns). It is all that a part
// needs to know of a source elsewhere, besides the blocks.
struct SourceTurn {
    int source = -1;            // its place in the order of the steps; -1: no turn
    bool hasMade = false;       // a block
    bool isTimed = false;       // the blocks had a length in time
    bool isOver = false;        // the source has no more turns
    double milliseconds = 0.0;  // how much longer its signal has become, if it is timed
    double lastLength = 0.0;    // ms, of its last timed block
    double gap = 0.0;           // ms
};

}  // namespace host
