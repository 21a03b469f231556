#include "sigweave/ui/TCPropertyDialogInfo.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/ui/PropertyText.h"
#include "sigweave/ui/TC_ListEditCtrl.h"

namespace {

using tc::Bilingual;
using Info = TCPropertyDialogInfo;

constexpr double LOWEST = std::numeric_limits<double>::lowest();
constexpr double HIGHEST = std::numeric_limits<double>::max();

// What a number may be: without limits, with a lower one, an upper one, or both.
struct NumberWording {
    Bilingual any;
    Bilingual from;
    Bilingual to;
    Bilingual between;
};
constexpr NumberWording INTEGER_WORDING = {{"an integer", "eine ganze Zahl"},
                                           {"an integer of at least %1", "eine ganze Zahl ab %1"},
                                           {"an integer of at most %2", "eine ganze Zahl bis %2"},
                                           {"an integer from %1 to %2", "eine ganze Zahl von %1 bis %2"}};
constexpr NumberWording NUMBER_WORDING = {{"a number", "eine Zahl"},
                                          {"a number of at least %1", "eine Zahl ab %1"},
                                          {"a number of at most %2", "eine Zahl bis %2"},
                                          {"a number from %1 to %2", "eine Zahl von %1 bis %2"}};

// Of the kinds whose values are described by one sentence.
struct KindWording {
    Info::KIND kind;
    Bilingual text;
};
constexpr KindWording WORDINGS[] = {
    {Info::BOOL, {"yes or no", "yes oder no"}},
    {Info::DATE_TIME,
     {"a date and time as 2026-03-01 12:00:00.250", "Datum und Uhrzeit wie 2026-03-01 12:00:00.250"}},
    {Info::FILE, {"a file name", "ein Dateiname"}},
    {Info::OUTPUT_FILE, {"a file name", "ein Dateiname"}},
    {Info::FOLDER, {"the name of a folder", "der Name eines Ordners"}},
    {Info::FONT, {"a font as Tahoma 10 bold italic", "eine Schrift wie Tahoma 10 bold italic"}},
    {Info::COLOUR, {"a colour as #ff8000", "eine Farbe wie #ff8000"}},
    {Info::LIST, {"rows of cells", "Zeilen aus Zellen"}},
};

CString DescribeNumber(const Info& info, const NumberWording& wording, double lowest, double highest) {
    const double minimum = std::max(info.minimum, lowest);
    const double maximum = std::min(info.maximum, highest);
    const bool from = minimum > LOWEST;
    const bool to = maximum < HIGHEST;
    const Bilingual& limits = from ? (to ? wording.between : wording.from) : (to ? wording.to : wording.any);
    CString text = limits.With({tc::ShortestText(minimum), tc::ShortestText(maximum)});
    if (!info.unit.empty()) text += " (in " + info.unit + ")";
    return text;
}

bool IsNumberAllowed(const Info& info, double value) {
    return value >= info.minimum && value <= info.maximum;
}

bool IsBlank(const CString& text) {
    return text.find_first_not_of(" \t\r\n") == text.npos;
}

bool IsAllowed(const Info& info, const CString& text) {
    int integer = 0;
    double number = 0.0;
    unsigned long colour = 0;
    TCLogFont font;
    switch (info.kind) {
        case Info::INT:
            return tc::ReadPropertyInt(text, integer) && IsNumberAllowed(info, integer);
        case Info::DOUBLE:
        case Info::SLIDER:
            return tc::ReadPropertyDouble(text, number) && IsNumberAllowed(info, number);
        case Info::BOOL:
            return text == "yes" || text == "no";
        case Info::COMBO:
        case Info::RADIO:
            return std::ranges::find(info.choices, text) != info.choices.end();
        case Info::DATE_TIME:
            return tc::ReadPropertyTime(text, number);
        case Info::FONT:
            return tc::ReadPropertyFont(text, font);
        case Info::COLOUR:
            return tc::ReadPropertyColour(text, colour);
        default:
            return !info.required || !IsBlank(text);
    }
}

// What helps where a number was written as in German texts.
CString PointHint(const Info& info, CString text) {
    const std::size_t comma = text.find(',');
    const bool isNumber = info.kind == Info::DOUBLE || info.kind == Info::SLIDER;
    if (!isNumber || comma == text.npos) return "";
    text[comma] = '.';
    if (!IsAllowed(info, text)) return "";
    return Bilingual("; write a point: %1", "; schreiben Sie einen Punkt: %1").With({text});
}

CString DescribeChoices(const CStringArray& choices) {
    CString words;
    for (const CString& choice : choices) words += (words.empty() ? "" : ", ") + choice;
    return Bilingual("one of %1", "eins von %1").With({words});
}

}  // namespace

