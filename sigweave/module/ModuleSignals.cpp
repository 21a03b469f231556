#include "sigweave/module/ModuleSignals.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <sstream>

#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/FileMessages.h"
#include "sigweave/services/ValueWording.h"

namespace tc {

namespace {

// Whether the factor is a number above 0, and no exponent of the symbols together has become another one.
bool IsWithinLimits(const CString& text, const TCSI_Unit& unit) {
    if (!std::isfinite(unit.GetFactor()) || unit.GetFactor() <= 0.0) return false;
    int sums[TCSI_Unit::BASE_UNIT_COUNT] = {};
    std::istringstream symbols(text.substr(0, text.find('*')));
    for (std::string symbol; symbols >> symbol;) {
        std::string exponent;
        if (symbol.ends_with('^') && symbols >> exponent) symbol += exponent;
        TCSI_Unit one;
        if (!one.FromString(symbol.c_str())) return false;
        for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i) sums[i] += one.GetExponent(i);
    }
    for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i)
        if (sums[i] != unit.GetExponent(i)) return false;
    return true;
}

// Reads digits from `text` at `at`; -1 when there are not exactly `count`.
int TakeDigits(const CString& text, std::size_t& at, std::size_t count) {
    int value = 0;
    for (std::size_t i = 0; i < count; ++i, ++at) {
        if (at >= text.size() || text[at] < '0' || text[at] > '9') return -1;
        value = value * 10 + (text[at] - '0');
    }
    return value;
}

bool TakeCharacter(const CString& text, std::size_t& at, const char* allowed) {
    const bool found = at < text.size() && CString(allowed).find(text[at]) != CString::npos;
    if (found) ++at;
    return found;
}

bool TakeDate(const CString& text, std::size_t& at, double& days) {
    const int year = TakeDigits(text, at, 4);
    if (year < 0 || !TakeCharacter(text, at, "-")) return false;
    const int month = TakeDigits(text, at, 2);
    if (month < 0 || !TakeCharacter(text, at, "-")) return false;
    const int day = TakeDigits(text, at, 2);
    const std::chrono::year_month_day date{std::chrono::year{year},
                                           std::chrono::month{static_cast<unsigned>(month)},
                                           std::chrono::day{static_cast<unsigned>(day)}};
    if (day < 0 || !date.ok()) return false;
    days = static_cast<double>(std::chrono::sys_days{date}.time_since_epoch().count());
    return true;
}

bool TakeFraction(const CString& text, std::size_t& at, double& seconds) {
    double digit = 0.1;
    const std::size_t start = at;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at, digit /= 10) {
        seconds += digit * (text[at] - '0');
    }
    return at > start;
}

bool TakeTime(const CString& text, std::size_t& at, double& seconds) {
    const int hours = TakeDigits(text, at, 2);
    if (hours < 0 || hours > 23 || !TakeCharacter(text, at, ":")) return false;
    const int minutes = TakeDigits(text, at, 2);
    if (minutes < 0 || minutes > 59) return false;
    seconds = hours * 3600.0 + minutes * 60.0;
    if (!TakeCharacter(text, at, ":")) return true;
    const int wholeSeconds = TakeDigits(text, at, 2);
    if (wholeSeconds < 0 || wholeSeconds > 59) return false;
    seconds += wholeSeconds;
    return !TakeCharacter(text, at, ".") || TakeFraction(text, at, seconds);
}

}  // namespace

void AddReason(CString& error, const CString& reason) {
    error += (error.empty() ? "" : "\n") + reason;
}

CString NotValid(const char* name, const CString& value, const CString& expected,
                 const CString& circumstances) {
    return NotValidText(name, value, expected, circumstances);
}

bool ParseStart(const CString& text, double& milliseconds, CString& error) {
    milliseconds = 0.0;
    if (text.empty()) return true;
    std::size_t at = 0;
    double days = 0.0;
    double seconds = 0.0;
    bool valid = TakeDate(text, at, days);
    if (valid && TakeCharacter(text, at, "T ")) valid = TakeTime(text, at, seconds);
    TakeCharacter(text, at, "Z");
    milliseconds = std::round((days * 86400.0 + seconds) * 1e6) / 1e3;
    if (valid && at == text.size() && milliseconds > 0.0) return true;
    AddReason(error, NotValid("start", text,
                              Bilingual("a UTC date, or date and time, after 1970-01-01, as "
                                        "2026-03-01T12:00:00Z, or nothing for the time of the run",
                                        "ein Datum, auch mit Zeit, in UTC nach 1970-01-01, wie "
                                        "2026-03-01T12:00:00Z, oder nichts für die Zeit des Laufs")
                                  .Text()));
    return false;
}

bool ParseUnit(const CString& text, TCSI_Unit& unit, CString& error, const char* name) {
    unit.clear();
    if (text.empty() || (unit.FromString(text.c_str()) && IsWithinLimits(text, unit))) return true;
    AddReason(error,
              NotValid(name, text,
                       Bilingual("a unit of SI symbols with exponents and a decimal factor, as V, m s^-2 "
                                 "or V * 1e-003",
                                 "eine Einheit aus SI-Zeichen mit Exponenten und einem dezimalen Faktor, "
                                 "wie V, m s^-2 oder V * 1e-003")
                           .Text()));
    return false;
}

TCBLOCKSTATUS BlockState(bool first, bool last) {
    if (first) return last ? COMPLETE : START;
    return last ? STOP : BUSY;
}

bool BeginsSignal(TCBLOCKSTATUS state) {
    return state == START || state == COMPLETE || state == INVALID;
}

