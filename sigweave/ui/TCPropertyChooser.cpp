#include "sigweave/ui/TCPropertyChooser.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <sstream>
#include <utility>

#include "sigweave/services/Bilingual.h"
#include "sigweave/ui/PropertyItems.h"
#include "sigweave/ui/PropertyText.h"

namespace {

namespace fs = std::filesystem;
using tc::Bilingual;
using Info = TCPropertyDialogInfo;

constexpr Bilingual NO_FOLDER("folder: there is no folder '%1'", "folder: es gibt keinen Ordner '%1'");
constexpr Bilingual NO_FILE("name: there is no file '%1'", "name: es gibt keine Datei '%1'");
constexpr Bilingual IS_FOLDER("name: '%1' is a folder", "name: '%1' ist ein Ordner");

constexpr int LARGEST_POINTS = 1000;
constexpr std::size_t MOST_ENTRIES = 10000;  // nobody reads more
constexpr const char* ALL_FILES = "*";

// What is put into the text is written by the same functions as every value, so it reads back.
template <class State>
void WriteAtTheEnd(TCPropertyDialog& chooser, std::shared_ptr<State> state, CString& text) {
    chooser.apply = [state = std::move(state), &text](CString&) {
        text = state->Write();
        return true;
    };
}

struct FontState {
    TCString face;
    int points = 10;
    bool styles[4] = {};

    CString Write() const {
        constexpr const char* NAMES[] = {" bold", " italic", " underline", " strikeout"};
        CString text = CString(static_cast<const char*>(face)) + " " + std::to_string(points);
        for (std::size_t i = 0; i < std::size(styles); ++i) text += styles[i] ? NAMES[i] : "";
        return text;
    }
};

void DescribeFont(TCPropertyDialog& chooser, CString& text) {
    const auto state = std::make_shared<FontState>();
    TCLogFont font;
    tc::ReadPropertyFont(text, font);
    state->face = font.lfFaceName;
    state->points = TCLogFont::DeviceUnitsToPixelHeight(font.lfHeight, nullptr);
    constexpr int BOLD = 700;
    const bool styles[] = {font.lfWeight >= BOLD, font.lfItalic != 0, font.lfUnderline != 0,
                           font.lfStrikeOut != 0};
    std::ranges::copy(styles, state->styles);
    TCPropertyEditCombo(chooser, "face", {"Face", "Schriftart"}, {"Sans", "Serif", "Monospace"}, state->face)
        .Required()
        .Check([](const CString& face) {
            TCLogFont ignored;
            return tc::ReadPropertyFont(face + " 10", ignored)
                       ? CString()
                       : Bilingual("face: '%1' is too long for a face",
                                   "face: '%1' ist zu lang für eine "
                                   "Schriftart")
                             .With({face});
        });
    TCPropertyInt(chooser, "points", {"Points", "Punkte"}, state->points).Limits(1, LARGEST_POINTS);
    TCPropertyBool(chooser, "bold", {"Bold", "Fett"}, state->styles[0]);
    TCPropertyBool(chooser, "italic", {"Italic", "Kursiv"}, state->styles[1]);
    TCPropertyBool(chooser, "underline", {"Underlined", "Unterstrichen"}, state->styles[2]);
    TCPropertyBool(chooser, "strikeout", {"Struck out", "Durchgestrichen"}, state->styles[3]);
    WriteAtTheEnd(chooser, state, text);
}

struct ColourState {
    int parts[3] = {};

    CString Write() const {
        return tc::WritePropertyColour(static_cast<unsigned long>(parts[0] | parts[1] << 8 | parts[2] << 16));
    }
};

void DescribeColour(TCPropertyDialog& chooser, CString& text) {
    const auto state = std::make_shared<ColourState>();
    unsigned long colour = 0;
    tc::ReadPropertyColour(text, colour);
    constexpr Bilingual LABELS[] = {{"Red", "Rot"}, {"Green", "Grün"}, {"Blue", "Blau"}};
    constexpr const char* KEYS[] = {"red", "green", "blue"};
    for (std::size_t i = 0; i < std::size(KEYS); ++i) {
        state->parts[i] = static_cast<int>(colour >> 8 * i & 255);
        TCPropertyInt(chooser, KEYS[i], LABELS[i], state->parts[i]).Limits(0, 255).step = 1.0;
    }
    WriteAtTheEnd(chooser, state, text);
}

// Whether a name fits one of the patterns, which begin with a star or are whole names.
bool Fits(const std::string& name, const CString& patterns) {
    std::istringstream all(patterns);
    for (CString pattern; std::getline(all, pattern, ';');) {
        const bool isEnding = pattern.starts_with('*');
        if (isEnding ? name.ends_with(pattern.substr(1)) : name == pattern) return true;
    }
    return false;
}

CString AsFolder(const fs::path& path) {
    const CString text = path.string();
    return text.ends_with('/') ? text : text + '/';
}

struct FileState {
    Info::KIND kind = Info::FILE;
    fs::path base;
    fs::path folder;
    CString name;
    CString patterns;
    CString picked;  // of the entries: a file, or a folder with a slash at its end

