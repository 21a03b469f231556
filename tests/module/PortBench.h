#pragma once

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "sigweave/module/TCPortHelper.h"

// Port helpers without modules, wired together as a host would do it.
namespace bench {

inline void Wire(TCPortHelper& from, unsigned output, TCPortHelper& to, unsigned input) {
    from.AddLine(OUTPUT, output);
    to.AddLine(INPUT, input);
    from.AddOutputStream(output, to.SetInputStream(input, 0, 3));
}

// Whether every result is the wanted one.
inline bool All(int wanted, std::initializer_list<int> results) {
    return std::ranges::count(results, wanted) == std::ssize(results);
}

// A table of words "left:right".
inline std::vector<std::pair<std::string, std::string>> Rows(const std::string& text) {
    std::vector<std::pair<std::string, std::string>> rows;
    std::istringstream words(text);
    for (std::string word; words >> word;)
        rows.emplace_back(word.substr(0, word.find(':')), word.substr(word.find(':') + 1));
    return rows;
}
inline unsigned Digit(char digit) {
    return static_cast<unsigned>(digit - '0');
}
// START, BUSY, STOP and COMPLETE are the letters SBPC; any other one is INVALID.
inline TCBLOCKSTATUS StateOf(char letter) {
    return static_cast<TCBLOCKSTATUS>(static_cast<int>(std::string("SBPC").find(letter)));
}
inline char LetterOf(TCBLOCKSTATUS state) {
    return state == INVALID ? '-' : "SBPC"[state];
}

inline constexpr TCPortHelper::TYPE SIGNAL = TCPortHelper::TYPE_TYPEINFO | TCPortHelper::TYPE_DOUBLEARRAY;

// `count` outputs of one type, each wired to the input of the same index.
struct Lines {
    explicit Lines(unsigned count, TCPortHelper::TYPE code = SIGNAL) {
        const auto name = [](PORTTYPE, unsigned index) { return TCString::FormatS("Signal %u", index + 1); };
        writer.SetPortRange(OUTPUT, 0, count, name, code);
        reader.SetPortRange(INPUT, 0, count, name, code);
        for (unsigned i = 0; i < count; ++i) Wire(writer, i, reader, i);
    }

    // Of the next block.
    void SetState(unsigned port, TCBLOCKSTATUS state) {
        writer.SetTypeInfo(port, nullptr, &state, nullptr, nullptr, nullptr, nullptr);
    }
    // A block of `values` equal values.
    int Send(unsigned port, TCBLOCKSTATUS state, unsigned values = 1) {
        const std::vector<double> data(values, 1.0);
        SetState(port, state);
        return writer.WriteDblData(port, data.size(), data.data());
    }
    void Send(unsigned port, std::initializer_list<TCBLOCKSTATUS> states) {
        for (const TCBLOCKSTATUS state : states) Send(port, state);
    }
    // Takes a block; its metadata.
    TCTypeInfo Receive(unsigned port = 0) {
        reader.TakeBlock(port);
        const TCTypeInfo* ti = reader.LastTypeInfo(port);
        return ti != nullptr ? *ti : TCTypeInfo();
    }

    TCPortHelper writer{nullptr};
    TCPortHelper reader{nullptr};
};

struct Line : Lines {
    explicit Line(TCPortHelper::TYPE code = SIGNAL) : Lines(1, code) {}
};

}  // namespace bench
