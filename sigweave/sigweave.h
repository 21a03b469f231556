#pragma once

// Everything that a module or a host needs.
#include "sigweave/foundation/HostRecords.h"
#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/foundation/TCCompareDBL.h"
#include "sigweave/foundation/TCError.h"
#include "sigweave/foundation/TCFormatError.h"
#include "sigweave/foundation/TCLogFont.h"
#include "sigweave/foundation/TCString.h"
#include "sigweave/foundation/TC_Metric.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/module/TCModuleMessage.h"
#include "sigweave/platform/SystemError.h"
#include "sigweave/services/Profile.h"
#include "sigweave/services/StringResources.h"
#include "sigweave/services/SystemTime.h"
