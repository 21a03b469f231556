#include "sigweave/persistence/TCSerializeOldStream.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "sigweave/foundation/Ascii.h"
#include "sigweave/persistence/TCSerializeHelper.h"

namespace {

constexpr char POINTER_MARK = '\xFD';
constexpr char DOUBLE_MARK = '\xFE';
constexpr char TEXT_MARK = '\xFF';
constexpr int INT_TOKEN_ROOM = 12;  // "-2147483648 "
constexpr int DOUBLE_TOKEN_SIZE = 10;
constexpr double GROWTH = 0.5;

char* PutDouble(char* dst, double value) {
    dst[0] = DOUBLE_MARK;
    std::memcpy(dst + 1, &value, sizeof value);
    dst[9] = ' ';
    return dst + DOUBLE_TOKEN_SIZE;
}

void Append(TCString& out, int value) {
    char* start = out.AllocAddBuffer(INT_TOKEN_ROOM, GROWTH);
    char* end = std::to_chars(start, start + INT_TOKEN_ROOM - 1, value).ptr;
    *end++ = ' ';
    out.SetLength(out.GetLength() + static_cast<int>(end - start));
}

void Append(TCString& out, double value) {
    PutDouble(out.AllocAddBuffer(DOUBLE_TOKEN_SIZE, GROWTH), value);
    out.SetLength(out.GetLength() + DOUBLE_TOKEN_SIZE);
}

template <typename Text>
void AppendText(TCString& out, const Text& value) {
    const int size = TCSerializeHelper::Serialize(nullptr, value);
    char* start = out.AllocAddBuffer(size + 2, 0.0);
    *start = TEXT_MARK;
    TCSerializeHelper::Serialize(start + 1, value);
    start[size + 1] = ' ';
    out.SetLength(out.GetLength() + size + 2);
}

void Append(TCString& out, const TCSI_Unit& value) {
    Append(out, value.GetFactor());
    for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i) Append(out, int{value.GetExponent(i)});
}

void Append(TCString& out, const TCTypeInfo& value) {
    Append(out, value.GetTimestamp());
    Append(out, value.GetSamplerate());
    Append(out, value.GetUnit());
    Append(out, value.GetRangeMin());
    Append(out, value.GetRangeMax());
    AppendText(out, value.GetSignalnameString());
}

bool HasMark(const char* p, char mark) {
    return p != nullptr && *p == mark;
}

bool ReadText(std::string_view& bytes, const char*& p) {
    if (!HasMark(p, TEXT_MARK)) return false;
    int length;
    const char* const begin = TCSerializeHelper::DeSerialize(length, p + 1);
    if (length < 0) return false;
    bytes = {begin, static_cast<std::size_t>(length)};
    p = begin + length;
    return true;
}

template <typename Value>
bool ReadArray(Value* values, int count, const char*& p) {
    for (int i = 0; i < count; ++i)
        if (!TCSerializeOldStream::DeSerialize(values[i], p)) return false;
    return true;
}

}  // namespace

TCString TCSerializeOldStream::Serialize(int value) {
    TCString out;
    Append(out, value);
    return out;
}

TCString TCSerializeOldStream::Serialize(double value) {
    return Serialize(&value, 1);
}

TCString TCSerializeOldStream::Serialize(const CString& value) {
    TCString out;
    AppendText(out, value);
    return out;
}

TCString TCSerializeOldStream::Serialize(const TCString& value) {
    TCString out;
    AppendText(out, value);
    return out;
}

TCString TCSerializeOldStream::Serialize(const TCSI_Unit& value) {
    TCString out;
    Append(out, value);
    return out;
}

TCString TCSerializeOldStream::Serialize(const void* value) {
    char token[5] = {POINTER_MARK};
    TCSerializeHelper::Serialize(token + 1, value);
    return TCString(token, sizeof token);
}

TCString TCSerializeOldStream::SerializeWithoutStatus(const TCTypeInfo& value) {
    TCString out;
    Append(out, value);
    return out;
}

TCString TCSerializeOldStream::Serialize(TCBLOCKSTATUS state, const TCTypeInfo& value) {
    TCString out;
    Append(out, static_cast<int>(state));
    Append(out, value);
    return out;
}

