#pragma once

#include <array>
#include <optional>

#include "sigweave/platform/Export.h"
#include "sigweave/platform/Framework.h"
#include "sigweave/platform/ModuleHandle.h"
#include "sigweave/services/Bilingual.h"

// A text of the user interface that is in the language in use whenever it is asked for. A plain value.
class TC_API TCTranslatedString {
 public:
    // Empty.
    TCTranslatedString() = default;
    // One text for both languages.
    TCTranslatedString(const char* text);
    TCTranslatedString(const char* english, const char* german);
    TCTranslatedString(const tc::Bilingual& bilingual);
    // Of a module's string resources (see StringResources.h); a null module means the current one.
    TCTranslatedString(unsigned resourceId, HINSTANCE resourceModule);

    CString Get() const;
    bool IsEmpty() const { return Get().empty(); }

 private:
    std::array<CString, 2> texts;
    std::optional<tc::Bilingual> message;
    std::optional<unsigned> resource;
    HINSTANCE module = nullptr;
};
