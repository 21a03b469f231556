#include "host/check/Checks.h"

namespace host::check {
namespace {

constexpr bool LIBRARY = true;
constexpr bool MODULE = false;

constexpr NamedCheck CHECKS[] = {
    {"entry-points", nullptr, LIBRARY, CheckEntryPoints},
    {"versions", "entry-points", LIBRARY, CheckVersions},
    {"ids", "versions", LIBRARY, CheckIds},
    {"creation", nullptr, MODULE, CheckCreation},
    {"ports", "creation", MODULE, CheckPorts},
    {"parameters", "creation", MODULE, CheckParameters},
};

}  // namespace

std::span<const NamedCheck> AllChecks() {
    return CHECKS;
}

}  // namespace host::check
