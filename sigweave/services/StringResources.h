#pragma once

#include "sigweave/platform/Export.h"
#include "sigweave/platform/Framework.h"
#include "sigweave/platform/ModuleHandle.h"

// Texts of the user interface in two languages, 0 and 1, by number. Look-ups never fail: a text that is
// missing in language 1 is taken from language 0, and what is missing there is the empty text. Settings are
// process-wide, without a lock: make them at start-up.

// One row of a module's table. The texts may be null; they live as long as the table.
struct _TC_StrResource {
    int id;
    const char* language0;
    const char* language1;
};

// What a module library may define, with these names, so that its texts can be loaded by its handle.
extern "C" {
extern TC_API const _TC_StrResource TCStringResources[];
extern TC_API const int TCStringResourceCount;
}

// The language in use. As long as none is set: 1 when the calling thread's locale is German, else 0.
TC_API int TCGetResourceLanguage();
// 0 or 1; what is below or above counts as the nearer one, so the automatic choice does not come back.
// Answers the setting before, -1 for the automatic choice.
TC_API int TCSetLoadStrResLanguage(int language);

// The text of the first row with that id, never null. `language` is limited to 0 and 1.
TC_API const char* LoadStrRes(int id, int language, int count, const _TC_StrResource* table);
TC_API const char* LoadStrRes(int id, int count, const _TC_StrResource* table);

// From the table that a module library exports, in the language in use. A null module means the current
// resource module.
TC_API CString LoadStrRes(unsigned int resourceId, HINSTANCE module);
// Sets the current resource module (null, the default: none) and answers the one before. The library must
// stay loaded.
TC_API HINSTANCE TCSetResourceModule(HINSTANCE module);
