#pragma once

#include <initializer_list>
#include <vector>

#include "sigweave/module/TCPortHelper.h"

// Port helpers without modules, wired together as a host would do it.
namespace bench {

inline void Wire(TCPortHelper& from, unsigned output, TCPortHelper& to, unsigned input) {
    from.AddLine(OUTPUT, output);
    to.AddLine(INPUT, input);
    from.AddOutputStream(output, to.SetInputStream(input, 0, 3));
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

    // A block of `values` equal values.
    int Send(unsigned port, TCBLOCKSTATUS state, unsigned values = 1) {
        const std::vector<double> data(values, 1.0);
        writer.SetTypeInfo(port, nullptr, &state, nullptr, nullptr, nullptr, nullptr);
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
