#include "sigweave/persistence/XmlBytes.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "sigweave/platform/CodePage.h"

namespace tc {
namespace {

constexpr char32_t FIRST_BYTE = 0x10FE00, LAST_BYTE = FIRST_BYTE + 0xFF, LAST_CODE = 0x10FFFF;

bool StandsForByte(char32_t code) {
    return code >= FIRST_BYTE && code <= LAST_BYTE;
}

bool IsXmlCharacter(char32_t code) {
    if (code < ' ') return code == '\t' || code == '\n' || code == '\r';
    return code <= 0xD7FF || (code >= 0xE000 && code <= 0xFFFD) || (code >= 0x10000 && code <= LAST_CODE);
}

// The text comes from a tree, so it is well-formed.
char32_t TakeUtf8(const char*& p) {
    const auto first = static_cast<unsigned char>(*p++);
    const int more = first < 0x80 ? 0 : first < 0xE0 ? 1 : first < 0xF0 ? 2 : 3;
    char32_t code = more == 0 ? first : first & (0x3Fu >> more);
    for (int i = 0; i < more; ++i) code = code << 6 | (static_cast<unsigned char>(*p++) & 0x3Fu);
    return code;
}

constexpr std::size_t BLOCK = 64;

// Whether all bytes lie between the blank and the end of ASCII.
bool IsPrintable(const char* block) {
    constexpr std::uint64_t HIGH = 0x8080808080808080u, BLANKS = 0x2020202020202020u;
    std::uint64_t found = 0;
    for (std::size_t i = 0; i < BLOCK; i += 8) {
        std::uint64_t bytes;
        std::memcpy(&bytes, block + i, sizeof bytes);
        found |= bytes | (bytes - BLANKS);
    }
    return (found & HIGH) == 0;
}

template <class Plain>
bool AllPlain(std::string_view text, Plain plain) {
    for (; text.size() >= BLOCK; text.remove_prefix(BLOCK))
        if (!IsPrintable(text.data()) && !std::all_of(text.data(), text.data() + BLOCK, plain)) return false;
    return std::ranges::all_of(text, plain);
}

}  // namespace

bool IsPlainXmlText(std::string_view text) {
    return AllPlain(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

std::string_view ToXmlText(std::string_view text, std::string& buffer) {
    const auto plain = [](char c) {
        return static_cast<unsigned char>(c) < 0x80 && IsXmlCharacter(static_cast<unsigned char>(c));
    };
    if (AllPlain(text, plain)) return text;
    buffer.clear();
    for (const char *p = text.data(), *end = p + text.size(); p < end;) {
        const Character character = CharacterAt(p, end);
        const bool holds = IsXmlCharacter(character.code) && !StandsForByte(character.code);
        if (holds) AppendUtf8(buffer, character.code);
        for (int i = 0; i < character.bytes; ++i, ++p)
            if (!holds) AppendUtf8(buffer, FIRST_BYTE + static_cast<unsigned char>(*p));
    }
    return buffer;
}

std::string_view ToUtf8(std::string_view text, std::string& buffer) {
    if (IsPlainXmlText(text)) return text;
    buffer.clear();
    for (const char *p = text.data(), *end = p + text.size(); p < end;) {
        const Character character = CharacterAt(p, end);
        if (character.code <= LAST_CODE)
            AppendUtf8(buffer, character.code);
        else
            buffer.append(p, static_cast<std::size_t>(character.bytes));
        p += character.bytes;
    }
    return buffer;
}

bool FromXmlText(std::string_view text, std::string& out) {
    bool complete = true;
    out.clear();
    for (const char *p = text.data(), *end = p + text.size(); p < end;) {
        const char32_t code = TakeUtf8(p);
        if (StandsForByte(code))
            out += static_cast<char>(code - FIRST_BYTE);
        else
            complete &= AppendCharacter(out, code);
    }
    return complete;
}

}  // namespace tc
