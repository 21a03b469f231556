#include "studio/server/GraphEdit.h"

#include <algorithm>
#include <charconv>
#include <set>

#include "host/GraphBuilder.h"
#include "host/GraphText.h"
#include "host/TextLines.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/NearNames.h"

namespace studio {
namespace {

using host::EditedLine;
using host::GraphFile;
using host::InstanceEntry;
using host::LineEntry;
using host::Mistakes;
using tc::Bilingual;

constexpr const char* POSITIONS = "positions";

constexpr Bilingual NO_INSTANCE("there is no instance '%1'; %2", "es gibt keine Instanz '%1'; %2");
constexpr Bilingual TAKEN("there is an instance '%1' already; choose another name",
                          "es gibt schon eine Instanz '%1'; wählen Sie einen anderen Namen");
constexpr Bilingual BAD_NAME(
    "an instance cannot be called '%1'; choose a name without point, bracket or blanks at "
    "its ends, other than 'lines'",
    "eine Instanz kann nicht '%1' heißen; wählen Sie einen Namen ohne Punkt, Klammer "
    "und Leerraum am Rand, außer 'lines'");
constexpr Bilingual NO_LINE("there is no line from '%1' to '%2'",
                            "es gibt keine Verbindung von '%1' nach '%2'");
constexpr Bilingual LINE_TWICE("there is a line from '%1' to '%2' already",
                               "es gibt schon eine Verbindung von '%1' nach '%2'");
constexpr Bilingual NO_TEXT(
    "the graph is an XML document, which is not edited here; write it as parameter text with "
    "'sigweave convert'",
    "der Graph ist ein XML-Dokument, das hier nicht bearbeitet wird; schreiben Sie ihn mit "
    "'sigweave convert' als Parametertext");
constexpr Bilingual NOT_EXPRESSIBLE("that cannot be written in a graph file",
                                    "das lässt sich in einer Graphdatei nicht "
                                    "schreiben");

std::string Join(const host::PortName& port) {
    return host::PortText(port);
}

std::string ToText(const Position& position) {
    return std::to_string(position.x) + "," + std::to_string(position.y);
}

// The text as lines with what was read in it. Lines are counted from 0 here.
class Document {
 public:
    explicit Document(const std::string& text)
        : file(GraphFile::Parse("", text, ignored)), lines(host::SplitLines(text)) {
        lineEnd = lines.empty() || lines.front().end.empty() ? "\n" : lines.front().end;
    }

    std::string Text() const { return host::JoinLines(lines); }
    bool IsText() const { return file.GetForm() == host::GraphForm::Text; }

    bool Place(const Edit& edit, std::string& error) {
        if (!IsFree(edit.name, error)) return false;
        InsertSection({"[" + edit.name + "]", host::WriteTextSetting("module", edit.other)});
        return Move(edit.positions, error);
    }

    bool Copy(const Edit& edit, std::string& error) {
        const InstanceEntry* const original = Find(edit.name, error);
        if (original == nullptr || !IsFree(edit.other, error)) return false;
        std::vector<std::string> section{"[" + edit.other + "]"};
        for (std::size_t i = LineOf(original->place) + 1; i <= LastLineOf(*original); ++i)
            section.push_back(lines[i].text);
        InsertSection(section);
        return Move(edit.positions, error);
    }

    bool Remove(const std::vector<std::string>& names, std::string& error) {
        std::set<std::size_t> gone;
        for (const std::string& name : names) {
            const InstanceEntry* const entry = Find(name, error);
            if (entry == nullptr) return false;
            const std::size_t last = LastLineOf(*entry);
            for (std::size_t i = AttachedAbove(LineOf(entry->place)); i <= last; ++i) gone.insert(i);
            if (last + 1 < lines.size() && IsBlank(last + 1)) gone.insert(last + 1);
            for (const LineEntry& line : file.GetLines())
                if (line.from.instance == name || line.to.instance == name) gone.insert(LineOf(line.place));
            for (const host::ViewEntry& view : file.GetView())
                if (view.section == POSITIONS && view.name == name) gone.insert(LineOf(view.place));
        }
        Erase(gone);
        return true;
    }

    bool Rename(const std::string& name, const std::string& wanted, std::string& error) {
        const InstanceEntry* const entry = Find(name, error);
        if (entry == nullptr || !IsFree(wanted, error)) return false;
        std::string& header = lines[LineOf(entry->place)].text;
        const std::size_t begin = header.find('[') + 1;
        header.replace(begin, header.find(']') - begin, wanted);
        for (const LineEntry& line : file.GetLines()) {
            const auto renamed = [&](host::PortName port) {
                if (port.instance == name) port.instance = wanted;
                return Join(port);
            };
            if (line.from.instance == name || line.to.instance == name)
                lines[LineOf(line.place)].text = host::WriteTextSetting(renamed(line.from), renamed(line.to));
        }
        for (const host::ViewEntry& view : file.GetView())
            if (view.section == POSITIONS && view.name == name)
                lines[LineOf(view.place)].text = host::WriteTextSetting(wanted, view.value);
        return true;
    }

