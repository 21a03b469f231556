#include "modules/common/ArraySource.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>

#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/NearNames.h"
#include "sigweave/signal/UnitText.h"

namespace tc {

namespace {

constexpr std::int64_t MOST_CHANNELS = 4096;
// Of all channels together, so that a block has 128 MB at most.
constexpr std::int64_t MOST_BLOCK_VALUES = 1 << 24;

enum class Fact { NONE, NAME, UNIT, RATE, PERIOD, START };

constexpr struct {
    const char* name;
    Fact fact;
} FACTS[] = {{"name", Fact::NAME},
             {"long_name", Fact::NAME},
             {"unit", Fact::UNIT},
             {"units", Fact::UNIT},
             {"unit_string", Fact::UNIT},
             {"sample_rate", Fact::RATE},
             {"samplerate", Fact::RATE},
             {"sampling_rate", Fact::RATE},
             {"samplingrate", Fact::RATE},
             {"sampling_frequency", Fact::RATE},
             {"fs", Fact::RATE},
             {"rate", Fact::RATE},
             {"dt", Fact::PERIOD},
             {"delta_t", Fact::PERIOD},
             {"wf_increment", Fact::PERIOD},
             {"start_time", Fact::START},
             {"start", Fact::START},
             {"t0", Fact::START}};

Fact FactOf(std::string_view name) {
    std::string lower(name);
    std::ranges::transform(lower, lower.begin(), [](unsigned char byte) { return std::tolower(byte); });
    const auto found = std::ranges::find_if(FACTS, [&](const auto& row) { return lower == row.name; });
    return found != std::end(FACTS) ? found->fact : Fact::NONE;
}

// Files have seconds, blocks milliseconds: those of which the seconds came, where they can be known.
double Milliseconds(double seconds) {
    const double rounded = std::nearbyint(seconds * 1e6) / 1e3;
    return rounded / 1000.0 == seconds ? rounded : seconds * 1000.0;
}

}  // namespace

bool IsFactName(std::string_view name) {
    return FactOf(name) != Fact::NONE;
}

void TakeFact(std::string_view name, double number, ArrayFacts& facts) {
    const Fact fact = FactOf(name);
    if (!std::isfinite(number) || !(number > 0.0)) return;
    if (fact == Fact::RATE) facts.rate = number;
    if (fact == Fact::PERIOD && facts.rate == 0.0) facts.rate = 1.0 / number;
    if (fact == Fact::START) facts.start = Milliseconds(number);
}

void TakeFact(std::string_view name, const std::string& text, ArrayFacts& facts) {
    const Fact fact = FactOf(name);
    CString ignored;
    double number = 0.0;
    if (fact == Fact::NAME) facts.name = text;
    if (fact == Fact::UNIT) facts.unit = text;
    if (fact == Fact::START && ParseStart(text, number, ignored) && number > 0.0) facts.start = number;
    if (fact == Fact::RATE && ReadQuantity(text, "Hz", number, ignored)) TakeFact(name, number, facts);
}

void AppendCharacter(unsigned code, std::string& text) {
    if (code < 0x80) {
        text += static_cast<char>(code);
        return;
    }
    if (code < 0x800)
        text += static_cast<char>(0xC0 | (code >> 6));
    else
        text.append({static_cast<char>(0xE0 | (code >> 12)), static_cast<char>(0x80 | ((code >> 6) & 0x3F))});
    text += static_cast<char>(0x80 | (code & 0x3F));
}

std::string ChooseArray(const std::string& path, const char* parameter, const std::string& wanted,
                        const CStringArray& names, const Bilingual& expected, std::string& error) {
    const auto isThere = [&](const std::string& name) {
        return std::ranges::find(names, name) != names.end();
    };
    std::string name = wanted;
    if (name.empty()) name = names.size() == 1 ? names[0] : isThere("samples") ? "samples" : "";
    if (!name.empty() && isThere(name)) return name;
    error = NotValid(parameter, wanted, expected.With({path, SuggestNames(name, names)}));
    return "";
}

bool FindShape(const std::vector<std::int64_t>& sizes, ArrayLayout layout, ArrayShape& shape,
               std::string& error) {
    if (sizes.empty() || sizes.size() > 2) {
        error = Bilingual("it has %1 dimensions; one or two can be read",
                          "es hat %1 Dimensionen; lesbar sind eine oder zwei")
                    .With({std::to_string(sizes.size())});
        return false;
    }
    const std::int64_t columns = sizes.size() == 2 ? sizes[1] : 1;
    shape.areRows = sizes.size() == 2 &&
                    (layout == ArrayLayout::ROWS || (layout == ArrayLayout::LONGER && sizes[0] < columns));
    shape.samples = shape.areRows ? columns : sizes[0];
    shape.channels = shape.areRows ? sizes[0] : columns;
    if (shape.samples <= 0 || shape.channels <= 0) {
        error = Bilingual("it holds no samples", "es enthält keine Abtastwerte").Text();
        return false;
    }
    if (shape.channels <= MOST_CHANNELS) return true;
    error =
        Bilingual("it has %1 channels; at most %2 can be read", "es hat %1 Kanäle; höchstens %2 sind lesbar")
            .With({std::to_string(shape.channels), std::to_string(MOST_CHANNELS)});
    return false;
}

}  // namespace tc

