#include "modules/capture/Calibration.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <sstream>
#include <string_view>
#include <system_error>

#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/signal/UnitText.h"

namespace {

using tc::Bilingual;

constexpr std::string_view BLANKS = " \t";

std::string_view Trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(BLANKS);
    return first == text.npos ? std::string_view()
                              : text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

template <class Number>
bool TakeNumber(std::string_view& text, Number& number) {
    text = Trimmed(text);
    const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), number);
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    text = Trimmed(text);
    return code == std::errc();
}

bool IsDate(std::string_view word) {
    constexpr std::string_view FORM = "0000-00-00";
    return word.size() == FORM.size() && std::ranges::equal(word, FORM, [](char c, char form) {
               return form == '0' ? c >= '0' && c <= '9' : c == form;
           });
}

// False when the entry is wrong.
bool ReadEntry(std::string_view text, int channels, int& channel, Calibration& read) {
    if (!TakeNumber(text, channel) || channel < 1 || channel > channels || !text.starts_with(':'))
        return false;
    text.remove_prefix(1);
    if (!TakeNumber(text, read.factor)) return false;
    std::string_view date = text.substr(text.find_last_of(BLANKS) + 1);
    if (!IsDate(date)) date = {};
    text = Trimmed(text.substr(0, text.size() - date.size()));
    std::string ignored;
    tc::UnitMeaning meaning;
    if (!tc::ReadUnit(std::string(text), meaning, ignored) || meaning.offset != 0.0 ||
        !tc::ParseStart(std::string(date), read.date, ignored))
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
