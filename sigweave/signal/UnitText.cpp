#include "sigweave/signal/UnitText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <iterator>

#include "sigweave/foundation/TCString.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/signal/SiSymbols.h"

namespace tc {
namespace {

using Exponents = std::array<std::int8_t, TCSI_Unit::BASE_UNIT_COUNT>;

enum Prefixes : bool { ALONE = false, PREFIXED = true };

struct Symbol {
    std::string_view text;
    Exponents exponents;  // m, kg, s, A, K, mol, cd
    int power = 0;
    double scale = 1.0;
    Prefixes prefixes = ALONE;
    double offset = 0.0;
};

// Of a symbol of stored units.
consteval Exponents Si(std::string_view symbol) {
    for (const SiSymbol& row : SI_SYMBOLS)
        if (row.text == symbol) return std::to_array(row.exponents);
    throw "there is no such symbol";
}

constexpr double STANDARD_GRAVITY = 9.80665;
constexpr double RADIANS_PER_DEGREE = 0.017453292519943295;

// Factors are exact definitions but for the degree, the gon, the radian and psi.
constexpr Symbol SYMBOLS[] = {
    {"m", Si("m"), 0, 1, PREFIXED},
    {"kg", Si("kg")},
    {"s", Si("s"), 0, 1, PREFIXED},
    {"A", Si("A"), 0, 1, PREFIXED},
    {"K", Si("K"), 0, 1, PREFIXED},
    {"mol", Si("mol"), 0, 1, PREFIXED},
    {"cd", Si("cd"), 0, 1, PREFIXED},
    {"Hz", Si("Hz"), 0, 1, PREFIXED},
    {"Bq", Si("Bq"), 0, 1, PREFIXED},
    {"N", Si("N"), 0, 1, PREFIXED},
    {"Pa", Si("P"), 0, 1, PREFIXED},
    {"P", Si("P")},  // the pascal of stored units
    {"J", Si("J"), 0, 1, PREFIXED},
    {"W", Si("W"), 0, 1, PREFIXED},
    {"VA", Si("W"), 0, 1, PREFIXED},
    {"var", Si("W"), 0, 1, PREFIXED},
    {"C", Si("C"), 0, 1, PREFIXED},
    {"V", Si("V"), 0, 1, PREFIXED},
    {"Ohm", Si("Ohm"), 0, 1, PREFIXED},
    {"ohm", Si("Ohm"), 0, 1, PREFIXED},
    {"\u03A9", Si("Ohm"), 0, 1, PREFIXED},
    {"\u2126", Si("Ohm"), 0, 1, PREFIXED},
    {"S", Si("S"), 0, 1, PREFIXED},
    {"F", Si("F"), 0, 1, PREFIXED},
    {"Wb", Si("Wb"), 0, 1, PREFIXED},
    {"H", Si("H"), 0, 1, PREFIXED},
    {"T", Si("T"), 0, 1, PREFIXED},
    {"Gs", Si("T"), -4},
    {"lm", Si("lm")},
    {"lx", Si("lx")},
    {"Gy", {2, 0, -2}, 0, 1, PREFIXED},
    {"Sv", {2, 0, -2}, 0, 1, PREFIXED},
    {"kat", {0, 0, -1, 0, 0, 1}, 0, 1, PREFIXED},
    {"l", {3}, -3, 1, PREFIXED},
    {"L", {3}, -3, 1, PREFIXED},
    {"ccm", {3}, -6},
    {"in", Si("m"), 0, 0.0254},
    {"mil", Si("m"), 0, 2.54e-05},
    {"ft", Si("m"), 0, 0.3048},
    {"ips", {1, 0, -1}, 0, 0.0254},
    {"t", Si("kg"), 3},
    {"lb", Si("kg"), 0, 0.45359237},
    {"oz", Si("kg"), 0, 0.028349523125},
    {"g_n", {1, 0, -2}, 0, STANDARD_GRAVITY, PREFIXED},
    {"gn", {1, 0, -2}, 0, STANDARD_GRAVITY},
    {"Gal", {1, 0, -2}, -2},
    {"kn", {1, 0, -1}, 0, 0.5144444444444445},
    {"sec", Si("s")},
    {"min", Si("s"), 0, 60},
    {"h", Si("s"), 0, 3600},
    {"hr", Si("s"), 0, 3600},
    {"d", Si("s"), 0, 86400},
    {"rpm", Si("Hz"), 0, 1.0 / 60},
    {"bpm", Si("Hz"), 0, 1.0 / 60},
    {"kgf", Si("N"), 0, STANDARD_GRAVITY},
    {"kp", Si("N"), 0, STANDARD_GRAVITY},
    {"lbf", Si("N"), 0, 4.4482216152605},
    {"Nm", Si("J")},
    {"kNm", Si("J"), 3},
    {"bar", Si("P"), 5, 1, PREFIXED},
    {"psi", Si("P"), 0, 6894.757293168361},
    {"mmHg", Si("P"), 0, 133.322387415},
    {"cmH2O", Si("P"), 0, 98.0665},
    {"atm", Si("P"), 0, 101325},
    {"Torr", Si("P"), 0, 101325.0 / 760},
    {"Wh", Si("J"), 0, 3600, PREFIXED},
    {"Ah", Si("C"), 0, 3600, PREFIXED},
    {"eV", Si("J"), 0, 1.602176634e-19, PREFIXED},
    {"cal", Si("J"), 0, 4.184, PREFIXED},
    {"PS", Si("W"), 0, 735.49875},
    {"hp", Si("W"), 0, 745.6998715822702},
    {"rad", {}, 0, 1, PREFIXED},
    {"sr", {}},
    {"\u00B0", {}, 0, RADIANS_PER_DEGREE},
    {"deg", {}, 0, RADIANS_PER_DEGREE},
    {"gon", {}, 0, RADIANS_PER_DEGREE * 0.9},
    {"rev", {}, 0, 6.283185307179586},
    {"%", {}, -2},
    {"\u2030", {}, -3},
    {"ppm", {}, -6},
    {"ppb", {}, -9},
    {"strain", {}, 0, 1, PREFIXED},
    {"\u03B5", {}, 0, 1, PREFIXED},
    {"\u00B0C", Si("K"), 0, 1, ALONE, 273.15},
    {"\u2103", Si("K"), 0, 1, ALONE, 273.15},
    {"degC", Si("K"), 0, 1, ALONE, 273.15},
    {"Cel", Si("K"), 0, 1, ALONE, 273.15},
    {"\u00B0F", Si("K"), 0, 5.0 / 9, ALONE, 459.67 * 5 / 9},
    {"degF", Si("K"), 0, 5.0 / 9, ALONE, 459.67 * 5 / 9},
};

struct Prefix {
    std::string_view text;
    int power;
};
constexpr Prefix PREFIXES[] = {{"f", -15}, {"p", -12}, {"n", -9}, {"\u00B5", -6}, {"\u03BC", -6},
                               {"u", -6},  {"m", -3},  {"c", -2}, {"d", -1},      {"da", 1},
                               {"h", 2},   {"k", 3},   {"M", 6},  {"G", 9},       {"T", 12}};
// Those that may follow a number without a symbol.
constexpr std::string_view BARE_PREFIXES[] = {"p", "n", "\u00B5", "\u03BC", "u", "k", "M", "G"};

struct Refusal {
    std::string_view text;
    Bilingual why;
};
constexpr Bilingual GRAM(
    "'%1' is a gram or the acceleration of gravity; write 'g_n' for 9.80665 m/s², or a mass in kg",
    "'%1' ist ein Gramm oder die Fallbeschleunigung; schreiben Sie 'g_n' für 9,80665 m/s² oder "
    "eine Masse in kg");
constexpr Bilingual GAUSS("'%1' is the acceleration of gravity or gauss; write 'g_n' or 'Gs'",
                          "'%1' ist die Fallbeschleunigung oder Gauß; schreiben Sie 'g_n' oder 'Gs'");
constexpr Bilingual LEVEL("'%1' is a level, not a unit; give the value in its unit",
                          "'%1' ist ein Pegel, keine Einheit; geben Sie den Wert in seiner Einheit an");
constexpr Refusal REFUSALS[] = {
    {"g", GRAM},    {"mg", GRAM},    {"\u00B5g", GRAM},    {"\u03BCg", GRAM}, {"ug", GRAM},   {"G", GAUSS},
    {"dB", LEVEL},  {"dBA", LEVEL},  {"dBV", LEVEL},       {"dBmV", LEVEL},   {"dBu", LEVEL}, {"dBm", LEVEL},
    {"dBW", LEVEL}, {"dBFS", LEVEL}, {"dB\u00B5V", LEVEL}, {"Np", LEVEL},     {"pH", LEVEL},
};

// Texts whose gram is one, whatever "g" alone may be.
constexpr Symbol WHOLE_TEXTS[] = {
    {"g/cm^3", {-3, 1}, 3}, {"g/l", {-3, 1}, 0}, {"g/mol", {0, 1, 0, 0, 0, -1}, -3}};

// Units that differ from the text in case alone, as people name alternatives; empty: there are none.
CString InOtherCase(std::string_view text) {
    const TCString wanted(text.data(), static_cast<int>(text.size()));
    CString found;
    const auto look = [&](const std::string& unit) {
        if (wanted.CompareNoCase(unit.c_str()) == 0) found += (found.empty() ? "'" : ", '") + unit + "'";
    };
    for (const Symbol& symbol : SYMBOLS) {
        look(std::string(symbol.text));
        if (!symbol.prefixes) continue;
        for (const Prefix& prefix : PREFIXES) look(std::string(prefix.text) + std::string(symbol.text));
    }
    return found;
}

template <class Table>
auto* Find(const Table& table, std::string_view text) {
    const auto found = std::ranges::find(table, text, [](const auto& row) { return row.text; });
    return found != std::end(table) ? &*found : nullptr;
}

struct Superscript {
    std::string_view text;
    char digit;
};
constexpr Superscript SUPERSCRIPTS[] = {{"\u2070", '0'}, {"\u00B9", '1'}, {"\u00B2", '2'}, {"\u00B3", '3'},
                                        {"\u2074", '4'}, {"\u2075", '5'}, {"\u2076", '6'}, {"\u2077", '7'},
                                        {"\u2078", '8'}, {"\u2079", '9'}, {"\u207B", '-'}};

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Reads a unit from left to right. Fails by leaving `error`.
class Parser {
 public:
    Parser(std::string_view unitText, CString& errorText)
        : rest(unitText), whole(unitText), error(errorText) {}

