#include "sigweave/services/StringResources.h"

extern "C" {
const _TC_StrResource TCStringResources[] = {{7, "channel", "Kanal"}, {8, "only one", nullptr}};
const int TCStringResourceCount = 2;
}