TCString TCSerializeOldStream::Serialize(const double* values, int count) {
    TCString out;
    if (count < 1 || count > (INT_MAX - 1) / DOUBLE_TOKEN_SIZE) return out;
    char* dst = out.GetBufferSetLength(count * DOUBLE_TOKEN_SIZE);
    int i = 0;
    for (; i + 4 <= count; i += 4)
        dst = PutDouble(PutDouble(PutDouble(PutDouble(dst, values[i]), values[i + 1]), values[i + 2]),
                        values[i + 3]);
    for (; i < count; ++i) dst = PutDouble(dst, values[i]);
    out.SetLength(count * DOUBLE_TOKEN_SIZE);
    return out;
}

TCString TCSerializeOldStream::Serialize(const int* values, int count) {
    TCString out;
    for (int i = 0; i < count; ++i) Append(out, values[i]);
    return out;
}

bool TCSerializeOldStream::DeSerialize(int& value, const char*& p) {
    if (p == nullptr || *p == '\0') return false;
    char* stop;
    const long number = std::strtol(p, &stop, 10);
    const char* end = stop;
    if (end == p || !EatOneWS(end)) return false;
    value = static_cast<int>(std::clamp<long>(number, INT_MIN, INT_MAX));
    p = end;
    return true;
}

bool TCSerializeOldStream::DeSerialize(double& value, const char*& p) {
    if (!HasMark(p, DOUBLE_MARK)) return false;
    const char* end = p + 1 + sizeof value;
    if (!EatOneWS(end)) return false;
    std::memcpy(&value, p + 1, sizeof value);
    p = end;
    return true;
}

bool TCSerializeOldStream::DeSerialize(CString& value, const char*& p) {
    std::string_view bytes;
    if (!ReadText(bytes, p)) return false;
    value.assign(bytes);
    return true;
}

bool TCSerializeOldStream::DeSerialize(TCString& value, const char*& p) {
    std::string_view bytes;
    if (!ReadText(bytes, p)) return false;
    value.AllocCopy(bytes);
    return true;
}

bool TCSerializeOldStream::DeSerialize(TCSI_Unit& value, const char*& p) {
    double factor;
    int exponents[TCSI_Unit::BASE_UNIT_COUNT];
    if (!DeSerialize(factor, p) || !DeSerialize(exponents, TCSI_Unit::BASE_UNIT_COUNT, p)) return false;
    value.SetFactor(factor);
    for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i) value.SetExponent(i, exponents[i]);
    return true;
}

bool TCSerializeOldStream::DeSerialize(const void*& value, const char*& p) {
    if (!HasMark(p, POINTER_MARK)) return false;
    p = TCSerializeHelper::DeSerialize(value, p + 1);
    return true;
}

bool TCSerializeOldStream::DeSerializeWithoutStatus(TCTypeInfo& value, const char*& p) {
    double timestamp, samplerate, rangeMin, rangeMax;
    TCSI_Unit unit;
    std::string_view name;
    if (!DeSerialize(timestamp, p) || !DeSerialize(samplerate, p) || !DeSerialize(unit, p) ||
        !DeSerialize(rangeMin, p) || !DeSerialize(rangeMax, p) || !ReadText(name, p))
        return false;
    value.SetTimestamp(timestamp);
    value.SetSamplerate(samplerate);
    value.SetUnit(unit);
    value.SetRangeMin(rangeMin);
    value.SetRangeMax(rangeMax);
    value.SetSignalname(name);
    return true;
}

bool TCSerializeOldStream::DeSerialize(TCBLOCKSTATUS& state, TCTypeInfo& value, const char*& p) {
    int number;
    if (!DeSerialize(number, p) || !DeSerializeWithoutStatus(value, p)) return false;
    state = static_cast<TCBLOCKSTATUS>(number);
    return true;
}

bool TCSerializeOldStream::DeSerialize(int* values, int count, const char*& p) {
    return ReadArray(values, count, p);
}

bool TCSerializeOldStream::DeSerialize(double* values, int count, const char*& p) {
    return ReadArray(values, count, p);
}

bool TCSerializeOldStream::EatOneWS(const char*& p) {
    if (p == nullptr || !tc::IsAsciiSpace(*p)) return false;
    ++p;
    return true;
}