    bool Read(UnitMeaning& meaning) {
        UnitMeaning read;
        if (!ReadProduct(read, 0)) return false;
        if (!rest.empty()) return FailUnknown(rest);
        meaning = read;
        return true;
    }

 private:
    static constexpr int MOST_BRACKETS = 20;
    static constexpr int MOST_POWER = 10;

    bool ReadProduct(UnitMeaning& product, int depth) {
        bool divide = false;
        for (bool first = true;; first = false) {
            SkipBlanks();
            if (!first && (rest.empty() || rest.front() == ')')) return true;
            if (!first) divide = ReadOperator();
            UnitMeaning part;
            if (!ReadPower(part, depth)) return false;
            if (!Multiply(product, part, divide ? -1 : 1, first && AtEnd())) return false;
        }
    }

    bool AtEnd() {
        SkipBlanks();
        return rest.empty() || rest.front() == ')';
    }

    // True for a division. Without an operator it is a product.
    bool ReadOperator() {
        for (const std::string_view sign : {"*", "\u00B7", "\u22C5", "/"}) {
            if (!rest.starts_with(sign)) continue;
            rest.remove_prefix(sign.size());
            SkipBlanks();
            return sign == "/";
        }
        return false;
    }

    bool ReadPower(UnitMeaning& part, int depth) {
        UnitMeaning base;
        if (!ReadBase(base, depth)) return false;
        int power = 1;
        if (!ReadExponent(power)) return false;
        return power == 1 ? (part = base, true) : Multiply(part, base, power, false);
    }

