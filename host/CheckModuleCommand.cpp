#include "host/CheckModuleCommand.h"

#include "host/Commands.h"
#include "host/Console.h"
#include "host/check/CheckReportText.h"
#include "host/check/ModuleChecker.h"

namespace host {

int CheckModuleLibrary(const check::CheckOptions& options) {
    check::ModuleChecker checker(options);
    std::string error;
    if (!checker.Prepare(error)) {
        console::Error(error);
        return EXIT_WRONG_INPUT;
    }
    const check::CheckReport report = checker.Run();
    const bool written = console::Print(options.json ? WriteJson(report) : WriteText(report));
    return written && report.Count(check::Finding::FAILED) == 0 ? EXIT_COMPLETE : EXIT_INCOMPLETE;
}

}  // namespace host