Info& Info::Help(const TCTranslatedString& text) {
    help = text;
    return *this;
}

Info& Info::Unit(const char* text) {
    unit = text;
    return *this;
}

Info& Info::Limits(double lowest, double highest) {
    minimum = lowest;
    maximum = highest;
    return *this;
}

Info& Info::Suggest(const CStringArray& texts) {
    suggestions = texts;
    return *this;
}

Info& Info::Filter(const char* pattern) {
    fileFilter = pattern;
    return *this;
}

Info& Info::Language(const char* name) {
    language = name;
    return *this;
}

Info& Info::Required() {
    required = true;
    return *this;
}

Info& Info::NamesPorts(PORTS portKind) {
    ports = portKind;
    return *this;
}

Info& Info::EnabledWhen(const char* other, const CStringArray& values) {
    enabledWhen = {other, values};
    return *this;
}

Info& Info::ShownWhen(const char* other, const CStringArray& values) {
    shownWhen = {other, values};
    return *this;
}

Info& Info::Rebuilds() {
    rebuilds = true;
    return *this;
}

Info& Info::Secret() {
    secret = true;
    return *this;
}

Info& Info::AsList(const CArray<TCPropertyColumn>& listColumns) {
    kind = LIST;
    columns = listColumns;
    checksAlone = false;
    allowed = nullptr;
    return *this;
}

Info& Info::Check(std::function<CString(const CString&)> furtherCheck) {
    check = std::move(furtherCheck);
    return *this;
}

CString Info::DescribeAllowed() const {
    if (allowed) return allowed();
    if (kind == INT)
        return DescribeNumber(*this, INTEGER_WORDING, std::numeric_limits<int>::min(),
                              std::numeric_limits<int>::max());
    if (kind == DOUBLE || kind == SLIDER) return DescribeNumber(*this, NUMBER_WORDING, LOWEST, HIGHEST);
    if (kind == COMBO || kind == RADIO) return DescribeChoices(choices);
    const auto found = std::ranges::find(WORDINGS, kind, &KindWording::kind);
    if (found != std::end(WORDINGS)) return found->text.Text();
    return required ? Bilingual("a text that is not empty", "ein Text, der nicht leer ist").Text()
                    : Bilingual("any text", "ein beliebiger Text").Text();
}

CString Info::Refuse(const CString& text) const {
    if (secret)
        return Bilingual("%1: the value is not valid; expected %2",
                         "%1: der Wert ist nicht gültig; erwartet wird %2")
            .With({key, DescribeAllowed()});
    return Bilingual("%1: '%2' is not valid; expected %3", "%1: '%2' ist nicht gültig; erwartet wird %3")
               .With({key, text, DescribeAllowed()}) +
           PointHint(*this, text);
}

CString Info::WhyNotAllowed(const CString& text) const {
    if (text.find('\0') != text.npos)
        return Bilingual("%1: a value cannot hold a zero byte; remove it",
                         "%1: ein Wert kann kein Nullbyte enthalten; entfernen Sie es")
            .With({key});
    if (!checksAlone && kind == LIST) {
        TC_ListEditCtrl list(*this);
        CString refusal;
        if (!list.SetText(text, refusal)) return refusal;
    } else if (!checksAlone && !IsAllowed(*this, text)) {
        return Refuse(text);
    }
    return check ? check(text) : CString();
}
