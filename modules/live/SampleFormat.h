#pragma once

#include <cstddef>
#include <span>
#include <string_view>

// How samples are stored as bytes.
namespace live {

struct SampleFormat {
    enum Kind { SIGNED, UNSIGNED, FLOAT };

    const char* word;  // in settings
    Kind kind;
    int bytes;
    bool isBigEndian;

    // What it can hold; of floating point -1 to 1 by convention.
    double RangeMinimum() const;
    double RangeMaximum() const;
};

// 24 bits are packed into three bytes.
inline constexpr SampleFormat FORMATS[] = {
    {"s8", SampleFormat::SIGNED, 1, false},      {"u8", SampleFormat::UNSIGNED, 1, false},
    {"s16le", SampleFormat::SIGNED, 2, false},   {"s16be", SampleFormat::SIGNED, 2, true},
    {"u16le", SampleFormat::UNSIGNED, 2, false}, {"u16be", SampleFormat::UNSIGNED, 2, true},
    {"s24le", SampleFormat::SIGNED, 3, false},   {"s24be", SampleFormat::SIGNED, 3, true},
    {"s32le", SampleFormat::SIGNED, 4, false},   {"s32be", SampleFormat::SIGNED, 4, true},
    {"f32le", SampleFormat::FLOAT, 4, false},    {"f32be", SampleFormat::FLOAT, 4, true},
    {"f64le", SampleFormat::FLOAT, 8, false},    {"f64be", SampleFormat::FLOAT, 8, true},
};

// The value of one of the channels in each frame: `count` values, `frameBytes` apart, times the factor, plus
// the offset.
void Decode(const SampleFormat& format, const std::byte* first, std::size_t frameBytes, std::size_t count,
            double factor, double offset, double* values);

}  // namespace live
