#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <iterator>
#include <string>
#include <string_view>

#include "sigweave/foundation/MessageFormat.h"
#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/CodePage.h"

namespace {

constexpr int FIRST_ROOM = 1024;
constexpr int LAST_ROOM = INT32_MAX - 2;

// The output of one print, or the format itself where the C library refuses it. It keeps the text apart, so
// that format and arguments may be texts of the string that is to receive it.
class Printed {
 public:
    Printed(const char* format, va_list arguments, int most) {
        va_list again;
        va_copy(again, arguments);
        const int count = std::vsnprintf(small, sizeof small, format, arguments);
        if (count < 0 || count > most) {
            large = format;
        } else if (count > FIRST_ROOM) {
            large.resize(static_cast<std::size_t>(count) + 1);
            std::vsnprintf(large.data(), large.size(), format, again);
            large.pop_back();
        } else {
            smallLength = static_cast<std::size_t>(count);
        }
        va_end(again);
    }

    std::string_view GetText() const {
        return smallLength > 0 ? std::string_view(small, smallLength) : std::string_view(large);
    }

 private:
    char small[FIRST_ROOM + 1];
    std::size_t smallLength = 0;
    std::string large;
};

std::u16string ToUtf16(const wchar_t* text, int len) {
    std::u16string result;
    if (text == nullptr) return result;
    const std::size_t count = len < 0 ? std::wcslen(text) : static_cast<std::size_t>(len);
    for (const wchar_t wide : std::wstring_view(text, count)) {
        const auto code =
            static_cast<std::uint32_t>(wide) <= 0x10FFFF ? static_cast<char32_t>(wide) : U'\uFFFD';
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
    const Printed printed(format, arguments, LAST_ROOM - offset);
    const std::string_view text = printed.GetText();
    std::int64_t room = FIRST_ROOM;
    while (room < std::ssize(text)) room *= 2;
    Reserve(offset + std::min<std::int64_t>(room, LAST_ROOM - offset) + 2);
    std::copy(text.begin(), text.end(), data + offset);
    length = offset + static_cast<int>(text.size());
    data[length] = '\0';
}

void TCString::FormatMessageA(const char* format, ...) {
    std::string message;
    va_list arguments;
    va_start(arguments, format);
    if (tc::FormatMessage(format, arguments, message)) AllocCopy(message);
    va_end(arguments);
}

const char* TCString::ToMultibyte(const char16_t* text, int len, unsigned codePage) {
    std::string converted;
    if (text != nullptr) {
        const std::size_t count =
            len < 0 ? std::char_traits<char16_t>::length(text) : static_cast<std::size_t>(len);
        tc::Utf16ToMultibyte({text, count}, codePage, converted);
    }
    return AllocCopy(converted);
}

const char16_t* TCString::ToUnicode(const char* text, int len, unsigned codePage) {
    std::u16string converted;
    if (text != nullptr) {
        const std::size_t count = len < 0 ? std::strlen(text) : static_cast<std::size_t>(len);
        tc::MultibyteToUtf16({text, count}, codePage, converted);
    }
    const std::string_view bytes(reinterpret_cast<const char*>(converted.data()),
                                 converted.size() * sizeof(char16_t));
    Reserve(std::ssize(bytes) + 2);
    AllocCopy(bytes);
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
    TCString result;
    result.AllocCopy(text);
    return result;
}
