#pragma once

#include <functional>

#include "sigweave/platform/Export.h"

// The language of the user interface, for the process. Translated texts and fonts are in the language in use
// whenever they are asked for (see TCGetResourceLanguage); an object of this class learns that it has
// changed, for what shows them and must be drawn anew. On the thread of the user interface.
class TC_API CTranslator {
 public:
    // The numbers under which a host sends them to any module (never change).
    enum MESSAGE : unsigned {
        LANGUAGE = 22,  // param: the language, as for SetLanguage; answers the setting before
        CHANGED = 23    // the language has been changed in another way; answers 0
    };

    // Called after each change for as long as the object lives; it may make and end other such objects.
    explicit CTranslator(std::function<void()> whenChanged);
    ~CTranslator();
    CTranslator(const CTranslator&) = delete;
    CTranslator& operator=(const CTranslator&) = delete;

    // As TCSetLoadStrResLanguage, whose answer it gives; then calls everybody, also for the same language.
    static int SetLanguage(int language);
    static void Update();
    // Answers 0 for other messages, which have no effect.
    static long GetMessageA(unsigned id, long param);

 private:
    std::function<void()> onChange;
};
