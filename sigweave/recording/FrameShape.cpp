#include "sigweave/recording/FrameShape.h"

#include <cstring>

#include "sigweave/recording/RecordBytes.h"

namespace tc::recording {

// As docs/packed-frames.md describes it.
std::int64_t CountFirstElements(std::string_view frame) {
    if (frame.size() < FRAME_HEAD + 1) return -1;
    std::size_t at = FRAME_HEAD;
    const auto take = [&](std::int32_t& value) {
        if (at > frame.size() || frame.size() - at < sizeof value) return false;
        std::memcpy(&value, frame.data() + at, sizeof value);
        at += sizeof value;
        return true;
    };
    std::int32_t rest = 0, segments = 0, nameLength = 0, type = 0, dimensions = 0;
    if (frame[at++] != 0) {
        if (!take(rest) || rest < 0) return -1;
        at += static_cast<std::size_t>(rest);
    }
    if (!take(segments)) return -1;
    if (segments == 0) return 0;
    if (!take(nameLength) || nameLength < 0) return -1;
    at += static_cast<std::size_t>(nameLength);
    if (!take(type) || !take(dimensions) || dimensions < 0) return -1;
    std::int64_t count = 1;
    for (std::int32_t i = 0; i < dimensions; ++i) {
        std::int32_t extent = 0;
        if (!take(extent) || extent < 0) return -1;
        count *= extent;
        if (count > INT32_MAX) return -1;
    }
    return count;
}

}  // namespace tc::recording
