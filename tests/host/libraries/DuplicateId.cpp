// A library that offers an id which the test library offers too.
#include "tests/host/TestModules.h"

TC_MODULE_LIBRARY(TestPass);
