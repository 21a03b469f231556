#include "tests/host/TestModules.h"

TC_MODULE_LIBRARY(TestSource, TestPass, TestJoin, TestReader);
