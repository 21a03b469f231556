#include "sigweave/foundation/MessageFormat.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <vector>

#include "sigweave/foundation/Ascii.h"

namespace tc {
namespace {

enum class Kind { UNUSED, INT, LONG, REAL, POINTER };

struct Argument {
    Kind kind = Kind::UNUSED;
    long integer = 0;
    double real = 0;
    const void* pointer = nullptr;
};

// A piece of text and the insert after it (number 0: none).
struct Piece {
    std::string text;
    int number = 0;
    std::string spec = "s";
    Kind kind = Kind::POINTER;
};

const char* SkipNumber(const char* p) {
    if (*p == '*') return p + 1;
    while (IsDigit(*p)) ++p;
    return p;
}

// What a printf conversion without its percent sign prints; UNUSED when it is none.
Kind KindOf(const char* spec) {
    const char* p = SkipNumber(spec + std::strspn(spec, "-+ #0"));
    if (*p == '.') p = SkipNumber(p + 1);
    const std::string_view size(p, std::strspn(p, "hljzt"));
    const std::string_view conversion(p + size.size());
    if (conversion.size() != 1) return Kind::UNUSED;
    const auto isOneOf = [&](std::string_view set) { return set.find(conversion[0]) != set.npos; };
    if (isOneOf("diouxXc"))
        for (const std::string_view narrow : {"", "h", "hh"})
            if (size == narrow) return Kind::INT;
    if (isOneOf("diouxX"))
        for (const std::string_view wide : {"l", "ll", "j", "z", "t"})
            if (size == wide) return Kind::LONG;
    if (!size.empty()) return Kind::UNUSED;
    return isOneOf("sp") ? Kind::POINTER : isOneOf("eEfFgGaA") ? Kind::REAL : Kind::UNUSED;
}

// Reads "1" or "1!spec!".
bool ParseInsert(const char*& p, Piece& piece) {
    piece.number = *p++ - '0';
    if (IsDigit(*p)) piece.number = 10 * piece.number + (*p++ - '0');
    if (*p != '!') return true;
    const char* const end = std::strchr(++p, '!');
    if (end == nullptr) return false;
    piece.spec.assign(p, end);
    piece.kind = KindOf(piece.spec.c_str());
    p = end + 1;
    return piece.kind != Kind::UNUSED;
}

char Escaped(char c) {
    return c == 'n' ? '\n' : c == 'r' ? '\r' : c == 't' ? '\t' : c;
}

bool Parse(const char* p, std::vector<Piece>& pieces) {
    pieces.emplace_back();
    while (*p != '\0') {
        if (*p != '%') {
            pieces.back().text += *p++;
        } else if (*++p == '0') {
            return true;
        } else if (*p == '\0') {
            return false;
        } else if (!IsDigit(*p)) {
            pieces.back().text += Escaped(*p++);
        } else {
            if (!ParseInsert(p, pieces.back())) return false;
            pieces.emplace_back();
        }
    }
    return true;
}

bool Use(std::vector<Argument>& used, int number, Kind kind) {
    const auto index = static_cast<std::size_t>(number);
    if (used.size() <= index) used.resize(index + 1);
    if (used[index].kind != Kind::UNUSED && used[index].kind != kind) return false;
    used[index].kind = kind;
    return true;
}

// Notes what the inserts need of which argument (from 1 on); false when one is needed as two kinds.
bool CollectUses(const std::vector<Piece>& pieces, std::vector<Argument>& used) {
    for (const Piece& piece : pieces) {
        if (piece.number == 0) continue;
        const auto stars = static_cast<int>(std::count(piece.spec.begin(), piece.spec.end(), '*'));
        for (int i = 0; i < stars; ++i)
            if (!Use(used, piece.number + i, Kind::INT)) return false;
        if (!Use(used, piece.number + stars, piece.kind)) return false;
    }
    return true;
}

void FetchArguments(std::vector<Argument>& used, va_list arguments) {
    for (std::size_t i = 1; i < used.size(); ++i) switch (used[i].kind) {
            case Kind::INT:
                used[i].integer = va_arg(arguments, int);
                break;
            case Kind::LONG:
                used[i].integer = va_arg(arguments, long);
                break;
            case Kind::REAL:
                used[i].real = va_arg(arguments, double);
                break;
            case Kind::UNUSED:
            case Kind::POINTER:
                used[i].pointer = va_arg(arguments, const void*);
                break;
        }
}

template <class Value>
bool Print(const std::string& spec, Value value, std::string& out) {
    const int length = std::snprintf(nullptr, 0, spec.c_str(), value);
    if (length < 0) return false;
    const std::size_t before = out.size();
    out.resize(before + static_cast<std::size_t>(length) + 1);
    std::snprintf(out.data() + before, static_cast<std::size_t>(length) + 1, spec.c_str(), value);
    out.pop_back();
    return true;
}

// Writes the arguments in place of the stars; `number` goes on to the insert's own argument.
std::string Resolved(const std::string& spec, const std::vector<Argument>& arguments, std::size_t& number) {
    std::string resolved = "%";
    for (const char c : spec) {
        if (c != '*') {
            resolved += c;
            continue;
        }
        const long value = arguments[number++].integer;
        if (resolved.back() == '.' && value < 0)
            resolved.pop_back();  // as in printf a negative precision is none
        else
            resolved += std::to_string(value);
    }
    return resolved;
}

bool PrintInsert(const Piece& piece, const std::vector<Argument>& arguments, std::string& out) {
    auto number = static_cast<std::size_t>(piece.number);
    const std::string spec = Resolved(piece.spec, arguments, number);
    const Argument& argument = arguments[number];
    switch (piece.kind) {
        case Kind::INT:
            return Print(spec, static_cast<int>(argument.integer), out);
        case Kind::LONG:
            return Print(spec, argument.integer, out);
        case Kind::REAL:
            return Print(spec, argument.real, out);
        default:
            return Print(spec, argument.pointer, out);
    }
}

}  // namespace

bool FormatMessage(const char* format, va_list arguments, std::string& out) {
    std::vector<Piece> pieces;
    std::vector<Argument> values;
    if (format == nullptr || !Parse(format, pieces) || !CollectUses(pieces, values)) return false;
    FetchArguments(values, arguments);
    out.clear();
    return std::all_of(pieces.begin(), pieces.end(), [&](const Piece& piece) {
        out += piece.text;
        return piece.number == 0 || PrintInsert(piece, values, out);
    });
}

}  // namespace tc
