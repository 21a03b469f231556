#pragma once

#include "sigweave/platform/Export.h"

// Where messages about the language of the user interface arrive. They go to CTranslator, unless whoever
// translates dialogs in another way installs a handler.
class TC_API TCTranslated {
 public:
    using Handler = long (*)(unsigned id, long param);

    // Null removes the handler. Set once at start-up, before modules run.
    static void SetHandler(Handler handler);
    // Answers what the handler answers.
    static long GetMessageA(unsigned id, long param);
};
