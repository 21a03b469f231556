#pragma once

// Everything that a module or a host needs.
#include "sigweave/foundation/HostRecords.h"
#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/foundation/TCError.h"
#include "sigweave/foundation/TCString.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/module/TCModuleMessage.h"
#include "sigweave/services/SystemTime.h"
