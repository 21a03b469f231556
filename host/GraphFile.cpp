#include "host/GraphFile.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <unordered_map>

#include "sigweave/foundation/NearNames.h"
#include "sigweave/persistence/TCProcessParameters.h"

namespace host {
namespace {

constexpr std::size_t MAX_SIZE = 16 << 20;
constexpr const char* LINES_SECTION = "lines";
constexpr std::string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF";

std::string_view Trim(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool IsComment(std::string_view line) {
    return line.front() == '#' || line.front() == ';';
}

bool ReadBytes(const std::string& path, std::string& text, std::string& error) {
    std::error_code failed;
    const auto status = std::filesystem::status(path, failed);
    if (std::filesystem::is_directory(status)) {
        error = "is a folder, not a graph file";
        return false;
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        error = std::filesystem::exists(status) ? "cannot be read; check its permissions"
                                                : "there is no such file; check the path";
        return false;
    }
    text.resize(MAX_SIZE + 1);
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(file.gcount()));
    if (!file.bad()) return true;
    error = "cannot be read";
    return false;
}

bool IsBinary(char byte) {
    const auto code = static_cast<unsigned char>(byte);
    return (code < ' ' && byte != '\t' && byte != '\n' && byte != '\r') || code == 0x7F;
}

// Why the text cannot be a graph at all; null when it may be one.
const char* WhyNoGraph(const std::string& text) {
    if (text.size() > MAX_SIZE)
        return "is larger than 16 MB, the most that a graph file may have; is it the right file?";
    if (std::any_of(text.begin(), text.end(), IsBinary))
        return "is a binary file, not a graph; a graph is plain text in UTF-8";
    return nullptr;
}

// Why a quoted value that must stand alone on its line does not; null when it does.
const char* WhyBadQuotes(std::string_view value) {
    if (value.empty() || (value.front() != '"' && value.front() != '\'')) return nullptr;
    std::size_t end = 1;
    while (end < value.size() && value[end] != value.front()) end += value[end] == '\\' ? 2 : 1;
    if (end >= value.size()) return "the quotation mark is not closed on this line; add the closing one";
    if (end + 1 < value.size())
        return "there is text behind the closing quotation mark; remove it, or put a comment on a line of "
               "its own";
    return nullptr;
}

}  // namespace

// Reads line by line, so that one mistake does not hide the next; what stands in a line is parameter text.
class GraphFile::Parser {
 public:
    Parser(GraphFile& graphFile, Mistakes& allMistakes) : graph(graphFile), mistakes(allMistakes) {
        syntax.Init(true, false, nullptr, "\r\n", "=", "#;");
    }

    void Parse(std::string_view text) {
        if (text.starts_with(BYTE_ORDER_MARK)) text.remove_prefix(BYTE_ORDER_MARK.size());
        while (!text.empty()) {
            place = {graph.path, place.line + 1};
            const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
            ParseLine(Trim(text.substr(0, end)));
            const bool pair = text.substr(end).starts_with("\r\n");
            text.remove_prefix(std::min(end + (pair ? 2 : 1), text.size()));
        }
        if (!sawContent) Add("has nothing in it but blanks and comments; 'sigweave --help' shows an example");
    }

 private:
    enum class Section { None, Lines, Instance, Skipped };

    void Add(std::string text) { mistakes.Add(place, std::move(text)); }

    void ParseLine(std::string_view line) {
        if (line.empty() || IsComment(line)) return;
        sawContent = true;
        if (line.front() == '[')
            BeginSection(line);
        else
            ParseParameter(line);
    }

    void BeginSection(std::string_view line) {
        section = Section::Skipped;
        const std::size_t end = line.find(']');
        if (end == std::string_view::npos) return Add("the section name is not closed; write [name]");
        const std::string_view rest = Trim(line.substr(end + 1));
        if (!rest.empty() && !IsComment(rest))
            Add("there is text behind the section name; put it on a line of its own");
        const std::string name(Trim(line.substr(1, end - 1)));
        if (name == LINES_SECTION)
            section = Section::Lines;
        else
            BeginInstance(name);
    }

    void BeginInstance(const std::string& name) {
        if (name.empty())
            return Add("the section has no name; name it after the instance, for example [voice]");
        if (name.find('.') != std::string::npos)
            return Add("the instance name '" + name +
                       "' holds a point, which separates instance and port; choose a name without one");
        const auto [known, isNew] = lineOfInstance.emplace(name, place.line);
        if (!isNew)
            return Add("the instance '" + name + "' is there already, in line " +
                       std::to_string(known->second) + "; give this one another name");
        section = Section::Instance;
        graph.instances.push_back({name, "", place, place, {}});
        lineOfSetting.clear();
    }

