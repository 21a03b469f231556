// TCFormatTime, and the times of the modules' settings. Parts of an input: a format, a time, a reference, a
// time zone's number, and a start time.
#include <cmath>
#include <ctime>
#include <vector>

#include "fuzz/Fuzz.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/TCFormatTime.h"

namespace {

std::string Format(const std::string& format, double time, double reference) {
    TCString text;
    TCFormatTime::FormatTime(text, format.c_str(), time, reference);
    return fuzz::Bytes(text);
}

// A buffer of exactly the size, so that a sanitizer sees the first byte that is written after its end.
void FormatInto(int size, const std::string& format, double time, double reference) {
    std::vector<char> buffer(static_cast<std::size_t>(size));
    const int length = TCFormatTime::FormatTime(buffer.data(), size, format.c_str(), time, reference);
    if (size <= 0) return fuzz::Require(length == 0, "no room, no text");
    const std::string whole = Format(format, time, reference);
    fuzz::RequireSame(std::string(buffer.data()), whole.substr(0, buffer.size() - 1),
                      "a buffer gets what fits");
    fuzz::Require(length == static_cast<int>(std::string(buffer.data()).size()), "the answer is its length");
}

std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char c : text) escaped += c == '%' ? "%%" : std::string(1, c);
    return escaped;
}

void CheckCalendar(double time) {
    tm calendar{};
    double fraction = -1.0;
    if (TCFormatTime::CalcTime(&calendar, time, 0, fraction) == nullptr) return;
    fuzz::Require(fraction >= 0.0 && fraction < 1.0, "a fraction is one");
    char expected[100];
    std::strftime(expected, sizeof expected, " %m %d %H:%M:%S %w %U %V %y", &calendar);
    fuzz::RequireSame(Format(" %MM %dd %hh:%mm:%ss %DoW %WoY %isoWoY %yy", time, 0), expected,
                      "the fields are those of strftime");
}

void CheckStart(const std::string& text) {
    double start = 0.0;
    std::string error;
    if (!tc::ParseStart(text, start, error)) return fuzz::Require(!error.empty(), "a failure has a message");
    fuzz::Require(text.empty() || (start > 0.0 && std::isfinite(start)), "a start is a time after 1970");
}

void SetZone(int number) {
    constexpr const char* ZONES[] = {"UTC0", "CET-1CEST,M3.5.0,M10.5.0/3", "<-1145>11:45",
                                     "LHST-10:30LHDT-11,M10.1.0,M4.1.0"};
    setenv("TZ", ZONES[number], 1);
    tzset();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Parts parts(data, size);
    const std::string format = parts.Next();
    const double time = std::strtod(parts.Next().c_str(), nullptr);
    const double reference = std::strtod(parts.Next().c_str(), nullptr);
    SetZone(parts.NextInt(0, 3));
    CheckStart(parts.Next());
    TCFormatTime object;
    object.SetFormatString(format.c_str());
    const std::string text = Format(format, time, reference);
    TCString same;
    fuzz::RequireSame(fuzz::Bytes(object.Format(same, time, reference)), text, "an object formats the same");
    const int length = static_cast<int>(text.size());
    for (const int room : {0, 1, 5, length, length + 1, length + 9})
        FormatInto(room, format, time, reference);
    tm calendar{};
    double fraction = 0.0;
    if (TCFormatTime::CalcTime(&calendar, time, reference, fraction) != nullptr)
        fuzz::RequireSame(Format(Escaped(format), time, reference), format, "percent signs can be written");
    else
        fuzz::Require(text.empty(), "an unknown time has no text");
    fuzz::Require(object.GetTokens().empty() == (object.GetSystem() == TCFormatTime::NONE) ||
                      object.GetSystem() == TCFormatTime::NONE,
                  "a unit needs a token");
    object.CalcDiffTimeLow(time, reference);
    CheckCalendar(time);
    return 0;
}
