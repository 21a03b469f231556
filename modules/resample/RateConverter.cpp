#include "modules/resample/RateConverter.h"

#include <soxr.h>

#include <algorithm>
#include <cmath>

namespace {

constexpr unsigned long RECIPES[] = {SOXR_QQ, SOXR_LQ, SOXR_MQ, SOXR_HQ, SOXR_VHQ};
constexpr std::size_t PIECE = 8192;

}  // namespace

struct RateConverter::Converter {
    Converter(double inputRate, double outputRate, ResampleQuality quality, soxr_error_t& error) {
        const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT64_I, SOXR_FLOAT64_I);
        const soxr_quality_spec_t spec = soxr_quality_spec(RECIPES[static_cast<int>(quality)], 0);
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

bool RateConverter::Run(const double* values, int count, bool last, std::vector<double>& output,
                        std::string& error) {
    output.clear();
    const auto size = static_cast<std::size_t>(count);
    const auto notFinite = [](double value) { return !std::isfinite(value); };
    if (std::any_of(values, values + count, notFinite)) {
        finite.assign(values, values + count);
        leftOut += std::count_if(finite.begin(), finite.end(), notFinite);
        std::replace_if(finite.begin(), finite.end(), notFinite, 0.0);
        values = finite.data();
    }
    taken += count;
    if (size > 0 && !Process(values, size, output, error)) return false;
    if (last && taken > 0 && !Process(nullptr, 0, output, error)) return false;
    made += static_cast<std::int64_t>(output.size());
    if (!last) return true;
    // The library may be a sample off.
    const auto wanted = static_cast<std::int64_t>(std::llround(static_cast<double>(taken) * ratio));
    output.resize(static_cast<std::size_t>(
                      std::max<std::int64_t>(0, static_cast<std::int64_t>(output.size()) + wanted - made)),
                  output.empty() ? 0.0 : output.back());
    return true;
}

// Without values: what is left.
bool RateConverter::Process(const double* values, std::size_t count, std::vector<double>& output,
                            std::string& error) {
    for (std::size_t used = 0, room = 0, got = 0;;) {
        const std::size_t filled = output.size();
        room = PIECE;
        output.resize(filled + room);
        std::size_t consumed = 0;
        const soxr_error_t failure =
            soxr_process(converter->handle, values != nullptr ? values + used : nullptr, count - used,
                         &consumed, output.data() + filled, room, &got);
        output.resize(filled + got);
        used += consumed;
        if (failure != nullptr) {
            error = failure;
            return false;
        }
        if (got < room && used == count) return true;
    }
}