bool EndsSignal(TCBLOCKSTATUS state) {
    return state == STOP || state == COMPLETE || state == INVALID;
}

void DeclareOutputs(TCPortHelper& ports, const char* domain) {
    for (unsigned i = 0; i < static_cast<unsigned>(ports.GetPortCnt(INPUT)); ++i)
        ports.SetPort(OUTPUT, i, ports.GetPortName(INPUT, i), "DOUBLE[]", domain, true);
}

int WriteSamples(TCPortHelper& ports, unsigned output, const TCTypeInfo& ti, const double* values,
                 std::size_t count) {
    if (count > 0) {
        ports.SetTypeInfo(output, ti);
        return ports.WriteDblData(output, count, values);
    }
    TCIOStream::Block empty;
    return empty.SetTI(&ti) ? ports.WriteCopy(output, &empty) : TCPortHelper::NOT_CREATED;
}

CString SignalName(const TCPortHelper& ports, unsigned input, const TCTypeInfo& ti) {
    const CString& name = ti.GetSignalnameString();
    return name.empty() ? CString(ports.GetPortName(INPUT, input)) : name;
}

void CheckDoubleInputs(const TCPortHelper& ports, TCStartCheck& check) {
    constexpr TCPortHelper::TYPE DOUBLES =
        TCPortHelper::TYPE_DOUBLE | TCPortHelper::TYPE_DOUBLE1 | TCPortHelper::TYPE_DOUBLEARRAY;
    for (int i = 0; i < ports.GetPortCnt(INPUT); ++i) {
        const auto input = static_cast<unsigned>(i);
        int count = 0;
        const char* type = ports.GetPortType(INPUT, input, &count);
        if (type == nullptr || ports.DoesDataTypeMatch(INPUT, input, DOUBLES)) continue;
        static constexpr Bilingual OTHER("%1: takes double values (DOUBLE[]), but is wired to %2",
                                         "%1: nimmt Double-Werte (DOUBLE[]), ist aber verbunden mit %2");
        static constexpr Bilingual BUS(
            "%1: takes double values (DOUBLE[]), but is wired to a bus (%2); a module BusSelect between them "
            "takes "
            "signals out of a bus",
            "%1: nimmt Double-Werte (DOUBLE[]), ist aber verbunden mit einem Bus (%2); ein Modul BusSelect "
            "dazwischen holt Signale aus einem Bus");
        const bool isBus = std::string(type).find("STRUCT_BUS") != std::string::npos;
        check.Refuse((isBus ? BUS : OTHER).With({std::string(ports.GetPortName(INPUT, input)), type}));
    }
}

void CheckRates(const TCPortHelper& ports, TCStartCheck& check) {
    for (unsigned input = 0; input < check.inputs.size(); ++input) {
        const std::optional<double>& rate = check.inputs[input].samplerate;
        TCTypeInfo ti;
        CString error;
        ti.SetSamplerate(rate.value_or(1.0));
        if (!CheckRate(ports, input, ti, error))
            check.Refuse(std::string(ports.GetPortName(INPUT, input)) + ": " + error);
    }
}

CString SignalName(const TCPortHelper& ports, unsigned input, const TCStartCheck& check) {
    TCTypeInfo ti;
    if (input < check.inputs.size()) ti.SetSignalname(check.inputs[input].name.value_or(TCString()));
    return SignalName(ports, input, ti);
}

CString WhyNotWritable(const CString& path, FileWriting how) {
    const int error = TCFileWriteError(path.c_str(), how);
    return error == 0 ? "" : WhyNotWritten(path, error);
}

CString ThereAlready(const CString& path) {
    return Bilingual("%1 is there already; it is replaced only with overwrite=yes",
                     "%1 gibt es schon; ersetzt wird die Datei nur mit overwrite=yes")
        .With({path});
}

CString InputName(const TCPortHelper& ports, unsigned input) {
    return Bilingual("the input \"%1\"", "der Eingang \"%1\"")
        .With({CString(ports.GetPortName(INPUT, input))});
}

bool CheckRate(const TCPortHelper& ports, unsigned input, const TCTypeInfo& ti, CString& error) {
    const double rate = ti.GetSamplerate();
    if (std::isfinite(rate) && rate > 0.0) return true;
    error = Bilingual("%1 has the samplerate %2; allowed are numbers above 0",
                      "%1 hat die Abtastrate %2; erlaubt sind Zahlen über 0")
                .With({InputName(ports, input), ShortestText(rate)});
    return false;
}

bool CheckGoesOn(const TCPortHelper& ports, unsigned input, const TCTypeInfo& before, const TCTypeInfo& now,
                 CString& error) {
    const bool sameRate = before.GetSamplerate() == now.GetSamplerate();
    if (sameRate && before.GetUnit() == now.GetUnit()) return true;
    const auto text = [sameRate](const TCTypeInfo& ti) {
        TCString unit;
        ti.GetUnit().ToString(unit);
        return sameRate ? CString("\"").append(unit).append("\"") : ShortestText(ti.GetSamplerate());
    };
    static constexpr Bilingual UNIT("%1 changes its unit within a signal, from %2 to %3",
                                    "%1 wechselt innerhalb eines Signals die Einheit, von %2 zu %3");
    static constexpr Bilingual RATE("%1 changes its samplerate within a signal, from %2 to %3",
                                    "%1 wechselt innerhalb eines Signals die Abtastrate, von %2 zu %3");
    error = (sameRate ? UNIT : RATE).With({InputName(ports, input), text(before), text(now)});
    return false;
}

}  // namespace tc