    bool Connect(const std::string& from, const std::string& to, std::string& error) {
        if (FindLine(from, to) != nullptr) return Refuse(LINE_TWICE.With({from, to}), error);
        const std::string written = host::WriteTextSetting(from, to);
        if (!file.GetLines().empty()) {
            Insert(LineOf(file.GetLines().back().place) + 1, {written});
            return true;
        }
        const std::size_t header = FindHeader(host::LINES_SECTION);
        if (header < lines.size())
            Insert(header + 1, {written});
        else
            InsertSection({std::string("[") + host::LINES_SECTION + "]", written});
        return true;
    }

    bool Disconnect(const std::string& from, const std::string& to, std::string& error) {
        const LineEntry* const line = FindLine(from, to);
        if (line == nullptr) return Refuse(NO_LINE.With({from, to}), error);
        Erase({LineOf(line->place)});
        return true;
    }

    // After other changes too: the lines that are known are those of before, so new ones are added at the
    // end.
    bool Move(const std::vector<Position>& positions, std::string& error) {
        if (positions.empty()) return true;
        const Document now(Text());
        lines = now.lines;
        const std::string section = std::string(host::VIEW_PREFIX) + POSITIONS;
        std::size_t at = now.FindHeader(section);
        if (at == lines.size()) {
            Insert(at, {"", "[" + section + "]"});
            at = lines.size() - 1;
        }
        for (const host::ViewEntry& view : now.file.GetView())
            if (view.section == POSITIONS) at = std::max(at, now.LineOf(view.place));
        for (const Position& position : positions) {
            if (now.Find(position.instance, error) == nullptr) return false;
            if (!CanBeName(position.instance)) continue;  // it is placed automatically
            const std::string written = host::WriteTextSetting(position.instance, ToText(position));
            const auto& known = now.file.GetView();
            const auto old = std::ranges::find_if(known, [&](const host::ViewEntry& view) {
                return view.section == POSITIONS && view.name == position.instance;
            });
            if (old == known.end())
                Insert(++at, {written});
            else if (old->value != ToText(position))
                lines[LineOf(old->place)].text = written;
        }
        return true;
    }

 private:
    static bool Refuse(const std::string& reason, std::string& error) {
        error = reason;
        return false;
    }

    // Of an entry NAME=VALUE.
    static bool CanBeName(const std::string& name) {
        return name.find('=') == name.npos && name.find_first_of("#;[") != 0;
    }

    static std::size_t LineOf(const host::Place& place) { return static_cast<std::size_t>(place.line - 1); }

    const InstanceEntry* Find(const std::string& name, std::string& error) const {
        const InstanceEntry* const entry = host::FindInstance(file, name);
        CStringArray names;
        for (const InstanceEntry& other : file.GetInstances()) names.push_back(other.name);
        if (entry == nullptr) error = NO_INSTANCE.With({name, tc::SuggestNames(name, names)});
        return entry;
    }

    bool IsFree(const std::string& name, std::string& error) const {
        const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' '; };
        if (name.empty() || name.size() > 200 || name != host::TrimBlanks(name) ||
            name == host::LINES_SECTION || name.find_first_of(".[]=\"'") != name.npos ||
            std::ranges::any_of(name, isControl))
            return Refuse(BAD_NAME.With({name}), error);
        if (host::FindInstance(file, name) != nullptr) return Refuse(TAKEN.With({name}), error);
        return true;
    }

    const LineEntry* FindLine(const std::string& from, const std::string& to) const {
        const auto found = std::ranges::find_if(file.GetLines(), [&](const LineEntry& line) {
            return Join(line.from) == from && Join(line.to) == to;
        });
        return found != file.GetLines().end() ? &*found : nullptr;
    }

    bool IsBlank(std::size_t line) const { return host::TrimBlanks(lines[line].text).empty(); }
    bool IsComment(std::size_t line) const {
        const std::string_view text = host::TrimBlanks(lines[line].text);
        return text.starts_with('#') || text.starts_with(';');
    }
    bool IsHeader(std::size_t line) const { return host::TrimBlanks(lines[line].text).starts_with('['); }

    // The last section of that name; the number of lines when there is none.
    std::size_t FindHeader(const std::string& section) const {
        for (std::size_t i = lines.size(); i-- > 0;) {
            const std::string_view text = host::TrimBlanks(lines[i].text);
            if (text.starts_with('[') && host::TrimBlanks(text.substr(1, text.find(']') - 1)) == section)
                return i;
        }
        return lines.size();
    }

    std::size_t LastLineOf(const InstanceEntry& entry) const {
        int last = std::max(entry.place.line, entry.modulePlace.line);
        for (const host::Setting& setting : entry.settings) last = std::max(last, setting.place.line);
        return static_cast<std::size_t>(last - 1);
    }

