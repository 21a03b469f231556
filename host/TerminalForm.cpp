#include "host/TerminalForm.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <utility>

#include "sigweave/services/Bilingual.h"
#include "sigweave/ui/PropertyText.h"
#include "sigweave/ui/TCPropertyChooser.h"

namespace host {
namespace {

using tc::Bilingual;
using Info = TCPropertyDialogInfo;

constexpr std::size_t MOST_ON_A_PAGE = 20;

constexpr Bilingual COMMANDS(
    "A number changes its field, '3 value' or 'name=value' at once; '? 3' explains it.\n"
    "next, back, list: pages; undo: takes the last change back; choose 3: offers what there is;\n"
    "ok: checks and writes all; cancel: ends without a change.",
    "Eine Nummer ändert ihr Feld, '3 Wert' oder 'Name=Wert' sofort; '? 3' erklärt es.\n"
    "weiter, zurück, liste: Seiten; rückgängig: nimmt die letzte Änderung zurück; auswahl 3: zeigt, was es "
    "gibt;\nok: prüft und schreibt alles; abbrechen: endet ohne Änderung.");
constexpr Bilingual NO_COMMAND("'%1' is no command; ? lists them",
                               "'%1' ist kein Befehl; ? zeigt, welche es gibt");
constexpr Bilingual NO_FIELD("there is no field %1; 'list' shows the page",
                             "es gibt kein Feld %1; 'liste' zeigt die Seite");
constexpr Bilingual PAGE("%1 (page %2 of %3)", "%1 (Seite %2 von %3)");
constexpr Bilingual SETTINGS("Settings", "Einstellungen");
constexpr Bilingual BUTTON("%1: button", "%1: Knopf");
constexpr Bilingual PRESSED("pressed", "gedrückt");
constexpr Bilingual HIDDEN("(hidden)", "(verborgen)");
constexpr Bilingual EMPTY("(empty)", "(leer)");
constexpr Bilingual ROWS("%1 rows", "%1 Zeilen");
constexpr Bilingual CHANGED(", changed", ", geändert");
constexpr Bilingual DISABLED(", disabled", ", inaktiv");
constexpr Bilingual EXPECTED("expected: %1", "erwartet: %1");
constexpr Bilingual SUGGESTED("for example: %1", "zum Beispiel: %1");
constexpr Bilingual ONLY_WHEN("only while %1 is %2", "nur solange %1 %2 ist");
constexpr Bilingual LIVE("may change while the module runs", "darf sich im Lauf ändern");
constexpr Bilingual NOW("now: %1", "jetzt: %1");
constexpr Bilingual NEW_VALUE("new value (Enter: as it is, \"\": empty)> ",
                              "neuer Wert (Enter: wie er ist, \"\": leer)> ");
constexpr Bilingual NEW_LINES("new lines, ended by one with a point alone (a point at once: as it is)",
                              "neue Zeilen, am Ende eine nur mit einem Punkt (sofort ein Punkt: wie es ist)");
constexpr Bilingual TAKEN_BACK("taken back: %1", "zurückgenommen: %1");
constexpr Bilingual NOTHING_TO_UNDO("there is no change to take back",
                                    "es gibt keine Änderung, die sich zurücknehmen ließe");
constexpr Bilingual NO_CHOICE("%1: there is nothing to choose from; type a value",
                              "%1: hier gibt es keine Auswahl; geben Sie einen Wert ein");

bool IsField(const Info& item) {
    return item.HasValue() || item.kind == Info::BUTTON;
}

std::string_view Trimmed(std::string_view text) {
    constexpr const char* BLANKS = " \t";
    const std::size_t first = text.find_first_not_of(BLANKS);
    if (first == text.npos) return {};
    return text.substr(first, text.find_last_not_of(BLANKS) + 1 - first);
}

// The first word; the text keeps what is behind it.
std::string TakeWord(std::string& text) {
    const std::string trimmed(Trimmed(text));
    const std::size_t end = std::min(trimmed.find_first_of(" \t"), trimmed.size());
    text = Trimmed(std::string_view(trimmed).substr(end));
    return trimmed.substr(0, end);
}

std::string Joined(const CStringArray& words) {
    std::string text;
    for (const CString& word : words) text += (text.empty() ? "" : ", ") + word;
    return text;
}

// On one line.
std::string Flat(const std::string& text) {
    std::string flat;
    for (const char c : text)
        flat += c == '\n' ? "\\n" : c == '\t' ? "\\t" : c == '\r' ? "\\r" : std::string(1, c);
    return flat;
}

}  // namespace

// Each may be typed in either language.
struct TerminalForm::Command {
    const char* words[4];
    void (*run)(TerminalForm& form, const std::string& rest);
};

std::string NameOf(const TCPropertyDialogInfo& item) {
    const CString label = item.label.Get();
    return label.empty() ? item.key : label;
}

TerminalForm::TerminalForm(TCDialog& dialog, Conversation conversation, std::string folderOfPaths)
    : shown(dialog), speak(std::move(conversation)), folder(std::move(folderOfPaths)) {}

int TerminalForm::Run() {
    ShowPage();
    speak.say(COMMANDS.Text());
    for (std::string line; !over && speak.read("> ", false, line);) Do(line);
    return result;
}

void TerminalForm::Do(const std::string& line) {
    static constexpr Command COMMAND_TABLE[] = {
        {{"?", "help", "hilfe", "h"}, [](TerminalForm& form, const std::string& rest) { form.Help(rest); }},
        {{"next", "n", "weiter", ""}, [](TerminalForm& form, const std::string&) { form.Step(1); }},
        {{"back", "b", "zurück", ""}, [](TerminalForm& form, const std::string&) { form.Step(-1); }},
        {{"list", "l", "liste", ""}, [](TerminalForm& form, const std::string&) { form.ShowPage(); }},
        {{"undo", "u", "rückgängig", ""}, [](TerminalForm& form, const std::string&) { form.Undo(); }},
        {{"choose", "c", "auswahl", ""},
         [](TerminalForm& form, const std::string& rest) { form.Choose(rest); }},
        {{"ok", "", "", ""}, [](TerminalForm& form, const std::string&) { form.End(TCDialog::OK); }},
        {{"cancel", "q", "abbrechen", "quit"},
         [](TerminalForm& form, const std::string&) { form.End(TCDialog::CANCEL); }},
    };
    std::string rest = line;
    const std::string word = TakeWord(rest);
    if (word.empty() || DoField(line) || DoAssignment(line)) return;
    for (const Command& command : COMMAND_TABLE)
        if (std::ranges::count(command.words, word, [](const char* text) { return std::string(text); }) > 0)
            return command.run(*this, rest);
    speak.say(NO_COMMAND.With({word}));
}

// "3", "3 value"
bool TerminalForm::DoField(const std::string& line) {
    std::string rest = line;
    const std::string word = TakeWord(rest);
    if (word.find_first_not_of("0123456789") != word.npos) return false;
    const Info* const item = FindNumber(word);
    if (item == nullptr) {
        speak.say(NO_FIELD.With({word}));
    } else if (item->kind == Info::BUTTON) {
        Press(item->key);
    } else if (!rest.empty()) {
        Set(item->key, rest == "\"\"" ? "" : rest);
    } else {
        Edit(*item);
    }
    return true;
}

bool TerminalForm::DoAssignment(const std::string& line) {
    const std::size_t split = line.find('=');
    if (split == line.npos) return false;
    const std::string_view whole = line;
    Set(std::string(Trimmed(whole.substr(0, split))), std::string(Trimmed(whole.substr(split + 1))));
    return true;
}

void TerminalForm::Step(int pages) {
    const auto last = static_cast<int>(Pages().size()) - 1;
    page = static_cast<std::size_t>(std::clamp(static_cast<int>(page) + pages, 0, std::max(0, last)));
    ShowPage();
}

void TerminalForm::Help(const std::string& rest) {
    if (rest.empty()) return speak.say(COMMANDS.Text());
    if (const Info* const item = FindNumber(rest)) return Describe(*item);
    speak.say(NO_FIELD.With({rest}));
}

void TerminalForm::Undo() {
    const CString key = shown.GetUndoKey();
    if (!shown.Undo()) return speak.say(NOTHING_TO_UNDO.Text());
    const Info* const item = shown.GetDescription().Find(key);
    speak.say(TAKEN_BACK.With({item != nullptr ? NameOf(*item) + ": " + Shown(*item) : key}));
}

void TerminalForm::End(int wanted) {
    TCDialog::Refusal refusal;
    over = shown.End(wanted, refusal);
    if (over)
        result = wanted;
    else
        speak.say(refusal.text);
}

void TerminalForm::Choose(const std::string& rest) {
    const Info* const item = FindNumber(rest);
    if (item == nullptr) return speak.say(NO_FIELD.With({rest}));
    const CString key = item->key;
    CString text = shown.GetText(key);
    TCPropertyDialog description;
    if (TCPropertyChooser(description, *item, text, folder) == 0) {
        const bool hasWords =
            !item->choices.empty() || !item->suggestions.empty() || item->kind == Info::BOOL;
        return hasWords ? Edit(*item) : speak.say(NO_CHOICE.With({key}));
    }
    TCDialog chooser(description);
    TerminalForm form(chooser, speak, folder);
    if (form.Run() == TCDialog::OK) Set(key, text);
}

// The page that an item belongs to, in a dialog without pages the group; null: neither.
const Info* TerminalForm::SectionOf(const Info& item) const {
    const TCPropertyDialog& dialog = shown.GetDescription();
    const Info* const parent = item.parent.empty() ? nullptr : dialog.Find(item.parent);
    if (parent == nullptr || parent->kind == Info::PAGE) return parent;
    const Info* const above = parent->parent.empty() ? nullptr : dialog.Find(parent->parent);
    return above != nullptr ? above : parent;
}

std::vector<TerminalForm::Page> TerminalForm::Pages() const {
    const TCPropertyDialog& dialog = shown.GetDescription();
    std::vector<Page> pages;
    const Info* section = nullptr;
    for (int i = 0; i < dialog.GetCount(); ++i) {
        const Info& item = *dialog.Get(i);
        const bool isHeading = item.kind == Info::GROUP || item.kind == Info::PAGE;
        if (isHeading || item.kind == Info::SEPARATOR || !shown.IsShown(item.key)) continue;
        const Info* const own = SectionOf(item);
        if (pages.empty() || own != section || pages.back().items.size() == MOST_ON_A_PAGE) {
            const bool isTitled = own != nullptr && !own->label.IsEmpty();
            pages.push_back({isTitled ? std::string(own->label.Get()) : SETTINGS.Text(), {}});
        }
        section = own;
        pages.back().items.push_back(i);
    }
    return pages;
}

void TerminalForm::ShowPage() {
    const std::vector<Page> pages = Pages();
    if (pages.empty()) return;
    page = std::min(page, pages.size() - 1);
    const CString title = shown.GetDescription().title.Get();
    speak.say((title.empty() ? "" : title + ": ") +
              PAGE.With({pages[page].title, std::to_string(page + 1), std::to_string(pages.size())}));
    const TCPropertyDialog& dialog = shown.GetDescription();
    CString group;
    for (const int index : pages[page].items) {
        const Info& item = *dialog.Get(index);
        const Info* const parent = item.parent.empty() ? nullptr : dialog.Find(item.parent);
        const bool isGrouped = parent != nullptr && parent != SectionOf(item);
        const CString own = isGrouped ? NameOf(*parent) : std::string();
        if (own != group && !own.empty()) speak.say(own + ":");
        group = own;
        speak.say(Line(index));
    }
}

std::string TerminalForm::Line(int index) const {
    const Info& item = *shown.GetDescription().Get(index);
    std::string text = item.kind == Info::BUTTON ? BUTTON.With({NameOf(item)}) : NameOf(item);
    if (item.HasValue()) text += ": " + Shown(item);
    if (shown.IsChanged(item.key)) text += CHANGED.Text();
    if (!shown.IsEnabled(item.key)) text += DISABLED.Text();
    return (IsField(item) ? std::to_string(NumberOf(index)) + ". " : "") + text;
}

// Fields are counted through all pages, also what is not shown, so that a number stays what it is.
int TerminalForm::NumberOf(int index) const {
    int number = 0;
    for (int i = 0; i <= index; ++i) number += IsField(*shown.GetDescription().Get(i)) ? 1 : 0;
    return number;
}

std::string TerminalForm::Shown(const Info& item) const {
    const CString text = shown.GetText(item.key);
    double number = 0.0;
    if (text.empty()) return EMPTY.Text();
    if (item.secret) return HIDDEN.Text();
    if (item.kind == Info::LIST) return ROWS.With({std::to_string(std::ranges::count(text, '\n'))});
    const bool isPlain = !item.unit.empty() && tc::ReadPropertyDouble(text, number);
    return Flat(text) + (isPlain ? " " + item.unit : "");
}

const Info* TerminalForm::FindNumber(const std::string& word) const {
    int number = 0;
    const auto [stop, failure] = std::from_chars(word.data(), word.data() + word.size(), number);
    if (failure != std::errc() || stop != word.data() + word.size()) return nullptr;
    const TCPropertyDialog& dialog = shown.GetDescription();
    for (int i = 0, at = 0; i < dialog.GetCount(); ++i) {
        const Info& item = *dialog.Get(i);
        if (IsField(item) && ++at == number) return shown.IsShown(item.key) ? &item : nullptr;
    }
    return nullptr;
}

void TerminalForm::Describe(const Info& item) const {
    const CString help = item.help.Get();
    speak.say(NameOf(item) + (item.key == NameOf(item) ? "" : " (" + item.key + ")") +
              (help.empty() ? "" : ": " + help));
    if (!item.HasValue()) return;
    speak.say(EXPECTED.With({item.DescribeAllowed()}));
    if (!item.suggestions.empty()) speak.say(SUGGESTED.With({Joined(item.suggestions)}));
    for (const TCPropertyCondition* condition : {&item.enabledWhen, &item.shownWhen})
        if (!condition->values.empty())
            speak.say(ONLY_WHEN.With({condition->key, Joined(condition->values)}));
    if (item.live) speak.say(LIVE.Text());
    speak.say(NOW.With({Shown(item)}));
}

// Asks until a value is allowed, or nothing is typed.
void TerminalForm::Edit(const Info& item) {
    const CString key = item.key;
    const bool hidden = item.secret;
    Describe(item);
    TCDialog::Refusal refusal;
    const bool isOpen = item.IsEditable() && shown.IsEnabled(key);
    if (!isOpen && !shown.SetText(key, shown.GetText(key), refusal)) return speak.say(refusal.text);
    if (item.kind == Info::TEXT) return EditLines(item);
    if (item.kind == Info::LIST && !EditRows(shown, item, speak)) over = true;
    if (item.kind == Info::LIST) return ShowPage();
    for (std::string line; !over;) {
        over = !speak.read(NEW_VALUE.Text(), hidden, line);
        if (over || line.empty() || Set(key, line == "\"\"" ? "" : line)) return;
    }
}

void TerminalForm::EditLines(const Info& item) {
    const CString key = item.key;
    std::string text;
    speak.say(NEW_LINES.Text());
    for (bool isFirst = true;; isFirst = false) {
        std::string line;
        over = !speak.read("", false, line);
        if (over) return;
        if (line == "." && isFirst) return;
        if (line == ".") break;
        text += (isFirst ? "" : "\n") + line;
    }
    Set(key, text);
}

bool TerminalForm::Set(const std::string& key, const std::string& text) {
    TCDialog::Refusal refusal;
    const std::size_t pages = Pages().size();
    const bool isSet = shown.SetText(key, text, refusal);
    const Info* const item = shown.GetDescription().Find(key);
    speak.say(isSet && item != nullptr ? NameOf(*item) + ": " + Shown(*item) : std::string(refusal.text));
    if (isSet && (Pages().size() != pages || (item != nullptr && item->rebuilds))) ShowPage();
    return isSet;
}

void TerminalForm::Press(const std::string& key) {
    TCDialog::Refusal refusal;
    if (!shown.Press(key, refusal)) return speak.say(refusal.text);
    speak.say(PRESSED.Text());
    ShowPage();
}

}  // namespace host
