#include "host/DevicesCommand.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/Commands.h"
#include "host/Console.h"
#include "host/SerialPorts.h"
#include "host/Table.h"
#include "modules/capture/AlsaDevice.h"
#include "sigweave/services/Bilingual.h"

namespace host {
namespace {

using live::CaptureFacts;
using tc::Bilingual;
using Json = nlohmann::ordered_json;

constexpr double TIME = 250.0;  // ms

const live::SampleFormat& FormatOf(const std::string& word) {
    return *std::ranges::find(live::FORMATS, word, &live::SampleFormat::word);
}

Json ToJson(const CaptureFacts& device) {
    Json formats = Json::array();
    for (const std::string& word : device.formats)
        formats.push_back({{"format", word},
                           {"range", {FormatOf(word).RangeMinimum(), FormatOf(word).RangeMaximum()}},
                           {"unit", ""}});
    return {{"kind", "sound"},
            {"name", device.name},
            {"text", device.text},
            {"in_use", device.isBusy},
            {"channels", {device.leastChannels, device.mostChannels}},
            {"rates", device.rates},
            {"formats", std::move(formats)}};
}

Json ToJson(const SerialPort& port) {
    return {{"kind", "serial"}, {"name", port.name}, {"text", port.text}};
}

template <class List, class ToText>
std::string Join(const List& list, ToText&& toText) {
    std::string text;
    for (const auto& item : list) text += (text.empty() ? "" : " ") + toText(item);
    return text;
}

std::vector<std::string> ToRow(const CaptureFacts& device) {
    const std::string channels =
        device.leastChannels == device.mostChannels
            ? std::to_string(device.mostChannels)
            : std::to_string(device.leastChannels) + "-" + std::to_string(device.mostChannels);
    const std::string known = device.isBusy ? Bilingual("in use", "in Benutzung").Text() : channels;
    const auto range = [](const std::string& word) {
        return NumberText(FormatOf(word).RangeMinimum(), 10) + ".." +
               NumberText(FormatOf(word).RangeMaximum(), 10);
    };
    std::vector<std::string> ranges;
    for (const std::string& word : device.formats)
        if (std::ranges::find(ranges, range(word)) == ranges.end()) ranges.push_back(range(word));
    return {"sound",
            device.name,
            known,
            Join(device.rates, [](unsigned rate) { return std::to_string(rate); }),
            Join(device.formats, [](const std::string& word) { return word; }),
            Join(ranges, [](const std::string& text) { return text; }),
            "",
            device.text};
}

// What a serial line measures is known to the instrument alone.
std::vector<std::string> ToRow(const SerialPort& port) {
    return {"serial", port.name, "", "", "", "", "", port.text};
}

}  // namespace

int ListDevices(bool json) {
    const std::vector<SerialPort> ports = ListSerialPorts();
    const std::vector<CaptureFacts> devices = live::ListCaptureDevices(TIME);
    if (json) {
        Json list = Json::array();
        for (const CaptureFacts& device : devices) list.push_back(ToJson(device));
        for (const SerialPort& port : ports) list.push_back(ToJson(port));
        return console::Print(list.dump(2, ' ', false, Json::error_handler_t::replace) + "\n")
                   ? EXIT_COMPLETE
                   : EXIT_INCOMPLETE;
    }
    if (devices.empty() && ports.empty())
        return console::Print(Bilingual("no sound device and no serial line was found\n",
                                        "weder Audiogerät noch serielle Leitung gefunden\n")
                                  .Text())
                   ? EXIT_COMPLETE
                   : EXIT_INCOMPLETE;
    std::vector<std::vector<std::string>> rows{
        {Bilingual("kind", "Art").Text(), Bilingual("name", "Name").Text(),
         Bilingual("channels", "Kanäle").Text(), Bilingual("rates", "Raten").Text(),
         Bilingual("formats", "Formate").Text(), Bilingual("range", "Bereich").Text(),
         Bilingual("unit", "Einheit").Text(), Bilingual("text", "Text").Text()}};
    for (const CaptureFacts& device : devices) rows.push_back(ToRow(device));
    for (const SerialPort& port : ports) rows.push_back(ToRow(port));
    return console::Print(LayOut(rows)) ? EXIT_COMPLETE : EXIT_INCOMPLETE;
}

}  // namespace host
