#include "sigweave/platform/PathText.h"

#include <algorithm>

namespace tc {

std::string NativePath(const char* path) {
    std::string native(path != nullptr ? path : "");
    std::ranges::replace(native, '\\', '/');
    return native;
}

}  // namespace tc
