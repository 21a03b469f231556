#pragma once

#include "sigweave/foundation/TCLogFont.h"
#include "sigweave/platform/Export.h"

// A font for each language, of which the one of the language in use counts whenever it is asked for. A plain
// value.
class TC_API TCTranslatedFont {
 public:
    // The default font, for both.
    TCTranslatedFont() = default;
    TCTranslatedFont(const TCLogFont& font) : fonts{font, font} {}
    TCTranslatedFont(const TCLogFont& language0, const TCLogFont& language1) : fonts{language0, language1} {}

    const TCLogFont& Get() const;

 private:
    TCLogFont fonts[2];
};
