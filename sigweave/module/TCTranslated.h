#pragma once

#include "sigweave/platform/Export.h"

// Where messages about the language of the user interface arrive. Whoever translates a module's dialogs
// installs a handler; without one the messages have no effect.
class TC_API TCTranslated {
 public:
    using Handler = long (*)(unsigned id, long param);

    // Null removes the handler. Set once at start-up, before modules run.
    static void SetHandler(Handler handler);
    // Answers what the handler answers, or 0.
    static long GetMessageA(unsigned id, long param);
};