using tc::Bilingual;

namespace {

// The strict text of stored units, as "V * 1e-003".
bool ReadStored(const std::string& text, tc::UnitMeaning& meaning) {
    TCSI_Unit unit;
    if (!unit.FromString(text.c_str())) return false;
    meaning = {};
    meaning.power = static_cast<int>(std::lround(std::log10(unit.GetFactor())));
    meaning.unit = unit;
    meaning.unit.SetFactor(1.0);
    return true;
}

}  // namespace

bool ArraySource::Set(TCPortHelper& ports, const tc::ArrayFacts& facts, const Settings& given,
                      std::string& error) {
    double newStart = 0.0;
    tc::UnitMeaning meaning;
    CString reason;
    std::string odd;
    tc::ParseStart(given.start, newStart, error);
    const double rate = given.rate > 0.0 ? given.rate : facts.rate;
    if (!(rate > 0.0))
        tc::AddReason(
            error,
            tc::NotValid("rate", "0", Bilingual("samples per second", "Abtastwerte je Sekunde").Text(),
                         Bilingual("for an array that does not say it", "bei einem Feld, das sie nicht nennt")
                             .Text()));
    if (!given.unit.empty() && !tc::ReadUnit(given.unit, meaning, reason))
        tc::AddReason(error, tc::NotValid("unit", given.unit,
                                          Bilingual("a unit, as m/s^2", "eine Einheit, wie m/s^2").Text()));
    if (given.unit.empty() && !tc::ReadUnit(facts.unit, meaning, reason) && !ReadStored(facts.unit, meaning))
        odd = Bilingual("unit: '%1' in the file is no unit that is known; the signal has none",
                        "unit: '%1' in der Datei ist keine bekannte Einheit; das Signal hat keine")
                  .With({facts.unit});
    const auto channels = static_cast<std::int64_t>(facts.channels);
    if (given.block * channels > tc::MOST_BLOCK_VALUES)
        tc::AddReason(
            error,
            tc::NotValid("block", std::to_string(given.block),
                         Bilingual("at most %1 samples", "eine Zahl bis %1 Abtastwerte")
                             .With({std::to_string(tc::MOST_BLOCK_VALUES / channels)}),
                         Bilingual("with %1 channels", "bei %1 Kanälen").With({std::to_string(channels)})));
    if (!error.empty()) return false;
    expected = facts;
    remark = odd;
    offset = meaning.offset;
    start = newStart > 0.0 ? newStart : facts.start;
    blockSize = given.block;
    outputs.Declare(ports, std::vector<std::string>(facts.channels), "Channel");
    for (std::size_t c = 0; c < facts.channels; ++c) {
        TCTypeInfo& ti = outputs.Metadata(c);
        const std::string number = facts.channels > 1 ? " " + std::to_string(c + 1) : "";
        if (!facts.name.empty()) ti.SetSignalname((facts.name + number).c_str());
        ti.SetSamplerate(rate);
        TCSI_Unit unit = meaning.unit;
        unit.SetFactor(meaning.Factor());
        ti.SetUnit(unit);
    }
    return true;
}

bool ArraySource::Fits(const tc::ArrayFacts& facts) const {
    return facts.channels == expected.channels && facts.rate == expected.rate && facts.unit == expected.unit;
}

void ArraySource::Begin(std::unique_ptr<tc::ArrayReader> opened) {
    reader = std::move(opened);
    runTime.Take();
    position = 0;
    isOver = false;
    values.resize(static_cast<std::size_t>(blockSize) * outputs.Count());
}

int ArraySource::Step(TCPortHelper& ports, bool isInterrupted, std::string& error) {
    const std::int64_t total = reader->Facts().samples;
    std::int64_t count = std::min(blockSize, total - position);
    if (!reader->Read(position, count, values.data(), blockSize, error)) count = 0;
    isOver = isInterrupted || position + count >= total || !error.empty();
    const double begin = start > 0.0 ? start : runTime.Get();
    int code = 0;
    for (std::size_t c = 0; c < outputs.Count() && code >= 0 && (count > 0 || position > 0); ++c) {
        double* const samples = values.data() + static_cast<std::int64_t>(c) * blockSize;
        for (std::int64_t i = 0; offset != 0.0 && i < count; ++i) samples[i] += offset;
        TCTypeInfo& ti = outputs.Metadata(c);
        ti.SetTimestamp(begin + 1000.0 * static_cast<double>(position) / ti.GetSamplerate());
        ti.SetState(tc::BlockState(position == 0, isOver));
        code = outputs.Write(ports, c, samples, static_cast<std::size_t>(count));
    }
    const int ofBus = outputs.EndBlock(ports);
    position += count;
    if (!error.empty()) return tc::MODULE_FAILED;
    return code < 0 ? code : ofBus;
}

void ArraySource::End() {
    reader = nullptr;
    runTime.Release();
}

double ArraySource::Progress() const {
    return reader != nullptr ? static_cast<double>(position) / static_cast<double>(reader->Facts().samples)
                             : -1.0;
}
