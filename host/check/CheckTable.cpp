#include "host/check/Checks.h"

namespace host::check {
namespace {

constexpr bool LIBRARY = true;
constexpr bool MODULE = false;

// Random calls do whatever the others do, so they come last, and only when those find nothing.
constexpr NamedCheck CHECKS[] = {
    {"entry-points", {}, LIBRARY, CheckEntryPoints},
    {"versions", {"entry-points"}, LIBRARY, CheckVersions},
    {"ids", {"versions"}, LIBRARY, CheckIds},
    {"creation", {}, MODULE, CheckCreation},
    {"ports", {"creation"}, MODULE, CheckPorts},
    {"parameters", {"creation"}, MODULE, CheckParameters},
    {"run", {"ports"}, MODULE, CheckRun},
    {"init-done", {"run"}, MODULE, CheckInitDone},
    {"equal-runs", {"init-done"}, MODULE, CheckEqualRuns},
    {"leaks", {"init-done"}, MODULE, CheckLeaks},
    {"empty-blocks", {"run"}, MODULE, CheckEmptyBlocks},
    {"huge-blocks", {"run"}, MODULE, CheckHugeBlocks},
    {"not-a-number", {"run"}, MODULE, CheckNotANumber},
    {"random-calls", {"init-done", "empty-blocks", "huge-blocks", "not-a-number"}, MODULE, CheckRandomCalls},
};

}  // namespace

std::span<const NamedCheck> AllChecks() {
    return CHECKS;
}

}  // namespace host::check
