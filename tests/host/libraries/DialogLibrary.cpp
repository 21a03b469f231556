#include "sigweave/module/ModuleLibrary.h"
#include "tests/host/TestDialog.h"

TC_MODULE_LIBRARY(TestDialog);
