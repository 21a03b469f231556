#pragma once

// The ASCII characters that the library's own forms of text are made of, whatever the locale is. Internal.
namespace tc {

constexpr bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

constexpr bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

constexpr bool IsSign(char c) {
    return c == '+' || c == '-';
}

constexpr bool IsLineEnd(char c) {
    return c == '\r' || c == '\n';
}

constexpr bool IsAsciiSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

}  // namespace tc
