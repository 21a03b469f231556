#include "modules/live/SampleFormat.h"

#include <bit>
#include <cmath>
#include <cstdint>

namespace live {
namespace {

template <int BYTES, bool IS_BIG>
std::uint64_t ReadWord(const std::byte* bytes) {
    std::uint64_t word = 0;
    for (int i = 0; i < BYTES; ++i)
        word |= std::to_integer<std::uint64_t>(bytes[i]) << (8 * (IS_BIG ? BYTES - 1 - i : i));
    return word;
}

template <SampleFormat::Kind KIND, int BYTES>
double ToNumber(std::uint64_t word) {
    if constexpr (KIND == SampleFormat::FLOAT && BYTES == 4)
        return static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(word)));
    else if constexpr (KIND == SampleFormat::FLOAT)
        return std::bit_cast<double>(word);
    else if constexpr (KIND == SampleFormat::UNSIGNED)
        return static_cast<double>(word);
    else
        return static_cast<double>(static_cast<std::int64_t>(word << (64 - 8 * BYTES)) >> (64 - 8 * BYTES));
}

struct Place {
    const std::byte* first;
    std::size_t frameBytes;
    std::size_t count;
    double factor;
    double offset;
    double* values;
};

template <SampleFormat::Kind KIND, int BYTES, bool IS_BIG>
void DecodeAll(const Place& place) {
    const std::byte* from = place.first;
    for (std::size_t i = 0; i < place.count; ++i, from += place.frameBytes)
        place.values[i] = ToNumber<KIND, BYTES>(ReadWord<BYTES, IS_BIG>(from)) * place.factor + place.offset;
}

template <SampleFormat::Kind KIND, int BYTES>
void DecodeInOrder(bool isBigEndian, const Place& place) {
    isBigEndian ? DecodeAll<KIND, BYTES, true>(place) : DecodeAll<KIND, BYTES, false>(place);
}

template <SampleFormat::Kind KIND>
void DecodeIntegers(const SampleFormat& format, const Place& place) {
    switch (format.bytes) {
        case 1:
            return DecodeInOrder<KIND, 1>(false, place);
        case 2:
            return DecodeInOrder<KIND, 2>(format.isBigEndian, place);
        case 3:
            return DecodeInOrder<KIND, 3>(format.isBigEndian, place);
        default:
            return DecodeInOrder<KIND, 4>(format.isBigEndian, place);
    }
}

}  // namespace

double SampleFormat::RangeMinimum() const {
    if (kind == FLOAT) return -1.0;
    return kind == UNSIGNED ? 0.0 : -std::ldexp(1.0, 8 * bytes - 1);
}

double SampleFormat::RangeMaximum() const {
    if (kind == FLOAT) return 1.0;
    return std::ldexp(1.0, kind == UNSIGNED ? 8 * bytes : 8 * bytes - 1) - 1.0;
}

void Decode(const SampleFormat& format, const std::byte* first, std::size_t frameBytes, std::size_t count,
            double factor, double offset, double* values) {
    const Place place{first, frameBytes, count, factor, offset, values};
    switch (format.kind) {
        case SampleFormat::SIGNED:
            return DecodeIntegers<SampleFormat::SIGNED>(format, place);
        case SampleFormat::UNSIGNED:
            return DecodeIntegers<SampleFormat::UNSIGNED>(format, place);
        case SampleFormat::FLOAT:
            break;
    }
    if (format.bytes == 4) return DecodeInOrder<SampleFormat::FLOAT, 4>(format.isBigEndian, place);
    DecodeInOrder<SampleFormat::FLOAT, 8>(format.isBigEndian, place);
}

}  // namespace live
