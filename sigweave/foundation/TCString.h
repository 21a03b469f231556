#pragma once

#include <concepts>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>

#include "sigweave/platform/Export.h"
#include "sigweave/platform/Framework.h"

// The library's string: 8-bit characters with an explicit length, so that it can hold zero bytes, and always
// a zero byte after them, so that its buffer can be handed to functions that expect zero-terminated text.
//
// It owns its storage; every copy is deep. A string without storage reads as the empty text: no reader ever
// sees a null pointer, except from `LockBuffer`. Indexes and lengths are in bytes. Text operations step by
// the characters of the process's locale (plain "C" counts as UTF-8); malformed bytes count as one character
// each.
//
// Operations with a `DataFormat` treat the content as text that ends at its first zero byte (ASCII, the
// default) or work on all bytes (BINARY). Use one object on one thread at a time.
//
// The three fields, their order and the absence of virtual functions are part of the binary interface.
class TC_API TCString {
 public:
    enum DataFormat { ASCII = 0, BINARY = 1 };

    // The empty text in place of missing storage.
    static const char s_Empty[1];

    TCString() = default;
    TCString(char character, int count);
    TCString(const char* text);
    TCString(const unsigned char* text);
    // Exactly `len` bytes, zero bytes included.
    TCString(const char* text, int len);
    TCString(const TCString& other);
    TCString(TCString&& other) noexcept;
    // UTF-16 text, converted to code page 0. `len` counts UTF-16 units.
    TCString(const char16_t* text);
    TCString(const char16_t* text, int len);
    TCString(const wchar_t* text);
    TCString(const wchar_t* text, int len);
    ~TCString() { delete[] data; }

    TCString& operator=(const TCString& other);
    TCString& operator=(TCString&& other) noexcept;
    TCString& operator=(const char* text);
    TCString& operator=(const unsigned char* text);
    TCString& operator=(const char16_t* text);
    TCString& operator=(const wchar_t* text);
    // A string of length 1, also for the zero byte.
    TCString& operator=(char character);

    // --- Access

    int GetLength() const { return length; }
    bool IsEmpty() const { return length == 0; }
    // The zero character for an index out of range.
    char GetAt(int index) const { return index >= 0 && index < length ? data[index] : '\0'; }
    char operator[](int index) const { return GetAt(index); }
    // An index out of range changes nothing.
    TCString& SetAt(int index, char character);
    operator const char*() const { return data != nullptr ? data : s_Empty; }
    int GetAllocLength() const { return alloc; }
    // Length up to the first zero byte.
    int SafeStrlen() const;
    // 0 for a null pointer.
    static int SafeStrlen(const char* text);
    // BINARY when there is a zero byte among the `length` bytes.
    DataFormat CalcDataFormat() const;
    // Whether `p` points at one of the string's bytes.
    bool IsInString(const char* p) const;
    // False when both pointers are set; else true with `result` 0 (both null), 1 (only `a` set) or -1 (only
    // `b`).
    static bool TestNULL(const char* a, const char* b, int& result);

    // The string stores no format: these five are inert and stay so for the modules that call them.
    DataFormat GetDataFormat() const { return ASCII; }
    bool IsASCII() const { return true; }
    bool IsBinary() const { return false; }
    bool SetDataFormat(DataFormat) { return true; }
    void ResetDataFormat() {}

    // --- Buffer access, for code that fills the buffer itself

    // At least `minLen` + 1 bytes of storage, the content kept. Below 1 nothing is done, and what is answered
    // for a string without storage must not be written to.
    char* GetBuffer(int minLen);
    // Negative: the length becomes that of the text up to its first zero byte. 0 empties and keeps the
    // storage.
    void ReleaseBuffer(int newLen = -1);
    void SetLength(int newLen) { ReleaseBuffer(newLen); }
    // Storage of exactly `n` + 1 bytes. The length is only cut, never raised (deliberately, despite the name:
    // callers set it with `ReleaseBuffer` when they know how much they wrote).
    char* GetBufferSetLength(int n);
    // Room for `extra` bytes after the content, answered as a pointer to the first of them. When the storage
    // must grow it grows by `factor` more than needed, so that a run of appends copies little. The length
    // stays.
    char* AllocAddBuffer(int extra, double factor);
    // Gives back storage beyond length + 1.
    void FreeExtra();
    // The storage as it is: null when there is none.
    char* LockBuffer() { return data; }
    TCString& UnlockBuffer() { return *this; }
    // With `freeMemory` the storage is released, else kept and zero-filled.
    void Empty(bool freeMemory = true);

