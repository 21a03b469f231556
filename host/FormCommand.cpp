#include "host/FormCommand.h"

#include <filesystem>
#include <iostream>

#include "host/Console.h"
#include "host/FormSession.h"
#include "host/InstanceDialog.h"

namespace host {

int ShowForm(const SetOptions& set, const CommandOptions& options) {
    const ModuleCatalogue catalogue = OpenCatalogue(options);
    InstanceDialog instance(set, catalogue);
    Mistakes mistakes;
    if (!instance.Open(mistakes)) {
        for (const Mistake& mistake : mistakes.InOrder())
            console::Error(ToText(mistake.place) + ": " + mistake.text);
        return EXIT_WRONG_INPUT;
    }
    TCDialog shown(instance.Description());
    FormSession session(shown, std::filesystem::path(set.graph).parent_path().string());
    session.Run(std::cin, std::cout);
    instance.End(session.GetResult());
    return std::cout ? EXIT_COMPLETE : EXIT_INCOMPLETE;
}

}  // namespace host
