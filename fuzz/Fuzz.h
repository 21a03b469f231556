#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "sigweave/foundation/TCString.h"

// What a target calls: libFuzzer, or the replay of the corpus among the ordinary tests (replay.cpp).
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

// A promise of the library that must hold for every input.
inline void Require(bool holds, const char* promise) {
    if (holds) return;
    std::fprintf(stderr, "not kept: %s\n", promise);
    std::abort();
}

// The promise is that both texts are the same.
inline void RequireSame(std::string_view a, std::string_view b, const char* promise) {
    if (a == b) return;
    std::fprintf(stderr, "not kept: %s\n'%.*s'\n'%.*s'\n", promise, static_cast<int>(a.size()), a.data(),
                 static_cast<int>(b.size()), b.data());
    std::abort();
}

// All of it, zero bytes included.
inline std::string Bytes(const TCString& text) {
    return TCString::TCString2BinCString(text);
}

inline TCString Text(const std::string& bytes) {
    return TCString::CString2BinTCString(bytes);
}

// Takes an input apart at its zero bytes. After the last part all further ones are empty.
class Parts {
 public:
    Parts(const std::uint8_t* data, std::size_t size)
        : rest(reinterpret_cast<const char*>(data), size), atEnd(size == 0) {}

    bool AtEnd() const { return atEnd; }
    std::string Next() {
        const std::size_t end = rest.find('\0');
        std::string part(rest.substr(0, end));
        atEnd = end == std::string_view::npos;
        rest.remove_prefix(atEnd ? rest.size() : end + 1);
        return part;
    }
    // What the next part begins with, limited to the range; other text counts as 0.
    int NextInt(int minimum, int maximum) {
        const long value = std::strtol(Next().c_str(), nullptr, 10);
        return value < minimum ? minimum : value > maximum ? maximum : static_cast<int>(value);
    }
    std::string Rest() {
        std::string part(rest);
        rest = {};
        atEnd = true;
        return part;
    }

 private:
    std::string_view rest;
    bool atEnd;
};

}  // namespace fuzz