    bool ReadBase(UnitMeaning& base, int depth) {
        if (rest.starts_with('(') && depth < MOST_BRACKETS) {
            rest.remove_prefix(1);
            if (!ReadProduct(base, depth + 1) || !rest.starts_with(')'))
                return error.empty() ? FailUnknown(whole) : false;
            rest.remove_prefix(1);
            return true;
        }
        if (rest.starts_with('1')) {
            rest.remove_prefix(1);
            return true;
        }
        return ReadSymbol(base);
    }

    bool ReadSymbol(UnitMeaning& meaning) {
        const std::string_view text = rest.substr(0, SymbolLength());
        if (const Refusal* refusal = Find(REFUSALS, text)) {
            error = refusal->why.With({text});
            return false;
        }
        if (text.starts_with("\u221A")) {
            error =
                Bilingual(
                    "roots of units cannot be held; write the square, as V²/Hz",
                    "Wurzeln von Einheiten lassen sich nicht halten; schreiben Sie das Quadrat, wie V²/Hz")
                    .Text();
            return false;
        }
        const Symbol* symbol = Find(SYMBOLS, text);
        int power = 0;
        for (const Prefix* prefix = PREFIXES; symbol == nullptr && prefix != std::end(PREFIXES); ++prefix) {
            if (!text.starts_with(prefix->text)) continue;
            symbol = Find(SYMBOLS, text.substr(prefix->text.size()));
            if (symbol != nullptr && !symbol->prefixes) symbol = nullptr;
            power = prefix->power;
        }
        if (symbol == nullptr) return FailUnknown(text);
        rest.remove_prefix(text.size());
        meaning.power = symbol->power + (Find(SYMBOLS, text) == symbol ? 0 : power);
        meaning.scale = symbol->scale;
        meaning.offset = symbol->offset;
        for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i)
            meaning.unit.SetExponent(i, symbol->exponents[static_cast<std::size_t>(i)]);
        return true;
    }

