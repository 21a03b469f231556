#include "host/TerminalCommand.h"

#include <filesystem>

#include "host/Console.h"
#include "host/InstanceDialog.h"
#include "host/Interruption.h"
#include "host/TerminalForm.h"
#include "sigweave/platform/Process.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr Bilingual NO_TERMINAL(
    "there is no terminal to ask in; write 'sigweave set %1 %2 NAME=VALUE', or use 'sigweave form %1 %2'",
    "es gibt kein Terminal, um zu fragen; schreiben Sie 'sigweave set %1 %2 NAME=WERT', oder nehmen Sie "
    "'sigweave form %1 %2'");
constexpr Bilingual WRITTEN("%1: written: %2", "%1: geschrieben: %2");
constexpr Bilingual HIDDEN("(hidden)", "(verborgen)");

// Made when it is first asked for, not before the standard streams are kept: it takes the number of one that
// is closed.
Interruption& Wish() {
    static Interruption interruption;
    return interruption;
}

Conversation Speak() {
    return {[](const std::string& prompt, bool hidden, std::string& line) {
                return console::ReadLine(prompt, hidden, Wish(), line);
            },
            [](const std::string& line) { console::Say(line); }};
}

void TellEnd(const SetOptions& set, const InstanceDialog& instance) {
    for (const auto& [name, value] : instance.Written())
        console::Say(WRITTEN.With(
            {set.graph, name + "=" + (instance.IsSecret(name) ? HIDDEN.Text() : value.c_str())}));
    if (instance.Written().empty()) console::Say(NOT_CHANGED.With({set.graph}));
}

}  // namespace

int ShowTerminalForm(const SetOptions& set, const CommandOptions& options) {
    Mistakes mistakes;
    const ModuleCatalogue catalogue = OpenCatalogue(options);
    InstanceDialog instance(set, catalogue);
    if (!console::CanAsk())
        mistakes.Add({set.graph}, NO_TERMINAL.With({set.graph, set.instance}));
    else
        instance.Open(mistakes);
    if (!mistakes.IsEmpty()) {
        for (const Mistake& mistake : mistakes.InOrder())
            console::Error(ToText(mistake.place) + ": " + mistake.text);
        return EXIT_WRONG_INPUT;
    }
    Wish();  // before a signal asks for it
    TCOnInterrupt([] { Wish().Raise(); }, WaitingCalls::Fail);
    TCDialog shown(instance.Description());
    TerminalForm form(shown, Speak(), std::filesystem::path(set.graph).parent_path().string());
    instance.End(form.Run());
    TellEnd(set, instance);
    return Wish().IsRaised() && instance.Written().empty() ? EXIT_INTERRUPTED : EXIT_COMPLETE;
}

}  // namespace host
