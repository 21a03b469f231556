#include "sigweave/ui/TCPropertyDialogInfo.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "sigweave/services/Bilingual.h"
#include "sigweave/services/ValueWording.h"
#include "sigweave/ui/PropertyText.h"
#include "sigweave/ui/TC_ListEditCtrl.h"

namespace {

using tc::Bilingual;
using Info = TCPropertyDialogInfo;

// Of the kinds whose values are described by one sentence.
struct KindWording {
    Info::KIND kind;
    Bilingual text;
};
constexpr KindWording WORDINGS[] = {
    {Info::BOOL, tc::YES_OR_NO},
    {Info::DATE_TIME,
     {"a date and time as 2026-03-01 12:00:00.250", "Datum und Uhrzeit wie 2026-03-01 12:00:00.250"}},
    {Info::FILE, tc::A_FILE_NAME},
    {Info::OUTPUT_FILE, tc::A_FILE_NAME},
    {Info::FOLDER, {"the name of a folder", "der Name eines Ordners"}},
    {Info::FONT, {"a font as Tahoma 10 bold italic", "eine Schrift wie Tahoma 10 bold italic"}},
    {Info::COLOUR, {"a colour as #ff8000", "eine Farbe wie #ff8000"}},
    {Info::LIST, {"rows of cells", "Zeilen aus Zellen"}},
};

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
    return tc::WRITE_A_POINT.With({text});
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
    if (kind == INT) return tc::DescribeNumbers(tc::NumberKind::INTEGER, minimum, maximum, unit);
    if (kind == DOUBLE || kind == SLIDER)
        return tc::DescribeNumbers(tc::NumberKind::REAL, minimum, maximum, unit);
    if (kind == COMBO || kind == RADIO) return tc::DescribeWords(choices);
    const auto found = std::ranges::find(WORDINGS, kind, &KindWording::kind);
    if (found != std::end(WORDINGS)) return found->text.Text();
    return required ? Bilingual("a text that is not empty", "ein Text, der nicht leer ist").Text()
                    : tc::ANY_TEXT.Text();
}

CString Info::Refuse(const CString& text) const {
    if (secret)
        return Bilingual("%1: the value is not valid; expected %2",
                         "%1: der Wert ist nicht gültig; erwartet wird %2")
            .With({key, DescribeAllowed()});
    return tc::NotValidText(key, text, DescribeAllowed()) + PointHint(*this, text);
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
