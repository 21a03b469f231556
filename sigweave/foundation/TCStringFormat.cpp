#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/CodePage.h"

namespace {

constexpr int FIRST_ROOM = 1024;
constexpr int LAST_ROOM = INT32_MAX - 2;

// The output of one print. It has a buffer of its own, so that the arguments may be texts of the string that
// is to receive it.
class Printed {
 public:
    Printed(const char* format, va_list arguments) {
        va_list again;
        va_copy(again, arguments);
        length = std::vsnprintf(small, sizeof small, format, arguments);
        if (length > FIRST_ROOM) {
            large = std::make_unique_for_overwrite<char[]>(static_cast<std::size_t>(length) + 1);
            length = std::vsnprintf(large.get(), static_cast<std::size_t>(length) + 1, format, again);
        }
        va_end(again);
    }

    // Negative when the C library refused the format or an argument.
    int GetLength() const { return length; }
    const char* GetText() const { return large != nullptr ? large.get() : small; }

 private:
    int length;
    char small[FIRST_ROOM + 1];
    std::unique_ptr<char[]> large;
};

std::u16string ToUtf16(const wchar_t* text, int len) {
    std::u16string result;
    if (text == nullptr) return result;
    const std::size_t count = len < 0 ? std::wcslen(text) : static_cast<std::size_t>(len);
    for (const wchar_t wide : std::wstring_view(text, count)) {
        const auto code = static_cast<char32_t>(wide);
        if (code < 0x10000) {
            result += static_cast<char16_t>(code);
        } else {
            result += static_cast<char16_t>(0xD7C0 + (code >> 10));
            result += static_cast<char16_t>(0xDC00 + (code & 0x3FF));
        }
    }
    return result;
}

}  // namespace

void TCString::Format(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    FormatV(format, arguments);
    va_end(arguments);
}

void TCString::FormatAppend(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    FormatVAppend(format, arguments);
    va_end(arguments);
}

TCString TCString::FormatS(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    TCString result = FormatVS(format, arguments);
    va_end(arguments);
    return result;
}

TCString TCString::FormatVS(const char* format, va_list arguments) {
    TCString result;
    result.FormatV(format, arguments);
    return result;
}

void TCString::FormatV(const char* format, va_list arguments) {
    PrintAt(0, format, arguments);
}

void TCString::FormatVAppend(const char* format, va_list arguments) {
    PrintAt(length, format, arguments);
}

// The room is doubled until the text fits, so that a string that is formatted again and again seldom grows.
void TCString::PrintAt(int offset, const char* format, va_list arguments) {
    if (format == nullptr) format = s_Empty;
    const Printed printed(format, arguments);
    const bool refused = printed.GetLength() < 0;
    const std::string fallback(refused ? format : "");
    const int count = refused ? static_cast<int>(fallback.size()) : printed.GetLength();
    std::int64_t room = FIRST_ROOM;
    while (room < count) room = std::min<std::int64_t>(2 * room, LAST_ROOM);
    Reserve(offset + room + 2);
    std::copy_n(refused ? fallback.c_str() : printed.GetText(), count, data + offset);
    length = offset + count;
    data[length] = '\0';
}

const char* TCString::ToMultibyte(const char16_t* text, int len, unsigned codePage) {
    std::string converted;
    if (text != nullptr) {
        const std::size_t count =
            len < 0 ? std::char_traits<char16_t>::length(text) : static_cast<std::size_t>(len);
        tc::Utf16ToMultibyte({text, count}, codePage, converted);
    }
    return AllocCopy(converted.data(), static_cast<int>(converted.size()));
}

const char16_t* TCString::ToUnicode(const char* text, int len, unsigned codePage) {
    std::u16string converted;
    if (text != nullptr) {
        const std::size_t count = len < 0 ? std::strlen(text) : static_cast<std::size_t>(len);
        tc::MultibyteToUtf16({text, count}, codePage, converted);
    }
    const int bytes = static_cast<int>(converted.size() * sizeof(char16_t));
    Reserve(std::int64_t{bytes} + 2);
    AllocCopy(reinterpret_cast<const char*>(converted.data()), bytes);
    return reinterpret_cast<const char16_t*>(data);
}

TCString::TCString(const wchar_t* text) : TCString(text, -1) {}

TCString::TCString(const wchar_t* text, int len) {
    const std::u16string utf16 = ToUtf16(text, len);
    ToMultibyte(utf16.data(), static_cast<int>(utf16.size()));
}

CString TCString::TCString2BinCString(const TCString& text) {
    return CString(text, static_cast<std::size_t>(text.length));
}

TCString TCString::CString2BinTCString(const CString& text) {
    return TCString(text.data(), static_cast<int>(text.size()));
}