    std::size_t SymbolLength() const {
        if (rest.starts_with("cmH2O")) return 5;
        std::size_t length = 0;
        while (length < rest.size()) {
            const char c = rest[length];
            if (IsDigit(c) || std::string_view(" \t*/^()+-").find(c) != std::string_view::npos) break;
            if (rest.substr(length).starts_with("\u00B7") || rest.substr(length).starts_with("\u22C5")) break;
            if (StartsWithSuperscript(rest.substr(length)) != nullptr) break;
            ++length;
        }
        return length;
    }

    static const Superscript* StartsWithSuperscript(std::string_view text) {
        const auto found = std::ranges::find_if(
            SUPERSCRIPTS, [&](const Superscript& row) { return text.starts_with(row.text); });
        return found != std::end(SUPERSCRIPTS) ? &*found : nullptr;
    }

    // "^-2", "²" or "2"; nothing is 1.
    bool ReadExponent(int& power) {
        std::string digits;
        if (rest.starts_with('^')) {
            rest.remove_prefix(1);
            TakeWhile(digits, [](char c) { return IsDigit(c) || c == '-' || c == '+' || c == '.'; });
            if (digits.empty()) return FailExponent(rest);
        } else if (StartsWithSuperscript(rest) != nullptr) {
            while (const Superscript* sign = StartsWithSuperscript(rest)) {
                digits += sign->digit;
                rest.remove_prefix(sign->text.size());
            }
        } else {
            TakeWhile(digits, IsDigit);
        }
        if (digits.empty()) return true;
        const char* const end = digits.data() + digits.size();
        const auto [stop, failed] = std::from_chars(digits.data(), end, power);
        const bool isExponent =
            failed == std::errc() && stop == end && power != 0 && std::abs(power) <= MOST_POWER;
        return isExponent || FailExponent(digits);
    }

    template <class Predicate>
    void TakeWhile(std::string& taken, Predicate belongs) {
        for (; !rest.empty() && belongs(rest.front()); rest.remove_prefix(1)) taken += rest.front();
    }