    void ParseParameter(std::string_view line) {
        const std::size_t split = line.find('=');
        if (split == std::string_view::npos)
            return Add("'" + std::string(line) + "' is neither name=value, [section] nor a # comment");
        const std::string_view value = Trim(line.substr(split + 1));
        if (const char* reason = WhyBadQuotes(value)) return Add(reason);
        const std::string text = std::string(Trim(line.substr(0, split))) + "=" + std::string(value) + "\n";
        if (text.front() == '=') return Add("there is no name before the '='");
        if (syntax.ParseParamString(text.c_str()) != 1)
            return Add(std::string(syntax.GetErrorText()) +
                       "; a backslash in quotation marks is written \\\\");
        Take(std::string(syntax.GetParamName(0)), std::string(syntax.GetParamValStr(0)));
    }

    void Take(const std::string& name, const std::string& value) {
        switch (section) {
            case Section::None:
                return Add(
                    "'" + name +
                    "' stands before the first section; put it behind the [instance] that it belongs to");
            case Section::Lines:
                return TakeLine(name, value);
            case Section::Instance:
                return TakeSetting(name, value);
            case Section::Skipped:
                return;
        }
    }

    void TakeSetting(const std::string& name, const std::string& value) {
        InstanceEntry& instance = graph.instances.back();
        const auto [known, isNew] = lineOfSetting.emplace(name, place.line);
        if (!isNew)
            return Add("'" + name + "' of " + instance.name + " is set already, in line " +
                       std::to_string(known->second) + "; remove one of the two");
        if (name != "module") {
            instance.settings.push_back({name, value, place});
            return;
        }
        instance.module = value;
        instance.modulePlace = place;
    }

    void TakeLine(const std::string& name, const std::string& value) {
        if (name == "accept") return TakeAccept(value);
        LineEntry line{{}, {}, place};
        if (!SplitPort(name, line.from) || !SplitPort(value, line.to))
            return Add("'" + name + "=" + value + "' is no line; write instance.Output=instance.Input");
        graph.lines.push_back(std::move(line));
    }

    void TakeAccept(const std::string& value) {
        if (value != "yes" && value != "no") return Add("accept is '" + value + "'; it must be yes or no");
        graph.acceptsDifferences = value == "yes";
    }

    static bool SplitPort(const std::string& text, PortName& port) {
        const std::size_t point = text.find('.');
        if (point == std::string::npos) return false;
        port.instance = Trim(std::string_view(text).substr(0, point));
        port.port = Trim(std::string_view(text).substr(point + 1));
        return !port.instance.empty() && !port.port.empty();
    }

    GraphFile& graph;
    Mistakes& mistakes;
    TCProcessParameters syntax;
    Place place;
    Section section = Section::None;
    bool sawContent = false;
    std::unordered_map<std::string, int> lineOfInstance;
    std::unordered_map<std::string, int> lineOfSetting;
};

GraphFile GraphFile::Read(const std::string& path, Mistakes& mistakes) {
    std::string text;
    std::string error;
    if (ReadBytes(path, text, error)) return Parse(path, text, mistakes);
    mistakes.Add({path.empty() ? "''" : path}, std::move(error));
    GraphFile graph;
    graph.path = path;
    return graph;
}

GraphFile GraphFile::Parse(const std::string& path, const std::string& text, Mistakes& mistakes) {
    GraphFile graph;
    graph.path = path;
    if (const char* reason = WhyNoGraph(text))
        mistakes.Add({path}, reason);
    else if (text.empty())
        mistakes.Add({path}, "is empty; 'sigweave --help' shows an example");
    else
        Parser(graph, mistakes).Parse(text);
    return graph;
}

InstanceEntry* GraphFile::FindInstance(const std::string& name) {
    const auto found = std::find_if(instances.begin(), instances.end(),
                                    [&](const InstanceEntry& entry) { return entry.name == name; });
    return found != instances.end() ? &*found : nullptr;
}

void GraphFile::Set(const std::string& argument, Mistakes& mistakes) {
    const Place place{"--set " + argument};
    const std::size_t split = argument.find('=');
    const std::size_t point = argument.find('.');
    if (split == std::string::npos || point == std::string::npos || point == 0 || point + 1 >= split)
        return mistakes.Add(place, "must be INSTANCE.PARAMETER=VALUE, for example --set voice.block=512");
    InstanceEntry* instance = FindInstance(argument.substr(0, point));
    if (instance == nullptr) {
        CStringArray names;
        for (const InstanceEntry& entry : instances) names.push_back(entry.name);
        return mistakes.Add(place, "the graph has no instance '" + argument.substr(0, point) + "'; " +
                                       tc::SuggestNames(argument.substr(0, point), names));
    }
    const Setting setting{argument.substr(point + 1, split - point - 1), argument.substr(split + 1), place,
                          true};
    if (setting.name == "module")
        return mistakes.Add(place, "the module of an instance can only be chosen in the graph file");
    std::erase_if(instance->settings, [&](const Setting& old) { return old.name == setting.name; });
    instance->settings.push_back(setting);
}

}  // namespace host
