#include "sigweave/foundation/TCString.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <utility>

#include "sigweave/platform/CodePage.h"

const char TCString::s_Empty[1] = "";

namespace {

bool PointsInto(const char* p, const char* begin, int size) {
    return begin != nullptr && std::less_equal<>()(begin, p) && std::less<>()(p, begin + size);
}

// A size beyond the limit is cut to one that `Reserve` refuses.
int Limited(std::size_t size) {
    return static_cast<int>(std::min<std::size_t>(size, INT32_MAX));
}

int Sign(int value) {
    return (value > 0) - (value < 0);
}

}  // namespace

// --- Construction and assignment

TCString::TCString(char character, int count) {
    if (count < 1) return;
    Reserve(std::int64_t{count} + 1);
    std::memset(data, character, static_cast<std::size_t>(count));
    length = count;
}

TCString::TCString(const char* text) : TCString(text, SafeStrlen(text)) {}

TCString::TCString(const unsigned char* text) : TCString(reinterpret_cast<const char*>(text)) {}

TCString::TCString(const char* text, int len) {
    AllocCopy(text, len);
}

TCString::TCString(const TCString& other) : TCString(other.data, other.length) {}

TCString::TCString(TCString&& other) noexcept
    : data(std::exchange(other.data, nullptr)),
      length(std::exchange(other.length, 0)),
      alloc(std::exchange(other.alloc, 0)) {}

TCString::TCString(const char16_t* text) {
    ToMultibyte(text);
}

TCString::TCString(const char16_t* text, int len) {
    ToMultibyte(text, len);
}

TCString& TCString::operator=(const TCString& other) {
    return this == &other ? *this : AllocCopy(other.data, other.length);
}

TCString& TCString::operator=(TCString&& other) noexcept {
    std::swap(data, other.data);
    std::swap(length, other.length);
    std::swap(alloc, other.alloc);
    return *this;
}

TCString& TCString::operator=(const char* text) {
    return AllocCopy(text, SafeStrlen(text));
}

TCString& TCString::operator=(const unsigned char* text) {
    return *this = reinterpret_cast<const char*>(text);
}

TCString& TCString::operator=(const char16_t* text) {
    ToMultibyte(text);
    return *this;
}

TCString& TCString::operator=(const wchar_t* text) {
    return *this = TCString(text);
}

TCString& TCString::operator=(char character) {
    return AllocCopy(&character, 1);
}

// --- Access

TCString& TCString::SetAt(int index, char character) {
    if (index >= 0 && index < length) data[index] = character;
    return *this;
}

int TCString::SafeStrlen() const {
    return alloc > 0 ? static_cast<int>(strnlen(data, static_cast<std::size_t>(alloc) - 1)) : 0;
}

int TCString::SafeStrlen(const char* text) {
    return text != nullptr ? Limited(std::strlen(text)) : 0;
}

TCString::DataFormat TCString::CalcDataFormat() const {
    return SafeStrlen() != length ? BINARY : ASCII;
}

bool TCString::IsInString(const char* p) const {
    return PointsInto(p, data, length);
}

bool TCString::TestNULL(const char* a, const char* b, int& result) {
    if (a != nullptr && b != nullptr) return false;
    result = (a != nullptr) - (b != nullptr);
    return true;
}

// --- Storage

void TCString::Init() {
    static_assert(offsetof(TCString, data) == 0 && offsetof(TCString, length) == 8 &&
                  offsetof(TCString, alloc) == 12);
    data = nullptr;
    length = 0;
    alloc = 0;
}

void TCString::AllocBuffer(int size, bool keep) {
    size = std::max(size, 0);
    const int kept = keep && data != nullptr ? std::min({length + 1, alloc, size}) : 0;
    if (size == alloc) {
        if (!keep && data != nullptr) std::memset(data, 0, static_cast<std::size_t>(size));
        return;
    }
    char* storage = size > 0 ? new char[static_cast<std::size_t>(size)] : nullptr;
    std::copy_n(data, kept, storage);
    std::fill_n(storage + kept, size - kept, '\0');
    delete[] data;
    data = storage;
    alloc = size;
    length = std::min(length, std::max(size - 1, 0));
    if (data != nullptr) data[size - 1] = '\0';
}

void TCString::Reserve(std::int64_t size) {
    if (size > INT32_MAX) throw std::bad_alloc();
    if (alloc < size) AllocBuffer(static_cast<int>(size), true);
}

char* TCString::GetBuffer(int minLen) {
    if (minLen >= 1) Reserve(std::int64_t{minLen} + 1);
    return data != nullptr ? data : const_cast<char*>(s_Empty);
}

void TCString::ReleaseBuffer(int newLen) {
    if (newLen == 0) {
        Empty(false);
        return;
    }
    if (newLen > 0) Reserve(std::int64_t{newLen} + 1);
    length = newLen > 0 ? newLen : SafeStrlen();
    if (data != nullptr) data[length] = '\0';
}

char* TCString::GetBufferSetLength(int n) {
    if (n == INT32_MAX) throw std::bad_alloc();
    AllocBuffer(std::max(n, 0) + 1, true);
    return data;
}

char* TCString::AllocAddBuffer(int extra, double factor) {
    const std::int64_t needed = std::int64_t{length} + 1 + std::max(extra, 0);
    if (alloc < needed) {
        const double grown = std::min(static_cast<double>(needed) * (1.0 + factor), double{INT32_MAX});
        Reserve(std::max(needed, static_cast<std::int64_t>(grown)));
    }
    return data + length;
}

void TCString::FreeExtra() {
    if (alloc > length + 1) AllocBuffer(length + 1, true);
}