    // An offset has a meaning for a temperature alone.
    bool Multiply(UnitMeaning& product, const UnitMeaning& part, int times, bool alone) {
        for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i) {
            const int exponent = product.unit.GetExponent(i) + times * part.unit.GetExponent(i);
            if (exponent < INT8_MIN || exponent > INT8_MAX) return FailExponent(whole);
            product.unit.SetExponent(i, exponent);
        }
        product.power += times * part.power;
        if (part.scale != 1.0) product.scale *= std::pow(part.scale, times);
        if (alone) product.offset = part.offset;
        return true;
    }

    void SkipBlanks() {
        while (!rest.empty() && (rest.front() == ' ' || rest.front() == '\t')) rest.remove_prefix(1);
    }

    bool FailExponent(std::string_view text) {
        error =
            Bilingual(
                "'%1' is no exponent of a unit; expected a whole number from -10 to 10 other than 0",
                "'%1' ist kein Exponent einer Einheit; erwartet wird eine ganze Zahl von -10 bis 10 außer 0")
                .With({text});
        return false;
    }

    bool FailUnknown(std::string_view text) {
        const CString near = InOtherCase(text);
        error = near.empty() ? Bilingual("'%1' is no unit", "'%1' ist keine Einheit").With({text})
                             : Bilingual("'%1' is no unit; did you mean %2?",
                                         "'%1' ist keine Einheit; meinten Sie %2?")
                                   .With({text, near});
        return false;
    }

    std::string_view rest;
    std::string_view whole;
    CString& error;
};

std::string_view Trim(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == text.npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") + 1 - first);
}

// Digits with a point and perhaps an exponent: how long the number at the front of the text is; 0 for none.
std::size_t NumberLength(std::string_view text, std::size_t& mantissa) {
    double ignored = 0.0;
    std::string_view digits = text;
    if (digits.starts_with('+') && !digits.starts_with("+-")) digits.remove_prefix(1);
    const auto [stop, failed] = std::from_chars(digits.data(), digits.data() + digits.size(), ignored);
    const auto end = static_cast<std::size_t>(stop - text.data());
    if (failed == std::errc::invalid_argument || std::isinf(ignored) || std::isnan(ignored)) return 0;
    mantissa = text.substr(0, end).find_first_of("eE");
    return end;
}

// The number times 10^power, rounded once.
bool Scale(std::string_view number, std::size_t mantissa, int power, double& value) {
    if (number.starts_with('+')) {
        number.remove_prefix(1);
        mantissa -= mantissa != number.npos ? 1 : 0;
    }
    int exponent = 0;
    std::string digits(number.substr(0, mantissa));
    if (mantissa != number.npos) {
        std::string_view text = number.substr(mantissa + 1);
        if (text.starts_with('+')) text.remove_prefix(1);
        if (std::from_chars(text.data(), text.data() + text.size(), exponent).ec != std::errc()) return false;
    }
    exponent = std::clamp(exponent, -1'000'000, 1'000'000) + power;
    digits += "e" + std::to_string(exponent);
    return std::from_chars(digits.data(), digits.data() + digits.size(), value).ec == std::errc();
}

bool HasSameExponents(const TCSI_Unit& a, const TCSI_Unit& b) {
    for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i)
        if (a.GetExponent(i) != b.GetExponent(i)) return false;
    return true;
}

bool IsBarePrefix(std::string_view text) {
    return std::ranges::find(BARE_PREFIXES, text) != std::end(BARE_PREFIXES);
}

std::string Shown(std::string_view unit) {
    return unit.empty() ? Bilingual("a number without a unit", "eine Zahl ohne Einheit").Text()
                        : std::string(unit);
}