    // Makes the string exactly the `n` bytes at `src`, which may lie in this string.
    TCString& AllocCopy(const char* src, int n);
    TCString& AllocCopy(std::string_view bytes);
    // A null `src` lengthens the string by `n` bytes without writing them.
    TCString& Append(const char* src, int n);

    // --- Comparison: negative, zero or positive; a null text is smaller than every string

    int Compare(const char* text) const;
    int CompareNoCase(const char* text) const;
    int Collate(const char* text) const;
    int CollateNoCase(const char* text) const;
    // All bytes, as unsigned values.
    int CompareBin(const TCString& other) const;

    // --- Searching: a byte index, or -1. Texts are searched up to the first zero byte from `start` on,
    // unless said otherwise

    int Find(char character, int start = 0) const;
    // `start` must not be negative; a wrong one answers -1, as every `start` after the content does. An
    // empty text is found at once.
    int Find(const char* text, int start = 0) const;
    // An empty text is never found.
    int FindNoCase(const char* text, int start = 0) const;
    // All bytes of both.
    int FindBin(const TCString& bytes, int start = 0) const;
    int FindOneOf(const char* set) const;
    // Among all bytes, the first that is one of the `setLen` bytes at `set`.
    int FindOneOf(const char* set, int setLen, int start) const;
    int ReverseFind(char character, DataFormat format = ASCII) const;
    // The n-th occurrence; 0 means the first, a negative `n` counts from the end. Occurrences do not overlap.
    int FindStringIndex(const TCString& sub, int n, DataFormat format = ASCII) const;

    // --- Editing in place

    // Both answer the new length.
    int Insert(int index, char character);
    int Insert(int index, const char* text);
    int Delete(int index, int count = 1);
    // Both answer the number of replacements and go through all bytes, also those after a zero byte.
    int Replace(char oldCharacter, char newCharacter);
    int Replace(const char* oldText, const char* newText);
    // Answers the number of bytes removed.
    int Remove(char character);
    TCString& MakeUpper();
    TCString& MakeLower();
    TCString& MakeReverse(DataFormat format = ASCII);
    // Trimming removes white space, one character, or the characters of a set; an empty set removes nothing.
    // On the right ASCII removes all from the run on that ends the text, what follows its zero byte included;
    // so does the set without a format.
    TCString& TrimLeft();
    TCString& TrimLeft(char character);
    TCString& TrimLeft(const char* set);
    TCString& TrimLeft(const TCString& set, DataFormat format = ASCII);
    TCString& TrimRight(DataFormat format = ASCII);
    TCString& TrimRight(char character, DataFormat format = ASCII);
    TCString& TrimRight(const char* set);
    TCString& TrimRight(const TCString& set, DataFormat format = ASCII);
    TCString& operator+=(const TCString& other);
    TCString& operator+=(char character);
    TCString& operator+=(const char* text);

    // --- Cutting: a new string each

    TCString Mid(int first, int count) const;
    TCString Mid(int first) const;
    TCString Left(int count) const;
    // The last bytes before the zero byte (ASCII) or of all bytes. A count that takes in all of them answers
    // the whole string, deliberately with what follows the zero byte.
    TCString Right(int count, DataFormat format = ASCII) const;
    TCString SpanIncluding(const char* set) const;
    TCString SpanExcluding(const char* set) const;
    // Before the n-th occurrence counted from the start; empty when not found.
    TCString LeftOf(const TCString& sub, int n = 1, DataFormat format = ASCII) const;
    // After the n-th occurrence counted from the end: 1 follows the last one, -1 the first.
    TCString RightOf(const TCString& sub, int n = 1, DataFormat format = ASCII) const;
    // After the first `a` and before the last `b`.
    TCString MidOf(const TCString& a, const TCString& b, DataFormat format = ASCII) const;
    // After the `na`-th `a` counted from the start, then before the `nb`-th `b` counted from the end. An
    // index of 0 keeps its meaning in `RightOf` and `LeftOf`, deliberately, for callers that pass theirs on:
    // after the last `a`, before the first `b`.
    TCString MidOf(const TCString& a, int na, const TCString& b, int nb, DataFormat format = ASCII) const;

