#pragma once

#include <iosfwd>
#include <memory>
#include <string>

#include "sigweave/ui/TCDialog.h"

namespace host {

// Speaks a dialog as lines of JSON (docs/dialogs.md): its description first, then an answer to each line that
// is read. Whatever comes in, nothing is changed by what is refused.
class FormSession {
 public:
    // The dialog must outlive it. In choosers, relative paths start at the folder.
    explicit FormSession(TCDialog& dialog, std::string folderOfPaths = "");
    ~FormSession();

    // The line that describes all items.
    std::string Describe() const;
    // The answer to one line.
    std::string Answer(const std::string& line);
    // Whether it was ended, and with which result.
    bool IsOver() const { return over; }
    int GetResult() const { return result; }
    // Until it is over or the input ends.
    void Run(std::istream& in, std::ostream& out);

 private:
    struct Chooser;

    bool Do(const std::string& line, TCDialog::Refusal& refusal);
    bool Choose(const CString& key, TCDialog::Refusal& refusal);
    std::string AnswerOfChooser(const std::string& line);

    TCDialog& shown;
    std::string folder;
    std::unique_ptr<Chooser> chooser;
    int result = TCDialog::CANCEL;
    bool over = false;
};

}  // namespace host
