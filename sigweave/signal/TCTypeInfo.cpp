#include "sigweave/signal/TCTypeInfo.h"

#include <charconv>
#include <climits>
#include <cmath>
#include <ctime>

#include "sigweave/platform/Archive.h"
#include "sigweave/platform/NumberText.h"
#include "sigweave/signal/TCSI_Convert.h"

namespace {

constexpr const char* STATE_NAMES[] = {"INVALID", "START", "BUSY", "STOP", "COMPLETE"};
constexpr int FIRST_STATE = INVALID;
constexpr TCBLOCKSTATUS NO_STATE = static_cast<TCBLOCKSTATUS>(-2);
constexpr unsigned LINE_LENGTH = 350;

// As printf writes the number in the "C" locale, whatever the process's locale is.
std::string NumberText(double value, std::chars_format format, int precision) {
    char text[512];
    return std::string(text, std::to_chars(text, text + sizeof text, value, format, precision).ptr);
}

// The local calendar time, after changes of the time zone while the program runs too; empty outside the years
// 1970 to 2038.
std::string CalendarText(double milliseconds) {
    const double seconds = std::trunc(milliseconds / 1000.0);
    if (seconds == 0.0) return "-";
    if (!(seconds > 0.0 && seconds <= INT32_MAX)) return "";
    const auto time = static_cast<std::time_t>(seconds);
    char text[26];
    tzset();
    if (ctime_r(&time, text) == nullptr) return "";
    return std::string(text, 24);
}

// A name with a zero byte ends there, but its line does not.
void WriteLine(CArchive& archive, const std::string& text) {
    archive.WriteString(text.c_str());
    archive.WriteString("\n");
}

void ReadLine(CArchive& archive, char (&line)[LINE_LENGTH + 1]) {
    if (archive.ReadString(line, LINE_LENGTH) == nullptr) line[0] = '\0';
}

double ReadNumber(CArchive& archive) {
    char line[LINE_LENGTH + 1];
    char* end;
    ReadLine(archive, line);
    const double value = tc::ReadDouble(line, &end);
    if (end == line) throw CArchiveException(CArchiveException::endOfFile);
    return value;
}

}  // namespace

void TCTypeInfo::Init() {
    static const TCTypeInfo FRESH;
    *this = FRESH;
}

const char* TCTypeInfo::BlockStateToString(TCBLOCKSTATUS state) {
    const bool known = state >= INVALID && state <= COMPLETE;
    return known ? STATE_NAMES[state - FIRST_STATE] : "UNKNOWN";
}

TCBLOCKSTATUS TCTypeInfo::StringToBlockState(const char* text) {
    const TCString name(text);
    for (int state = INVALID; state <= COMPLETE; ++state)
        if (name.CompareNoCase(STATE_NAMES[state - FIRST_STATE]) == 0) return TCBLOCKSTATUS{state};
    return NO_STATE;
}

TCString TCTypeInfo::ConvertToString(int maxLength) const {
    TCString unitText;
    unit.GetString(unitText);
    const std::string text =
        "State= " + std::to_string(state) + " (" + BlockStateToString(state) + "), Name= " + GetSignalname() +
        ", TS= " + NumberText(timestamp, std::chars_format::fixed, 0) + " (" + CalendarText(timestamp) +
        "), SR= " + NumberText(samplerate, std::chars_format::fixed, 1) +
        ", Min= " + NumberText(rangeMin, std::chars_format::general, 9) +
        ", Max= " + NumberText(rangeMax, std::chars_format::general, 9) +
        ", Unit= " + (unitText.IsEmpty() ? "-" : static_cast<const char*>(unitText)) + "\r\n";
    const TCString line(text.data(), static_cast<int>(text.size()));
    return maxLength == -1 ? line : line.Left(maxLength);
}

void TCTypeInfo::Serialize(CArchive& archive) {
    if (archive.IsStoring())
        Store(archive);
    else
        Load(archive);
}

void TCTypeInfo::Store(CArchive& archive) const {
    CString unitText;
    unit.GetString(unitText);
    WriteLine(archive, NumberText(timestamp, std::chars_format::fixed, 0));
    WriteLine(archive, NumberText(samplerate, std::chars_format::fixed, 6));
    WriteLine(archive, NumberText(unit.GetFactor(), std::chars_format::scientific, 6));
    WriteLine(archive, unitText);
    WriteLine(archive, NumberText(rangeMin, std::chars_format::general, 6));
    WriteLine(archive, NumberText(rangeMax, std::chars_format::general, 6));
    WriteLine(archive, signalname);
}

void TCTypeInfo::Load(CArchive& archive) {
    timestamp = ReadNumber(archive);
    samplerate = ReadNumber(archive);
    const double factor = ReadNumber(archive);
    char unitText[LINE_LENGTH + 1];
    ReadLine(archive, unitText);
    TCSI_Convert().scan(unitText, unit);
    unit.SetFactor(factor);
    rangeMin = ReadNumber(archive);
    rangeMax = ReadNumber(archive);
    archive.ReadString(signalname);
}