// A unit text after a number, in relation to that of the value.
bool Relate(std::string_view text, std::string_view target, UnitMeaning& meaning, CString& error) {
    if (text == target || text.empty()) return true;
    if (IsBarePrefix(text)) {
        meaning.power = Find(PREFIXES, text)->power;
        return true;
    }
    UnitMeaning given;
    UnitMeaning wanted;
    if (!ReadUnit(text, given, error)) return false;
    CString ignored;
    if (!ReadUnit(target, wanted, ignored) || !HasSameExponents(given.unit, wanted.unit)) {
        error =
            Bilingual("the unit %1 does not fit; expected %2", "die Einheit %1 passt nicht; erwartet wird %2")
                .With({text, Shown(target)});
        return false;
    }
    meaning.power = given.power - wanted.power;
    meaning.scale = given.scale / wanted.scale;
    const double perTarget = 1.0 / wanted.Factor();
    meaning.offset = (given.offset - wanted.offset) * perTarget;
    return true;
}

}  // namespace

double UnitMeaning::Factor() const {
    return scale == 1.0 ? std::strtod(("1e" + std::to_string(power)).c_str(), nullptr)
                        : scale * std::pow(10.0, power);
}

bool ReadUnit(std::string_view text, UnitMeaning& meaning, CString& error) {
    std::string_view unit = Trim(text);
    if (unit.starts_with('[') && unit.ends_with(']')) unit = Trim(unit.substr(1, unit.size() - 2));
    if (unit.empty() || unit == "-") {
        meaning = {};
        return true;
    }
    if (const Symbol* symbol = Find(WHOLE_TEXTS, unit)) {
        meaning = {};
        meaning.power = symbol->power;
        for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i)
            meaning.unit.SetExponent(i, symbol->exponents[static_cast<std::size_t>(i)]);
        return true;
    }
    return Parser(unit, error).Read(meaning);
}

bool ReadQuantity(std::string_view text, std::string_view unit, double& value, CString& error) {
    const std::string_view given = Trim(text);
    std::size_t mantissa = 0;
    const std::size_t length = NumberLength(given, mantissa);
    if (length == 0) {
        error = Bilingual("it is no number", "es ist keine Zahl").Text();
        return false;
    }
    if (given.substr(length).starts_with(',')) {
        error = Bilingual("write a point in place of the comma", "schreiben Sie einen Punkt statt des Kommas")
                    .Text();
        return false;
    }
    UnitMeaning meaning;
    if (!Relate(Trim(given.substr(length)), unit, meaning, error)) return false;
    double number = 0.0;
    if (!Scale(given.substr(0, length), mantissa, meaning.power, number)) {
        error =
            Bilingual("the number is too large or too small", "die Zahl ist zu groß oder zu klein").Text();
        return false;
    }
    value = number * meaning.scale + meaning.offset;
    return true;
}

namespace {

struct Named {
    std::string_view text;
    Exponents exponents;
};
constexpr Named NAMED[] = {
    {"m", Si("m")},        {"s", Si("s")},
    {"A", Si("A")},        {"K", Si("K")},
    {"mol", Si("mol")},    {"cd", Si("cd")},
    {"N", Si("N")},        {"Pa", Si("P")},
    {"J", Si("J")},        {"W", Si("W")},
    {"C", Si("C")},        {"V", Si("V")},
    {"\u03A9", Si("Ohm")}, {"S", Si("S")},
    {"F", Si("F")},        {"Wb", Si("Wb")},
    {"H", Si("H")},        {"T", Si("T")},
    {"lx", Si("lx")},      {"Hz", Si("Hz")},
    {"m/s", {1, 0, -1}},   {"m/s\u00B2", {1, 0, -2}},
};
constexpr Exponents HERTZ = {0, 0, -1};

std::string SuperscriptOf(int number) {
    std::string text;
    for (const char c : std::to_string(number))
        for (const Superscript& row : SUPERSCRIPTS)
            if (row.digit == c) text += row.text;
    return text;
}

// Whether the unit is named^times per hertz^density.
bool IsMade(const TCSI_Unit& unit, const Named& named, int times, int density) {
    for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i) {
        const auto index = static_cast<std::size_t>(i);
        if (unit.GetExponent(i) != times * named.exponents[index] - density * HERTZ[index]) return false;
    }
    return true;
}

