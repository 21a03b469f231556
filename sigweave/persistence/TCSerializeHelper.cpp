#include "sigweave/persistence/TCSerializeHelper.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>

static_assert(std::endian::native == std::endian::little, "items are copied as they lie in memory");

namespace {

template <typename Raw>
int Put(char* dst, Raw value) {
    if (dst != nullptr) std::memcpy(dst, &value, sizeof value);
    return sizeof value;
}

template <typename Raw>
const char* Get(Raw& value, const char* src) {
    std::memcpy(&value, src, sizeof value);
    return src + sizeof value;
}

int PutCounted(char* dst, const void* bytes, int count) {
    if (dst != nullptr && count > 0)
        std::memcpy(dst + Put(dst, count), bytes, static_cast<std::size_t>(count));
    if (dst != nullptr && count <= 0) Put(dst, 0);
    return static_cast<int>(sizeof count) + std::max(count, 0);
}

const char* GetCount(int& count, const char* src) {
    src = Get(count, src);
    count = std::max(count, 0);
    return src;
}

// Writes the items of a record one after the other; without a destination it only counts.
class ItemWriter {
 public:
    explicit ItemWriter(char* start) : dst(start) {}
    template <typename Value>
    ItemWriter& operator<<(const Value& value) {
        size += TCSerializeHelper::Serialize(dst != nullptr ? dst + size : nullptr, value);
        return *this;
    }
    int Size() const { return size; }

 private:
    char* dst;
    int size = 0;
};

}  // namespace

int TCSerializeHelper::Serialize(char* dst, bool value) {
    return Put<std::uint8_t>(dst, value ? 1 : 0);
}

int TCSerializeHelper::Serialize(char* dst, int value) {
    return Put(dst, value);
}

int TCSerializeHelper::Serialize(char* dst, double value) {
    return Put(dst, value);
}

int TCSerializeHelper::Serialize(char* dst, const TCString& value) {
    return PutCounted(dst, static_cast<const char*>(value), value.GetLength());
}

int TCSerializeHelper::Serialize(char* dst, const CString& value) {
    return PutCounted(dst, value.data(), static_cast<int>(value.size()));
}

int TCSerializeHelper::Serialize(char* dst, const TCSI_Unit& value) {
    int size = Put(dst, value.GetFactor());
    for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i)
        size += Put(dst != nullptr ? dst + size : nullptr, value.GetExponent(i));
    return size;
}

int TCSerializeHelper::Serialize(char* dst, const void* value) {
    return Put(dst, static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(value)));
}

int TCSerializeHelper::Serialize(char* dst, const unsigned char* bytes, int count, int withLength) {
    if (withLength != 0) return PutCounted(dst, bytes, count);
    if (dst != nullptr && count > 0) std::memcpy(dst, bytes, static_cast<std::size_t>(count));
    return std::max(count, 0);
}

int TCSerializeHelper::SerializeWithStatus(char* dst, const TCTypeInfo& value) {
    ItemWriter record(dst != nullptr ? dst + sizeof(int) : nullptr);
    record << value.GetTimestamp() << value.GetSamplerate() << value.GetUnit() << value.GetRangeMin()
           << value.GetRangeMax() << value.GetSignalnameString() << static_cast<int>(value.GetState());
    return Put(dst, record.Size()) + record.Size();
}

const char* TCSerializeHelper::DeSerialize(bool& value, const char* src) {
    value = *src != 0;
    return src + 1;
}

const char* TCSerializeHelper::DeSerialize(int& value, const char* src) {
    return Get(value, src);
}

const char* TCSerializeHelper::DeSerialize(unsigned int& value, const char* src) {
    return Get(value, src);
}

const char* TCSerializeHelper::DeSerialize(unsigned long& value, const char* src) {
    std::uint32_t word;
    src = Get(word, src);
    value = word;
    return src;
}

const char* TCSerializeHelper::DeSerialize(double& value, const char* src) {
    return Get(value, src);
}

const char* TCSerializeHelper::DeSerialize(TCString& value, const char* src) {
    int length;
    src = GetCount(length, src);
    value.AllocCopy(src, length);
    return src + length;
}

const char* TCSerializeHelper::DeSerialize(CString& value, const char* src) {
    int length;
    src = GetCount(length, src);
    value.assign(src, static_cast<std::size_t>(length));
    return src + length;
}

const char* TCSerializeHelper::DeSerialize(TCSI_Unit& value, const char* src) {
    double factor;
    src = Get(factor, src);
    value.SetFactor(factor);
    for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i)
        value.SetExponent(i, static_cast<std::int8_t>(*src++));
    return src;
}

const char* TCSerializeHelper::DeSerialize(const void*& value, const char* src) {
    std::uint32_t address;
    src = Get(address, src);
    value = reinterpret_cast<const void*>(std::uintptr_t{address});
    return src;
}

const char* TCSerializeHelper::DeSerialize(unsigned char* bytes, int count, const char* src, int withLength) {
    int stored = std::max(count, 0);
    if (withLength != 0) src = GetCount(stored, src);
    const int copied = std::min(stored, std::max(count, 0));
    if (copied > 0) std::memcpy(bytes, src, static_cast<std::size_t>(copied));
    return src + stored;
}

const char* TCSerializeHelper::DeSerializeWithStatus(TCTypeInfo& value, const char* src) {
    int length;
    double timestamp, samplerate, rangeMin, rangeMax;
    TCSI_Unit unit;
    int nameLength, state;
    src = GetCount(length, src);
    const char* item = DeSerialize(samplerate, DeSerialize(timestamp, src));
    item = DeSerialize(rangeMax, DeSerialize(rangeMin, DeSerialize(unit, item)));
    const char* const name = GetCount(nameLength, item);
    DeSerialize(state, name + nameLength);
    value.SetTimestamp(timestamp);
    value.SetSamplerate(samplerate);
    value.SetUnit(unit);
    value.SetRangeMin(rangeMin);
    value.SetRangeMax(rangeMax);
    value.SetSignalname(std::string_view(name, static_cast<std::size_t>(nameLength)));
    value.SetState(static_cast<TCBLOCKSTATUS>(state));
    return src + length;
}
