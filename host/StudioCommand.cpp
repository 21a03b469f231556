#include "host/StudioCommand.h"

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "host/Commands.h"
#include "host/Console.h"
#include "sigweave/platform/BecomeProgram.h"
#include "sigweave/platform/Process.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/StringResources.h"

namespace host {

int BeginStudio(const std::vector<std::string>& arguments) {
    using tc::Bilingual;
    const std::string program = (std::filesystem::path(TCGetProgramFolder()) / "sigweave-studio").string();
    std::vector<std::string> all{"--language", TCGetResourceLanguage() == 1 ? "de" : "en"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    const int code = tc::BecomeProgram(program, all);
    if (code == ENOENT)
        console::Error(
            Bilingual("the studio is not there (%1); install the package sigweave-studio, or build it "
                      "with './run studio'",
                      "das Studio fehlt (%1); installieren Sie das Paket sigweave-studio, oder bauen "
                      "Sie es mit './run studio'")
                .With({program}));
    else
        console::Error(program + ": " + std::generic_category().message(code));
    return EXIT_INCOMPLETE;
}

}  // namespace host
