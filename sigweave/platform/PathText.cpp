#include "sigweave/platform/PathText.h"

#include "sigweave/platform/CodePage.h"

namespace tc {

std::string NativePath(const char* path) {
    std::string native;
    while (path != nullptr && *path != '\0') {
        const auto bytes = static_cast<std::size_t>(CharacterAt(path).bytes);
        *path == '\\' ? native += '/' : native.append(path, bytes);
        path += bytes;
    }
    return native;
}

}  // namespace tc
