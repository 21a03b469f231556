#include "sigweave/module/ModuleLibrary.h"

#ifdef TEST_VERSION

int TCGetInterfaceVersionProvidedByModule() {
    return TEST_VERSION;
}

int TCGetInterfaceVersionRequiredByModule() {
    return TEST_VERSION;
}

#endif
