#include "modules/capture/Calibration.h"

#include <charconv>
#include <cmath>
#include <regex>
#include <sstream>

#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/signal/UnitText.h"

namespace {

using tc::Bilingual;

constexpr std::size_t LONGEST_ENTRY = 200;  // characters

// False when the entry is wrong.
bool ReadEntry(const std::string& text, int channels, int& channel, Calibration& read) {
    static const std::regex ENTRY(R"(\s*(\d{1,4})\s*:\s*([-+.\deE]+)\s*(.*?)\s*(\d{4}-\d{2}-\d{2})?\s*)");
    std::smatch part;
    if (text.size() > LONGEST_ENTRY || !std::regex_match(text, part, ENTRY)) return false;
    channel = std::stoi(part[1]);
    const std::string number = part[2];
    const char* const end = number.data() + number.size();
    const auto [stop, code] = std::from_chars(number.data(), end, read.factor);
    std::string ignored;
    tc::UnitMeaning meaning;
    if (code != std::errc() || stop != end || channel < 1 || channel > channels ||
        !tc::ReadUnit(part[3].str(), meaning, ignored) || meaning.offset != 0.0 ||
        !tc::ParseStart(part[4], read.date, ignored))
        return false;
    read.factor *= meaning.Factor();
    read.unit = meaning.unit;
    return std::isfinite(read.factor) && read.factor != 0.0;
}

}  // namespace

bool ReadCalibration(const std::string& text, int channels, std::vector<Calibration>& calibrations,
                     std::string& error) {
    calibrations.assign(static_cast<std::size_t>(channels), {});
    std::istringstream entries(text);
    for (std::string entry; std::getline(entries, entry, ',');) {
        int channel = 0;
        Calibration read;
        if (ReadEntry(entry, channels, channel, read)) {
            calibrations[static_cast<std::size_t>(channel - 1)] = read;
            continue;
        }
        tc::AddReason(
            error,
            tc::NotValid("calibration", entry,
                         Bilingual("channel, factor, unit and date, as 1: 0.0125 Pa 2026-03-01",
                                   "Kanal, Faktor, Einheit und Datum, wie 1: 0.0125 Pa 2026-03-01")
                             .Text(),
                         Bilingual("with %1 channels", "bei %1 Kanälen").With({std::to_string(channels)})));
        return false;
    }
    return true;
}
