#include "sigweave/signal/TCSI_Convert.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "sigweave/foundation/Ascii.h"
#include "sigweave/signal/SiSymbols.h"

namespace {

constexpr int LONGEST_SYMBOL = 3;
constexpr int POWER_LIMIT = 10;

// A symbol as one number, so that looking it up compares numbers; 0 is the empty symbol.
constexpr std::uint32_t Pack(std::uint32_t packed, char character) {
    return packed << 8 | static_cast<unsigned char>(character);
}

constexpr auto PACKED_SYMBOLS = [] {
    std::array<std::uint32_t, tc::SI_SYMBOL_COUNT> packed{};
    for (int i = 0; i < tc::SI_SYMBOL_COUNT; ++i)
        for (const char character : tc::SI_SYMBOLS[i].text)
            packed[static_cast<unsigned>(i)] = Pack(packed[static_cast<unsigned>(i)], character);
    return packed;
}();

// Reads from the front of a text. After its end there are zero characters.
class Scanner {
 public:
    explicit Scanner(std::string_view text) : at(text.data()), end(at + text.size()) {}

    bool IsAtEnd() const { return at == end; }
    char Next() const { return at != end ? *at : '\0'; }

    void SkipSpace() {
        while (tc::IsAsciiSpace(Next())) ++at;
    }

    // A symbol that is too long for any gives a number of none.
    std::uint32_t ReadSymbol() {
        std::uint32_t symbol = 0;
        const char* start = at;
        for (; tc::IsLetter(Next()); ++at) symbol = Pack(symbol, *at);
        return at - start <= LONGEST_SYMBOL ? symbol : UINT32_MAX;
    }

    // The exponent after a symbol, 1 without one; false when it is no number or beyond the limit.
    bool ReadPower(int& power) {
        power = 1;
        if (Next() != '^') return true;
        ++at;
        SkipSpace();
        const bool negative = Next() == '-';
        if (negative) ++at;
        if (!tc::IsDigit(Next())) return false;
        int number = 0;
        for (; tc::IsDigit(Next()); ++at) number = std::min(number * 10 + (*at - '0'), POWER_LIMIT + 1);
        power = negative ? -number : number;
        return number <= POWER_LIMIT;
    }

 private:
    const char* at;
    const char* end;
};

}  // namespace

bool TCSI_Convert::scan(const char* text, TCSI_Unit& unit) {
    return scan(std::string_view(text != nullptr ? text : ""), unit);
}

bool TCSI_Convert::scan(std::string_view text, TCSI_Unit& unit) {
    clear();
    unit.clear();
    Scanner scanner(text);
    bool read = !text.empty();
    for (scanner.SkipSpace(); read && !scanner.IsAtEnd(); scanner.SkipSpace()) {
        const std::uint32_t symbol = scanner.ReadSymbol();
        int power;
        read = symbol != 0 && SetToken(symbol) && scanner.ReadPower(power) &&
               (scanner.IsAtEnd() || tc::IsAsciiSpace(scanner.Next())) && Token2SI(static_cast<char>(power));
    }
    GetSI(unit);
    return read;
}

bool TCSI_Convert::GetSI(TCSI_Unit& unit) const {
    for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i) unit.SetExponent(i, exponents[i]);
    return true;
}

void TCSI_Convert::clear() {
    std::fill(std::begin(exponents), std::end(exponents), std::int8_t{0});
}

bool TCSI_Convert::String2Token(const char* text) {
    if (text == nullptr) return false;
    Scanner scanner(text);
    const std::uint32_t symbol = scanner.ReadSymbol();
    return scanner.IsAtEnd() && SetToken(symbol);
}

bool TCSI_Convert::SetToken(std::uint32_t symbol) {
    const auto found = std::find(PACKED_SYMBOLS.begin(), PACKED_SYMBOLS.end(), symbol);
    if (found == PACKED_SYMBOLS.end()) return false;
    token = static_cast<std::int32_t>(found - PACKED_SYMBOLS.begin());
    return true;
}

bool TCSI_Convert::Token2SI(char power) {
    const int times = static_cast<signed char>(power);
    if (times < -POWER_LIMIT || times > POWER_LIMIT) return false;
    for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i)
        exponents[i] = static_cast<std::int8_t>(exponents[i] + tc::SI_SYMBOLS[token].exponents[i] * times);
    return true;
}