void TCString::Empty(bool freeMemory) {
    AllocBuffer(freeMemory ? 0 : alloc, false);
    length = 0;
}

TCString& TCString::AllocCopy(const char* src, int n) {
    if (src == nullptr || n < 1) {
        Empty(false);
        return *this;
    }
    if (alloc <= n) {
        if (n == INT32_MAX) throw std::bad_alloc();
        TCString grown;
        grown.data = new char[static_cast<std::size_t>(n) + 1];  // all of it is written now: no need to clear
        grown.alloc = n + 1;
        grown.length = n;
        *std::copy_n(src, n, grown.data) = '\0';
        return *this = std::move(grown);  // what `src` may point into is still there until now
    }
    std::memmove(data, src, static_cast<std::size_t>(n));
    length = n;
    std::fill(data + n, data + alloc, '\0');
    return *this;
}

TCString& TCString::AllocCopy(std::string_view bytes) {
    return AllocCopy(bytes.data(), Limited(bytes.size()));
}

TCString& TCString::Append(const char* src, int n) {
    if (n < 1) return *this;
    const std::ptrdiff_t inside = PointsInto(src, data, alloc) ? src - data : -1;
    Reserve(std::int64_t{length} + n + 1);
    if (inside >= 0) src = data + inside;
    if (src != nullptr) std::memmove(data + length, src, static_cast<std::size_t>(n));
    length += n;
    data[length] = '\0';
    return *this;
}

TCString& TCString::operator+=(const TCString& other) {
    return Append(other.data, other.length);
}

TCString& TCString::operator+=(char character) {
    return Append(&character, 1);
}

TCString& TCString::operator+=(const char* text) {
    return Append(text, SafeStrlen(text));
}

// --- Comparison

namespace {

int OrderNoCase(const char* a, const char* b) {
    const char* const endA = a + std::strlen(a);
    const char* const endB = b + std::strlen(b);
    while (a < endA && b < endB) {
        const tc::Character left = tc::CharacterAt(a, endA);
        const tc::Character right = tc::CharacterAt(b, endB);
        if (!tc::EqualNoCase(left.code, right.code))
            return tc::ToLower(left.code) < tc::ToLower(right.code) ? -1 : 1;
        a += left.bytes;
        b += right.bytes;
    }
    return (a < endA) - (b < endB);
}

int Order(const char* a, const char* b) {
    int result = 0;
    return TCString::TestNULL(a, b, result) ? result : std::strcmp(a, b);
}

}  // namespace

int TCString::Compare(const char* text) const {
    return Sign(Order(*this, text));
}

int TCString::CompareNoCase(const char* text) const {
    return text != nullptr ? OrderNoCase(*this, text) : 1;
}

int TCString::Collate(const char* text) const {
    return text != nullptr ? Sign(std::strcoll(*this, text)) : 1;
}

int TCString::CollateNoCase(const char* text) const {
    return text != nullptr ? TCString(*this).MakeLower().Collate(TCString(text).MakeLower()) : 1;
}

int TCString::CompareBin(const TCString& other) const {
    const int common = std::min(length, other.length);
    const int order = common > 0 ? std::memcmp(data, other.data, static_cast<std::size_t>(common)) : 0;
    return order != 0 ? Sign(order) : Sign(length - other.length);
}

bool operator==(const TCString& a, const TCString& b) {
    return Order(a, b) == 0;
}
bool operator==(const TCString& a, const char* b) {
    return Order(a, b) == 0;
}
bool operator==(const char* a, const TCString& b) {
    return Order(a, b) == 0;
}
bool operator!=(const TCString& a, const TCString& b) {
    return Order(a, b) != 0;
}
bool operator!=(const TCString& a, const char* b) {
    return Order(a, b) != 0;
}
bool operator!=(const char* a, const TCString& b) {
    return Order(a, b) != 0;
}
bool operator<(const TCString& a, const TCString& b) {
    return Order(a, b) < 0;
}
bool operator<(const TCString& a, const char* b) {
    return Order(a, b) < 0;
}
bool operator<(const char* a, const TCString& b) {
    return Order(a, b) < 0;
}
bool operator>(const TCString& a, const TCString& b) {
    return Order(a, b) > 0;
}
bool operator>(const TCString& a, const char* b) {
    return Order(a, b) > 0;
}
bool operator>(const char* a, const TCString& b) {
    return Order(a, b) > 0;
}
bool operator<=(const TCString& a, const TCString& b) {
    return Order(a, b) <= 0;
}
bool operator<=(const TCString& a, const char* b) {
    return Order(a, b) <= 0;
}
bool operator<=(const char* a, const TCString& b) {
    return Order(a, b) <= 0;
}
bool operator>=(const TCString& a, const TCString& b) {
    return Order(a, b) >= 0;
}
bool operator>=(const TCString& a, const char* b) {
    return Order(a, b) >= 0;
}
bool operator>=(const char* a, const TCString& b) {
    return Order(a, b) >= 0;
}

namespace {

TCString Joined(const char* a, int aLength, const char* b, int bLength) {
    TCString result(a, aLength);
    result.Append(b, bLength);
    return result;
}

}  // namespace

TCString operator+(const TCString& a, const TCString& b) {
    return Joined(a, a.GetLength(), b, b.GetLength());
}
TCString operator+(const TCString& a, const char* b) {
    return Joined(a, a.GetLength(), b, TCString::SafeStrlen(b));
}
TCString operator+(const char* a, const TCString& b) {
    return Joined(a, TCString::SafeStrlen(a), b, b.GetLength());
}

// Only for modules built when the header declared it: there, any number was a character.
TC_API TCString operator+(const TCString& a, char b);
TCString operator+(const TCString& a, char b) {
    return Joined(a, a.GetLength(), &b, 1);
}
