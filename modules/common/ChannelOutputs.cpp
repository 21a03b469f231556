#include "modules/common/ChannelOutputs.h"

#include <algorithm>
#include <set>

#include "sigweave/module/ModuleSignals.h"

namespace {

void MakeUnique(std::vector<std::string>& names, const char* word) {
    std::set<std::string> taken = {ChannelOutputs::BUS};
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (names[i].empty()) names[i] = word + (" " + std::to_string(i + 1));
        const std::string given = names[i];
        for (int number = 2; !taken.insert(names[i]).second; ++number)
            names[i] = given + " " + std::to_string(number);
    }
}

}  // namespace

void ChannelOutputs::Declare(TCPortHelper& ports, std::vector<std::string> given, const char* word,
                             const char* domain) {
    MakeUnique(given, word);
    names.assign(given.size(), TCString());
    metadata.assign(given.size(), TCTypeInfo());
    ports.ClearPorts(true);
    for (std::size_t i = 0; i < given.size(); ++i) {
        names[i] = given[i].c_str();
        metadata[i].SetSignalname(names[i]);
        ports.SetPort(OUTPUT, static_cast<unsigned>(i), names[i], "DOUBLE[]", domain, true);
    }
    // The bus block itself has no metadata; each of its channels has its own.
    ports.SetPort(OUTPUT, static_cast<unsigned>(given.size()), BUS, "STRUCT_BUS", "BUS", false);
}

TCForetoldSignal ChannelOutputs::Foretell(int output) const {
    const auto channel = static_cast<std::size_t>(output);
    if (channel >= names.size()) return {};
    const TCTypeInfo& ti = metadata[channel];
    return {TCString(ti.GetSignalname()), ti.GetSamplerate(), ti.GetUnit()};
}

int ChannelOutputs::Write(TCPortHelper& ports, std::size_t channel, const double* samples,
                          std::size_t count) {
    const int code =
        tc::WriteSamples(ports, static_cast<unsigned>(channel), metadata[channel], samples, count);
    const auto bus = static_cast<unsigned>(names.size());
    if (code < 0 || !ports.IsWired(OUTPUT, bus, TCPortHelper::STREAM_CONNECTED)) return code;
    isBusBegun = true;
    return std::min(
        0, ports.WriteDblDataBusBlock(bus, static_cast<int>(count), samples, static_cast<int>(channel),
                                      names[channel], &metadata[channel]));
}

int ChannelOutputs::EndBlock(TCPortHelper& ports) {
    if (!std::exchange(isBusBegun, false)) return 0;
    return std::min(0, ports.EndWriteMultitype(static_cast<unsigned>(names.size())));
}
