#include "host/check/Checks.h"
#include "host/check/NameRules.h"
#include "sigweave/services/Bilingual.h"

namespace host::check {
namespace {

using tc::Bilingual;
using Step = ModuleLibrary::Step;

// Fails when the library stumbles at that step, and says nothing when it stumbles before.
std::unique_ptr<ModuleLibrary> OpenAsFarAs(const CheckSubject& subject, Step step) {
    std::string error;
    Step failed = Step::Done;
    std::unique_ptr<ModuleLibrary> library = ModuleLibrary::Open(subject.Options().library, error, &failed);
    const std::size_t split = std::min(error.find("; "), error.size());
    const std::string remedy = error.substr(std::min(split + 2, error.size()));
    if (failed == step) Fail(error.substr(0, split), remedy);
    if (failed < step) DoesNotApply(error.substr(0, split), remedy);
    return library;
}

}  // namespace

Finding CheckEntryPoints(CheckSubject& subject) {
    OpenAsFarAs(subject, Step::EntryPoints);
    return Passed(Bilingual("all four are exported", "alle vier sind exportiert").Text());
}

Finding CheckVersions(CheckSubject& subject) {
    OpenAsFarAs(subject, Step::Versions);
    return Passed(Bilingual("they fit this program", "sie passen zu diesem Programm").Text());
}

Finding CheckIds(CheckSubject& subject) {
    const auto library = OpenAsFarAs(subject, Step::Ids);
    for (const std::string& id : library->GetIds()) {
        const std::string mistake = WhyNoId(id);
        if (!mistake.empty())
            Fail(Bilingual("the module id '%1' %2", "die Modulkennung '%1' %2").With({id, mistake}),
                 Bilingual(
                     "a graph file must be able to name it: choose an ID of letters, digits and '_'",
                     "eine Graphdatei muss sie nennen können: wählen Sie eine ID aus Buchstaben, Ziffern "
                     "und '_'")
                     .Text());
    }
    return Passed(Bilingual("%1, all different", "%1, alle verschieden")
                      .With({std::to_string(library->GetIds().size())}));
}

}  // namespace host::check
