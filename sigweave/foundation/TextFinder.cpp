#include "sigweave/foundation/TextFinder.h"

#include <cstring>

#include "sigweave/platform/CodePage.h"

namespace tc {

TextFinder::TextFinder(std::string_view text) : wanted(text), direct(BeginsCharacter(text[0])) {}

const char* TextFinder::Find(const char* from, const char* end) const {
    const char* boundary = from;
    for (const char* hit = from;; ++hit) {
        hit = static_cast<const char*>(
            memmem(hit, static_cast<std::size_t>(end - hit), wanted.data(), wanted.size()));
        if (hit == nullptr) return end;
        if (direct) return hit;
        while (boundary < hit) boundary += CharacterAt(boundary, end).bytes;
        if (boundary == hit) return hit;
    }
}

}  // namespace tc
