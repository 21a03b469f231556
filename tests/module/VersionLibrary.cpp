#include "sigweave/module/ModuleLibrary.h"

int TCGetInterfaceVersionProvidedByModule() {
    return TEST_VERSION;
}

int TCGetInterfaceVersionRequiredByModule() {
    return TEST_VERSION;
}
