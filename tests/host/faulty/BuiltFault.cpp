// FAULT is one of the names in Fault.h.
#include "tests/host/faulty/Fault.h"

const Fault builtFault = Fault::FAULT;
