#include "host/HostWindow.h"

#include <mutex>
#include <utility>

#include "host/Console.h"
#include "host/Guard.h"
#include "host/Messages.h"
#include "host/RunLog.h"
#include "sigweave/foundation/HostRecords.h"
#include "sigweave/module/TCValidateActualPortType.h"
#include "sigweave/services/Bilingual.h"

namespace host {
namespace {

using tc::Bilingual;

std::mutex windowsLock;
std::vector<HostWindow*> windows;  // that live, the youngest last

void ShowError(const TCErrorRecord& record) {
    console::FromModule(&console::ERROR_WORD, TCLogFile::ERROR, record.module, record.text);
}

void ShowBalloon(const TCBalloonRecord& record) {
    const std::string caption = Text(record.caption);
    const std::string text = Text(record.text);
    const std::string speaker = console::Speaker();
    const std::string note = caption + (caption.empty() || text.empty() ? "" : ": ") + text;
    console::Say(std::string(console::NOTE_WORD.Text()) + ": " + speaker + (speaker.empty() ? "" : ": ") +
                 note);
    runlog::FromModule(TCLogFile::NOTICE, speaker, note);
    messages::Add({Severity::Note, speaker, note, {}, true});
}

// For a line between two types of data.
const Bilingual& RemedyFor(const std::string& expected, const std::string& actual) {
    static constexpr Bilingual SELECT("a module BusSelect between them takes signals out of a bus",
                                      "ein Modul BusSelect dazwischen holt Signale aus einem Bus");
    static constexpr Bilingual JOIN("a module BusJoin between them makes a bus of signals",
                                    "ein Modul BusJoin dazwischen macht aus Signalen einen Bus");
    static constexpr Bilingual OTHER("wire it to an output of its type",
                                     "verbinden Sie ihn mit einem Ausgang seines Typs");
    constexpr const char* BUS = "STRUCT_BUS";
    if (actual.find(BUS) != std::string::npos) return SELECT;
    return expected.find(BUS) != std::string::npos ? JOIN : OTHER;
}

}  // namespace

int ConsoleDevice::SetMapMode(int mode) {
    return std::exchange(mapMode, mode);
}

HostWindow::HostWindow() {
    const std::lock_guard lock(windowsLock);
    windows.push_back(this);
    TCSetMainWindow(this);
}

HostWindow::~HostWindow() {
    const std::lock_guard lock(windowsLock);
    std::erase(windows, this);
    TCSetMainWindow(windows.empty() ? nullptr : windows.back());
}

std::vector<std::string> HostWindow::TakeRefusals() {
    return std::exchange(refusals, {});
}

long HostWindow::SendMessageA(unsigned message, unsigned long command, void* record) {
    if (message != TC_HOST_MESSAGE || record == nullptr) return 0;
    switch (static_cast<HostCommand>(command)) {
        case HostCommand::ValidatePortType:
            Validate(*static_cast<VALIDATION_STRUCT*>(record));
            return 1;
        case HostCommand::ShowError:
            ShowError(*static_cast<TCErrorRecord*>(record));
            return 1;
        case HostCommand::ShowBalloon:
            ShowBalloon(*static_cast<TCBalloonRecord*>(record));
            return 1;
        default:
            return 0;
    }
}

void HostWindow::Validate(VALIDATION_STRUCT& difference) {
    const std::string expected = Text(difference.expected);
    const std::string actual = Text(difference.actual);
    if (difference.code == VALIDATION_STRUCT::DECLARATOR_DIFFERS) {
        difference.answer = Accepts(difference) ? 1 : 0;
        if (difference.answer == 0)
            refusals.push_back(Bilingual("the input expects data of another meaning: it takes '%1', and the "
                                         "line brings '%2'; if that is right, %3",
                                         "der Eingang erwartet Daten anderer Bedeutung: er nimmt '%1', und "
                                         "die Verbindung bringt '%2'; wenn das richtig ist, %3")
                                   .With({expected, actual, acceptRemedy}));
    } else if (difference.code == VALIDATION_STRUCT::TOKEN_DIFFERS) {
        refusals.push_back(
            Bilingual(
                "the input takes data of another type: it takes '%1', and the line brings '%2'; %3",
                "der Eingang nimmt Daten anderen Typs: er nimmt '%1', und die Verbindung bringt '%2'; %3")
                .With({inputType.empty() ? expected : inputType, outputType.empty() ? actual : outputType,
                       RemedyFor(expected, actual).Text()}));
    } else {
        refusals.push_back(
            Bilingual(
                "neither the output nor the input has a data type; the modules' authors must declare one",
                "weder Ausgang noch Eingang hat einen Datentyp; die Autoren der Module müssen einen angeben")
                .Text());
    }
}

bool HostWindow::Accepts(const VALIDATION_STRUCT& difference) {
    if (acceptAll) return true;
    const auto key = std::tuple<std::string, std::string, std::string>(difference.name, difference.expected,
                                                                       difference.actual);
    if (accepted.contains(key)) return true;
    const bool yes =
        console::Ask(Bilingual("%1: %2 expects '%3', and the line brings '%4'. Wire it anyway?",
                               "%1: %2 erwartet '%3', und die Verbindung bringt '%4'. Trotzdem verbinden?")
                         .With({line, console::FullName(difference.name), Text(difference.expected),
                                Text(difference.actual)}));
    if (yes) accepted.insert(key);
    return yes;
}

}  // namespace host
