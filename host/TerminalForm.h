#pragma once

#include <functional>
#include <string>
#include <vector>

#include "sigweave/ui/TCDialog.h"

namespace host {

// How a form speaks with a person.
struct Conversation {
    // Asks for a line; false at the end of the input. What is typed for a hidden one does not appear.
    std::function<bool(const std::string& prompt, bool hidden, std::string& line)> read;
    std::function<void(const std::string& line)> say;
};

// A dialog in a terminal, line by line (docs/dialogs.md). Nothing moves the cursor and nothing is drawn, so
// it works over any connection and with a screen reader. Fields have numbers; refusals are the dialog's own.
class TerminalForm {
 public:
    // The dialog must outlive it. Relative paths start at the folder.
    TerminalForm(TCDialog& dialog, Conversation conversation, std::string folderOfPaths);

    // Until it is ended: TCDialog::OK, or CANCEL, also when the input ends.
    int Run();

 private:
    using Info = TCPropertyDialogInfo;
    struct Command;
    struct Page {
        std::string title;
        std::vector<int> items;  // indexes in the dialog
    };

    void Do(const std::string& line);
    bool DoField(const std::string& line);
    bool DoAssignment(const std::string& line);
    void Step(int pages);
    void Help(const std::string& rest);
    void Undo();
    void Choose(const std::string& rest);
    void End(int wanted);

    std::vector<Page> Pages() const;
    const Info* SectionOf(const Info& item) const;
    void ShowPage();
    std::string Line(int index) const;
    int NumberOf(int index) const;
    std::string Shown(const Info& item) const;
    const Info* FindNumber(const std::string& word) const;
    void Describe(const Info& item) const;
    void Edit(const Info& item);
    void EditLines(const Info& item);
    bool Set(const std::string& key, const std::string& text);
    void Press(const std::string& key);

    TCDialog& shown;
    Conversation speak;
    std::string folder;
    std::size_t page = 0;
    bool over = false;
    int result = TCDialog::CANCEL;
};

// What people call an item: its label, else its key.
std::string NameOf(const TCPropertyDialogInfo& item);
// Changes the rows of a list, one command a line, until an empty one. False when the input has ended.
bool EditRows(TCDialog& dialog, const TCPropertyDialogInfo& item, const Conversation& speak);

}  // namespace host
