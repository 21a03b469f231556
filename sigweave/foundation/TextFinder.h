#pragma once

#include <string_view>

namespace tc {

// Finds a text from left to right, only where a character of the locale begins. The wanted text must outlive
// the finder.
class TextFinder {
 public:
    // `wanted` must not be empty.
    explicit TextFinder(std::string_view wanted);

    // The first occurrence in the bytes from `from`, where a character must begin, to `end`; `end` when there
    // is none.
    const char* Find(const char* from, const char* end) const;

 private:
    std::string_view wanted;
    // Whether the first byte of the wanted text always begins a character, so that every hit counts.
    bool direct;
};

}  // namespace tc
