#include "modules/sound-file/SoundDevice.h"

#include <algorithm>

#include "sigweave/services/Bilingual.h"

namespace {

constexpr double SECONDS_AT_ONCE = 0.01;

}  // namespace

live::Device::Reading SoundDevice::Read(std::span<std::byte> into) {
    SoundReader& reader = input->reader;
    const std::size_t frameBytes = sizeof(double) * static_cast<std::size_t>(reader.Channels());
    const auto most = static_cast<std::int64_t>(into.size() / frameBytes);
    const auto wanted = static_cast<std::int64_t>(reader.Samplerate() * SECONDS_AT_ONCE) + 1;
    if (most == 0) return {NOTHING};
    const std::int64_t read = reader.Read(reinterpret_cast<double*>(into.data()), std::min(most, wanted));
    if (read > 0) return {DATA, static_cast<std::size_t>(read) * frameBytes};
    return {reader.Shortage().empty() ? END : FAILED};
}

std::string SoundDevice::Name() const {
    return tc::Bilingual("standard input", "die Standardeingabe").Text();
}
