#include "host/HostWindow.h"

#include <utility>

#include "host/Console.h"
#include "host/Guard.h"
#include "host/RunLog.h"
#include "sigweave/foundation/HostRecords.h"
#include "sigweave/module/TCValidateActualPortType.h"

namespace host {
namespace {

std::string Quoted(const char* text) {
    return "'" + Text(text) + "'";
}

void ShowError(const TCErrorRecord& record) {
    console::FromModule("error", TCLogFile::ERROR, record.module, record.text);
}

void ShowBalloon(const TCBalloonRecord& record) {
    const std::string caption = Text(record.caption);
    const std::string text = Text(record.text);
    const std::string speaker = console::Speaker();
    const std::string note = caption + (caption.empty() || text.empty() ? "" : ": ") + text;
    console::Say("note: " + speaker + (speaker.empty() ? "" : ": ") + note);
    runlog::FromModule(TCLogFile::NOTICE, speaker, note);
}

}  // namespace

int ConsoleDevice::SetMapMode(int mode) {
    return std::exchange(mapMode, mode);
}

HostWindow::HostWindow() {
    TCSetMainWindow(this);
}

HostWindow::~HostWindow() {
    TCSetMainWindow(nullptr);
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
    const std::string sides =
        "it takes " + Quoted(difference.expected) + ", and the line brings " + Quoted(difference.actual);
    if (difference.code == VALIDATION_STRUCT::DECLARATOR_DIFFERS) {
        difference.answer = Accepts(difference) ? 1 : 0;
        if (difference.answer == 0)
            refusals.push_back("the input expects data of another meaning: " + sides +
                               "; if that is right, " + acceptRemedy);
    } else if (difference.code == VALIDATION_STRUCT::TOKEN_DIFFERS) {
        refusals.push_back("the input takes data of another type: " + sides +
                           "; wire it to an output of its type");
    } else {
        refusals.push_back(
            "neither the output nor the input has a data type; the modules' authors must declare one");
    }
}

bool HostWindow::Accepts(const VALIDATION_STRUCT& difference) {
    if (acceptAll) return true;
    const auto key = std::tuple<std::string, std::string, std::string>(difference.name, difference.expected,
                                                                       difference.actual);
    if (accepted.contains(key)) return true;
    const bool yes = console::Ask(line + ": " + console::FullName(difference.name) + " expects " +
                                  Quoted(difference.expected) + ", and the line brings " +
                                  Quoted(difference.actual) + ". Wire it anyway?");
    if (yes) accepted.insert(key);
    return yes;
}

}  // namespace host