    // --- Formatting

    // By the rules of printf. A format that the C library refuses leaves the format text itself, so that a
    // message is never lost. The arguments may be texts of this string.

    TC_PRINTF(2, 3) void Format(const char* format, ...);
    void FormatV(const char* format, va_list arguments);
    TC_PRINTF(2, 3) void FormatAppend(const char* format, ...);
    void FormatVAppend(const char* format, va_list arguments);
    TC_PRINTF(1, 2) static TCString FormatS(const char* format, ...);
    static TCString FormatVS(const char* format, va_list arguments);
    // With numbered inserts, for texts that are translated: %1 is the first argument as text, %2!5.1f! the
    // second by the rules of printf. %% is a percent sign, %n a line feed, %t a tab; %0 ends the message. A
    // wrong format leaves the string unchanged.
    void FormatMessageA(const char* format, ...);

    // --- Code pages: 0 the locale's, 65001 UTF-8

    // `len` counts UTF-16 units; -1 takes all up to the terminator.
    const char* ToMultibyte(const char16_t* text, int len = -1, unsigned codePage = 0);
    // The UTF-16 units become the bytes of this string.
    const char16_t* ToUnicode(const char* text, int len = -1, unsigned codePage = 0);
    static CString TCString2BinCString(const TCString& text);
    static TCString CString2BinTCString(const CString& text);

 protected:
    // Storage of exactly `size` bytes; 0 releases it. With `keep` the content survives as far as it fits.
    void AllocBuffer(int size, bool keep);
    // Forgets the storage without releasing it.
    void Init();

 private:
    // Grows the storage to at least `size` bytes, the content kept. More than a 32-bit length can hold throws
    // std::bad_alloc, as any allocation that fails.
    TC_LOCAL void Reserve(std::int64_t size);
    // Prints after the first `offset` bytes.
    TC_LOCAL void PrintAt(int offset, const char* format, va_list arguments);

    char* data = nullptr;
    std::int32_t length = 0;
    std::int32_t alloc = 0;
};

static_assert(sizeof(TCString) == 16 && !std::is_polymorphic_v<TCString>);

// Case-sensitive text comparison; a null text ranks below every string.
TC_API bool operator==(const TCString& a, const TCString& b);
TC_API bool operator==(const TCString& a, const char* b);
TC_API bool operator==(const char* a, const TCString& b);
TC_API bool operator!=(const TCString& a, const TCString& b);
TC_API bool operator!=(const TCString& a, const char* b);
TC_API bool operator!=(const char* a, const TCString& b);
TC_API bool operator<(const TCString& a, const TCString& b);
TC_API bool operator<(const TCString& a, const char* b);
TC_API bool operator<(const char* a, const TCString& b);
TC_API bool operator>(const TCString& a, const TCString& b);
TC_API bool operator>(const TCString& a, const char* b);
TC_API bool operator>(const char* a, const TCString& b);
TC_API bool operator<=(const TCString& a, const TCString& b);
TC_API bool operator<=(const TCString& a, const char* b);
TC_API bool operator<=(const char* a, const TCString& b);
TC_API bool operator>=(const TCString& a, const TCString& b);
TC_API bool operator>=(const TCString& a, const char* b);
TC_API bool operator>=(const char* a, const TCString& b);

// All bytes of both.
TC_API TCString operator+(const TCString& a, const TCString& b);
TC_API TCString operator+(const TCString& a, const char* b);
TC_API TCString operator+(const char* a, const TCString& b);
// Nothing but a `char` is a character: with any other integer, 0 included, the sum is a pointer into the
// text.
template <std::same_as<char> Char>
TCString operator+(const TCString& a, Char b) {
    return a + TCString(&b, 1);
}
template <std::integral Offset>
requires(!std::same_as<Offset, char>) const char* operator+(const TCString& text, Offset offset) {
    return static_cast<const char*>(text) + offset;
}

namespace tc {

// All bytes of the string, as long as it is not changed.
inline std::string_view ViewOf(const TCString& text) {
    return {text, static_cast<std::size_t>(text.GetLength())};
}
std::string_view ViewOf(TCString&&) = delete;

}  // namespace tc
