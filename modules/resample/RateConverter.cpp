#include "modules/resample/RateConverter.h"

#include <soxr.h>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace {

constexpr unsigned long RECIPES[] = {SOXR_QQ, SOXR_LQ, SOXR_MQ, SOXR_HQ, SOXR_VHQ};
constexpr std::size_t PIECE = 8192;

// Several at once: a value that is not finite makes its lane NaN.
bool AreFinite(const double* values, std::size_t count) {
    constexpr std::size_t LANES = 8;
    double lanes[LANES] = {};
    std::size_t i = 0;
    for (; i + LANES <= count; i += LANES)
        for (std::size_t lane = 0; lane < LANES; ++lane) lanes[lane] += values[i + lane] * 0.0;
    for (; i < count; ++i) lanes[0] += values[i] * 0.0;
    return std::accumulate(lanes, lanes + LANES, 0.0) == 0.0;
}

}  // namespace

struct RateConverter::Converter {
    Converter(double inputRate, double outputRate, ResampleQuality quality, soxr_error_t& error) {
        const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT64_I, SOXR_FLOAT64_I);
        // Else a ratio that is no quotient of small numbers is off by so much that long signals drift.
        const soxr_quality_spec_t spec =
            soxr_quality_spec(RECIPES[static_cast<int>(quality)], SOXR_HI_PREC_CLOCK);
        handle = soxr_create(inputRate, outputRate, 1, &error, &io, &spec, nullptr);
    }
    ~Converter() { soxr_delete(handle); }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    soxr_t handle;
};

RateConverter::RateConverter() = default;
RateConverter::~RateConverter() = default;
RateConverter::RateConverter(RateConverter&&) noexcept = default;
RateConverter& RateConverter::operator=(RateConverter&&) noexcept = default;

bool RateConverter::Begin(double inputRate, double outputRate, ResampleQuality quality, std::string& error) {
    soxr_error_t failure = nullptr;
    converter = std::make_unique<Converter>(inputRate, outputRate, quality, failure);
    if (failure != nullptr) error = failure;
    ratio = outputRate / inputRate;
    taken = made = leftOut = 0;
    return failure == nullptr;
}

bool RateConverter::Run(const double* values, int count, bool last, std::span<const double>& output,
                        std::string& error) {
    filled = 0;
    const auto size = static_cast<std::size_t>(count);
    if (!AreFinite(values, size)) {
        const auto notFinite = [](double value) { return !std::isfinite(value); };
        finite.assign(values, values + count);
        leftOut += std::count_if(finite.begin(), finite.end(), notFinite);
        std::replace_if(finite.begin(), finite.end(), notFinite, 0.0);
        values = finite.data();
    }
    taken += count;
    if (size > 0 && !Process(values, size, error)) return false;
    if (last && taken > 0 && !Process(nullptr, 0, error)) return false;
    made += static_cast<std::int64_t>(filled);
    if (last) EndAtWhole();
    output = {buffer.data(), filled};
    return true;
}

// The library may be a sample off.
void RateConverter::EndAtWhole() {
    const auto wanted = static_cast<std::int64_t>(std::llround(static_cast<double>(taken) * ratio));
    const auto size = std::max<std::int64_t>(0, static_cast<std::int64_t>(filled) + wanted - made);
    const double end = filled == 0 ? 0.0 : buffer[filled - 1];
    buffer.resize(std::max(buffer.size(), static_cast<std::size_t>(size)));
    for (; filled < static_cast<std::size_t>(size); ++filled) buffer[filled] = end;
    filled = static_cast<std::size_t>(size);
}

// Without values: what is left.
bool RateConverter::Process(const double* values, std::size_t count, std::string& error) {
    for (std::size_t used = 0;;) {
        if (buffer.size() < filled + PIECE) buffer.resize(filled + PIECE);
        const std::size_t room = buffer.size() - filled;
        std::size_t consumed = 0;
        std::size_t got = 0;
        const soxr_error_t failure =
            soxr_process(converter->handle, values != nullptr ? values + used : nullptr, count - used,
                         &consumed, buffer.data() + filled, room, &got);
        filled += got;
        used += consumed;
        if (failure != nullptr) {
            error = failure;
            return false;
        }
        if (got < room && used == count) return true;
    }
}