    // Whole paths: this folder and the one above it, the folders in it, and the files.
    CStringArray Entries() const {
        CStringArray folders;
        CStringArray files;
        std::error_code failed;
        for (fs::directory_iterator at(folder, failed), end; !failed && at != end; at.increment(failed)) {
            const std::string entry = at->path().filename().string();
            std::error_code ignored;
            const bool isFolder = at->is_directory(ignored);
            if (entry.starts_with('.') || folders.size() + files.size() >= MOST_ENTRIES) continue;
            if (isFolder) folders.push_back(AsFolder(at->path()));
            if (!isFolder && kind != Info::FOLDER && Fits(entry, patterns))
                files.push_back(at->path().string());
        }
        std::ranges::sort(folders);
        std::ranges::sort(files);
        CStringArray all = {AsFolder(folder)};
        if (folder.has_relative_path()) all.push_back(AsFolder(folder.parent_path()));
        all.insert(all.end(), folders.begin(), folders.end());
        all.insert(all.end(), files.begin(), files.end());
        return all;
    }

    void Pick(const CString& entry) {
        const fs::path path = entry;
        if (!entry.ends_with('/'))
            name = path.filename().string();
        else
            folder = path.has_relative_path() ? path.parent_path() : path;
        picked = entry;
    }

    CString Write() const {
        const fs::path chosen = kind == Info::FOLDER ? folder : folder / name;
        const fs::path below = chosen.lexically_relative(base);
        const bool isBelow = !below.empty() && *below.begin() != "..";
        return (isBelow ? below : chosen).string();
    }
};

CString WhyNotChosen(const FileState& state, const TCPropertyDialog::Texts& wanted) {
    std::error_code ignored;
    const fs::path folder = wanted("folder");
    if (!fs::is_directory(folder, ignored)) return NO_FOLDER.With({folder.string()});
    if (state.kind == Info::FOLDER) return "";
    const fs::path chosen = folder / wanted("name");
    if (fs::is_directory(chosen, ignored)) return IS_FOLDER.With({chosen.string()});
    const bool isThere = state.kind == Info::OUTPUT_FILE || fs::exists(chosen, ignored);
    return isThere ? "" : NO_FILE.With({chosen.string()});
}

// After a change of the folder, of what is shown, or of the entry that is picked.
void Refresh(FileState& state, TCPropertyDialog& chooser, const TCPropertyDialog::Texts& now) {
    state.name = now("name");
    if (state.kind != Info::FOLDER) state.patterns = now("filter");
    if (now("entries") != state.picked)
        state.Pick(now("entries"));
    else
        state.folder = fs::path(now("folder")).lexically_normal();
    CStringArray& entries = chooser.Find("entries")->choices;
    entries = state.Entries();
    if (std::ranges::count(entries, state.picked) == 0) state.picked = AsFolder(state.folder);
}

void AddFileItems(TCPropertyDialog& chooser, const std::shared_ptr<FileState>& state) {
    const auto bind = [&state](CString FileState::*text) {
        return TCPropertyBinding{[state, text] { return (*state).*text; },
                                 [state, text](const CString& value) { (*state).*text = value; }, nullptr};
    };
    const TCPropertyBinding folder = {[state] { return CString(state->folder.string()); },
                                      [state](const CString& text) { state->folder = text; }, nullptr};
    chooser.Add(Info::STRING, "folder", {"Folder", "Ordner"}, folder).Required().Rebuilds();
    chooser.Add(Info::COMBO, "entries", {"Entries", "Einträge"}, bind(&FileState::picked))
        .Help({"a folder to enter, or a file to pick", "ein Ordner zum Öffnen oder eine Datei zum Auswählen"})
        .Rebuilds()
        .choices = state->Entries();
    if (state->kind == Info::FOLDER) return;
    chooser.Add(Info::STRING, "name", {"Name", "Name"}, bind(&FileState::name)).Required();
    Info& shown = chooser.Add(Info::COMBO, "filter", {"Shown", "Angezeigt"}, bind(&FileState::patterns));
    shown.Rebuilds().choices = {state->patterns};
    if (state->patterns != ALL_FILES) shown.choices.push_back(ALL_FILES);
}

void DescribeFile(TCPropertyDialog& chooser, const Info& item, CString& text, const CString& folder) {
    const auto state = std::make_shared<FileState>();
    std::error_code failed;
    state->kind = item.kind;
    state->base = (fs::current_path(failed) / folder / "").lexically_normal().parent_path();
    const fs::path given = (state->base / text).lexically_normal();
    const bool isGiven = !text.empty();
    state->folder = !isGiven ? state->base : item.kind == Info::FOLDER ? given : given.parent_path();
    if (isGiven && item.kind != Info::FOLDER) state->name = given.filename().string();
    state->patterns = item.fileFilter.empty() ? CString(ALL_FILES) : item.fileFilter;
    state->picked = AsFolder(state->folder);
    AddFileItems(chooser, state);
    chooser.onRebuild = [state](TCPropertyDialog& dialog, const TCPropertyDialog::Texts& now) {
        Refresh(*state, dialog, now);
    };
    chooser.checkTogether = [state](const TCPropertyDialog::Texts& wanted) {
        return WhyNotChosen(*state, wanted);
    };
    WriteAtTheEnd(chooser, state, text);
}

}  // namespace

int TCPropertyChooser(TCPropertyDialog& chooser, const Info& item, CString& text, const CString& folder) {
    chooser.title = item.label;
    switch (item.kind) {
        case Info::FONT:
            DescribeFont(chooser, text);
            return 1;
        case Info::COLOUR:
            DescribeColour(chooser, text);
            return 1;
        case Info::FILE:
        case Info::OUTPUT_FILE:
        case Info::FOLDER:
            DescribeFile(chooser, item, text, folder);
            return 1;
        default:
            return 0;
    }
}
