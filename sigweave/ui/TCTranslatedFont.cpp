#include "sigweave/ui/TCTranslatedFont.h"

#include "sigweave/services/StringResources.h"

const TCLogFont& TCTranslatedFont::Get() const {
    return fonts[TCGetResourceLanguage() == 1 ? 1 : 0];
}
