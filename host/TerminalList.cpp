#include <charconv>
#include <utility>

#include "host/TerminalForm.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/ui/TC_ListEditCtrl.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr Bilingual COMMANDS(
    "add: asks for a new row; edit 2: for row 2 again; remove 2; move 2 1: row 2 becomes row 1; Enter: done",
    "neu: fragt nach einer neuen Zeile; ändern 2: nach Zeile 2; löschen 2; schieben 2 1: Zeile 2 wird Zeile "
    "1; Enter: fertig");
constexpr Bilingual ROW("row %1: %2", "Zeile %1: %2");
constexpr Bilingual NO_ROWS("no rows", "keine Zeilen");
constexpr Bilingual NO_COMMAND("this is no command", "das ist kein Befehl");
constexpr Bilingual NO_ROW("there is no such row", "diese Zeile gibt es nicht");

struct ListCommand {
    std::string word;
    int first = -1;  // rows from 0; -1: none
    int second = -1;
};

ListCommand Read(const std::string& line) {
    ListCommand command;
    std::size_t at = 0;
    const auto next = [&] {
        const std::size_t begin = std::min(line.find_first_not_of(' ', at), line.size());
        at = std::min(line.find(' ', begin), line.size());
        return line.substr(begin, at - begin);
    };
    command.word = next();
    for (int* const row : {&command.first, &command.second}) {
        const std::string digits = next();
        int number = 0;
        std::from_chars(digits.data(), digits.data() + digits.size(), number);
        *row = number - 1;
    }
    return command;
}

class RowEditor {
 public:
    RowEditor(const TCPropertyDialogInfo& item, const CString& text, const Conversation& conversation)
        : info(item), list(item), speak(conversation) {
        CString ignored;
        list.SetText(text, ignored);
    }

    CString Text() const { return list.GetText(); }

    void Show() const {
        if (list.GetRowCount() == 0) speak.say(NO_ROWS.Text());
        for (int row = 0; row < list.GetRowCount(); ++row) {
            std::string cells;
            for (std::size_t i = 0; i < info.columns.size(); ++i)
                cells += (i == 0 ? "" : ", ") + Name(i) + " " + list.GetCell(row, static_cast<int>(i));
            speak.say(ROW.With({std::to_string(row + 1), cells}));
        }
        speak.say(COMMANDS.Text());
    }

    // False when the input has ended.
    bool Do(const ListCommand& command) {
        if (command.word == "add" || command.word == "neu") return Ask(list.GetRowCount());
        const bool isThere = command.first >= 0 && command.first < list.GetRowCount();
        bool done = isThere;
        if (command.word == "edit" || command.word == "ändern") {
            if (isThere) return Ask(command.first);
        } else if (command.word == "remove" || command.word == "löschen") {
            done = list.Remove(command.first);
        } else if (command.word == "move" || command.word == "schieben") {
            done = list.Move(command.first, command.second);
        } else {
            speak.say(NO_COMMAND.Text());
            return true;
        }
        if (!done) speak.say(NO_ROW.Text());
        return true;
    }

 private:
    std::string Name(std::size_t column) const {
        const CString label = info.columns[column].label.Get();
        return label.empty() ? info.columns[column].key : label;
    }

    // For each cell of a row, or of a new one.
    bool Ask(int row) {
        const bool isNew = row == list.GetRowCount();
        CStringArray cells;
        for (std::size_t i = 0; i < info.columns.size(); ++i) {
            const CString before = list.GetCell(row, static_cast<int>(i));
            std::string typed;
            if (!speak.read(Name(i) + (isNew ? "" : " (" + before + ")") + "> ", false, typed)) return false;
            cells.push_back(typed.empty() ? before : typed);
        }
        TC_ListEditCtrl changed = list;
        CString refusal;
        if (!isNew) changed.Remove(row);
        if (changed.Add(cells, refusal, row))
            list.SetText(changed.GetText(), refusal);
        else
            speak.say(refusal);
        return true;
    }

    const TCPropertyDialogInfo& info;
    TC_ListEditCtrl list;
    const Conversation& speak;
};

}  // namespace

bool EditRows(TCDialog& dialog, const TCPropertyDialogInfo& item, const Conversation& speak) {
    RowEditor editor(item, dialog.GetText(item.key), speak);
    for (;;) {
        editor.Show();
        std::string line;
        if (!speak.read(NameOf(item) + "> ", false, line)) return false;
        if (line.empty()) break;
        if (!editor.Do(Read(line))) return false;
    }
    TCDialog::Refusal refusal;
    if (!dialog.SetText(CString(item.key), editor.Text(), refusal)) speak.say(refusal.text);
    return true;
}

}  // namespace host