    // The first of the comments right above a line; those at the top of the file are about all of it.
    std::size_t AttachedAbove(std::size_t line) const {
        std::size_t first = line;
        while (first > 0 && IsComment(first - 1)) --first;
        return first > 0 ? first : line;
    }

    // The sections of instances come before the others.
    void InsertSection(const std::vector<std::string>& texts) {
        const std::string linesHeader = std::string("[") + host::LINES_SECTION + "]";
        const std::string viewHeader = "[" + std::string(host::VIEW_PREFIX);
        const std::size_t last =
            texts.front() == linesHeader ? lines.size() : FindHeader(host::LINES_SECTION);
        std::size_t at = lines.size();
        for (std::size_t i = lines.size(); i-- > 0;)
            if (i == last || host::TrimBlanks(lines[i].text).starts_with(viewHeader)) at = AttachedAbove(i);
        std::vector<std::string> section = texts;
        if (at > 0 && !IsBlank(at - 1)) section.insert(section.begin(), "");
        if (at < lines.size()) section.push_back("");
        Insert(at, section);
    }

    void Insert(std::size_t at, const std::vector<std::string>& texts) {
        if (at > 0 && lines[at - 1].end.empty()) lines[at - 1].end = lineEnd;
        std::vector<EditedLine> added;
        for (const std::string& text : texts) added.push_back({text, lineEnd});
        lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(at), added.begin(), added.end());
    }

    void Erase(const std::set<std::size_t>& gone) {
        for (auto line = gone.rbegin(); line != gone.rend(); ++line)
            lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(*line));
    }

    Mistakes ignored;
    GraphFile file;
    std::vector<EditedLine> lines;
    std::string lineEnd;
};

bool Apply(const Edit& edit, std::string& text, std::string& error) {
    Document document(text);
    if (!document.IsText()) {
        error = NO_TEXT.Text();
        return false;
    }
    bool done = false;
    switch (edit.kind) {
        case Edit::Place:
            done = document.Place(edit, error);
            break;
        case Edit::Copy:
            done = document.Copy(edit, error);
            break;
        case Edit::Remove:
            done = document.Remove(edit.names, error);
            break;
        case Edit::Rename:
            done = document.Rename(edit.name, edit.other, error);
            break;
        case Edit::Connect:
            done = document.Connect(edit.name, edit.other, error);
            break;
        case Edit::Disconnect:
            done = document.Disconnect(edit.name, edit.other, error);
            break;
        case Edit::Move:
            done = document.Move(edit.positions, error);
            break;
        case Edit::Set: {
            Mistakes ignored;
            return host::EditSettings(GraphFile::Parse("", text, ignored), edit.name, edit.settings, text,
                                      error);
        }
    }
    if (done) text = document.Text();
    return done;
}

// Whether the text now has what the change was about.
bool ReadsBack(const Edit& edit, const std::string& text) {
    Mistakes ignored;
    const GraphFile file = GraphFile::Parse("", text, ignored);
    const auto hasLine = [&] {
        return std::ranges::any_of(file.GetLines(), [&](const LineEntry& line) {
            return Join(line.from) == edit.name && Join(line.to) == edit.other;
        });
    };
    if (edit.kind == Edit::Connect) return hasLine();
    if (edit.kind == Edit::Place) {
        const InstanceEntry* const entry = host::FindInstance(file, edit.name);
        return entry != nullptr && entry->module == edit.other;
    }
    if (edit.kind == Edit::Copy || edit.kind == Edit::Rename)
        return host::FindInstance(file, edit.other) != nullptr;
    return true;
}

bool ReadPair(const std::string& text, int& x, int& y) {
    const char* const end = text.data() + text.size();
    const auto [behind, failed] = std::from_chars(text.data(), end, x);
    if (failed != std::errc() || behind == end || *behind != ',') return false;
    const auto [last, alsoFailed] = std::from_chars(behind + 1, end, y);
    return alsoFailed == std::errc() && last == end;
}

}  // namespace

bool EditGraph(const Edit& edit, std::string& text, std::string& error) {
    std::string edited = text;
    if (!Apply(edit, edited, error)) return false;
    if (!ReadsBack(edit, edited)) {
        error = NOT_EXPRESSIBLE.Text();
        return false;
    }
    text = std::move(edited);
    return true;
}

std::string FreeName(const GraphFile& file, const std::string& wanted) {
    std::string name = wanted;
    for (int number = 2; host::FindInstance(file, name) != nullptr; ++number)
        name = wanted + " " + std::to_string(number);
    return name;
}

std::vector<Position> PositionsOf(const GraphFile& file) {
    std::vector<Position> positions;
    for (const host::ViewEntry& entry : file.GetView()) {
        Position position{entry.name};
        if (entry.section == POSITIONS && ReadPair(entry.value, position.x, position.y))
            positions.push_back(position);
    }
    return positions;
}

}  // namespace studio
