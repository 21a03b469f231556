#pragma once

#include <cstdint>
#include <string_view>

namespace tc::recording {

// The number of elements in the first array of a packed frame, 0 when it has none, by its first bytes: -1
// when they are not enough to say, or no frame.
std::int64_t CountFirstElements(std::string_view frame);

}  // namespace tc::recording