// "m^2 kg s^-3" as "kg·m²/s³".
std::string BaseText(const TCSI_Unit& unit) {
    constexpr std::pair<const char*, int> ORDER[] = {{"kg", TCSI_Unit::KILOGRAM}, {"m", TCSI_Unit::METRE},
                                                     {"s", TCSI_Unit::SECOND},    {"A", TCSI_Unit::AMPERE},
                                                     {"K", TCSI_Unit::KELVIN},    {"mol", TCSI_Unit::MOLE},
                                                     {"cd", TCSI_Unit::CANDELA}};
    std::string above;
    std::string below;
    int divisors = 0;
    for (const auto& [symbol, base] : ORDER) {
        const int exponent = unit.GetExponent(base);
        if (exponent == 0) continue;
        std::string& side = exponent > 0 ? above : below;
        side += (side.empty() ? "" : "\u00B7") + std::string(symbol);
        if (std::abs(exponent) > 1) side += SuperscriptOf(std::abs(exponent));
        divisors += exponent < 0 ? 1 : 0;
    }
    if (below.empty()) return above;
    return (above.empty() ? "1" : above) + "/" + (divisors > 1 ? "(" + below + ")" : below);
}

std::string NumberText(double number) {
    char text[32];
    return {text, std::to_chars(text, std::end(text), number).ptr};
}

// The power of ten that the factor is, or false.
bool FindPower(double factor, int& power) {
    if (!(factor > 0.0) || std::isinf(factor)) return false;
    power = static_cast<int>(std::lround(std::log10(factor)));
    const double exact = std::strtod(("1e" + std::to_string(power)).c_str(), nullptr);
    return std::abs(factor - exact) <= 1e-14 * exact;
}

// Of 10^power for unit^times; the centimetre is usual, the centivolt is not.
const Prefix* FindPrefix(int power, int times, bool isLength) {
    for (const Prefix& prefix : PREFIXES)
        if ((prefix.power % 3 == 0 || (isLength && prefix.power == -2)) && prefix.power * times == power &&
            prefix.text != "\u03BC" && prefix.text != "u")
            return &prefix;
    return nullptr;
}

std::string WithFactor(double factor, const std::string& unit) {
    int power = 0;
    const std::string number = FindPower(factor, power) ? "10" + SuperscriptOf(power) : NumberText(factor);
    return unit.empty() ? number : number + " " + unit;
}

bool IsDimensionless(const TCSI_Unit& unit) {
    return HasSameExponents(unit, TCSI_Unit());
}

// A named unit, its square, or the square per hertz; empty when it is none.
std::string NamedText(const TCSI_Unit& unit) {
    int power = 0;
    const bool hasPower = FindPower(unit.GetFactor(), power);
    constexpr struct {
        int times;
        int density;
        const char* ending;
    } FORMS[] = {{1, 0, ""}, {2, 0, "\u00B2"}, {2, 1, "\u00B2/Hz"}};
    for (const auto& form : FORMS)
        for (const Named& named : NAMED) {
            if (form.times == 2 && named.text.find('/') != named.text.npos) continue;
            if (!IsMade(unit, named, form.times, form.density)) continue;
            const std::string text = std::string(named.text) + form.ending;
            if (hasPower && power == 0) return text;
            const Prefix* const prefix =
                hasPower ? FindPrefix(power, form.times, named.text == "m") : nullptr;
            return prefix != nullptr ? std::string(prefix->text) + text : WithFactor(unit.GetFactor(), text);
        }
    return "";
}

}  // namespace

CString DisplayUnit(const TCSI_Unit& unit) {
    const double factor = unit.GetFactor();
    if (IsDimensionless(unit)) return factor == 1.0 ? "" : factor == 0.01 ? "%" : WithFactor(factor, "");
    const std::string named = NamedText(unit);
    if (!named.empty()) return named;
    const std::string text = BaseText(unit);
    if (text == "kg" && factor == 0.001) return "g";
    return factor == 1.0 ? text : WithFactor(factor, text);
}

}  // namespace tc
