#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/GraphWording.h"
#include "host/Mistakes.h"

namespace host {

// A graph as it was written: names only, nothing of it looked up yet. Every entry knows its place, for
// messages. It is written as parameter text or as an XML document, with the same meaning (see
// docs/graph-files.md).

struct Setting {
    std::string name;
    std::string value;
    Place place;
    bool onCommandLine = false;
    bool quoted = false;  // in parameter text
};

struct InstanceEntry {
    std::string name;
    std::string module;  // the module's id; empty when the graph does not say
    Place place;
    Place modulePlace;
    std::vector<Setting> settings;
};

struct PortName {
    std::string instance;
    std::string port;  // empty: the free inputs, one after the other, of what a wildcard brings
};
// As lines have it: "instance.port", or "instance".
std::string PortText(const PortName& name);

struct LineEntry {
    PortName from;  // the port may have wildcards (see PortPattern.h)
    PortName to;
    Place place;
};

// How a page shows the graph, as where an instance is drawn: kept with it, and ignored by a check and a run.
struct ViewEntry {
    std::string section;  // without the prefix
    std::string name;
    std::string value;
    Place place;
};

// One line of it.
struct Comment {
    std::string text;
    Place place;
};

class GraphFile {
 public:
    // The content decides which form it is, not the name. Adds a mistake for everything that is not well
    // formed, and keeps what is.
    static GraphFile Read(const std::string& path, Mistakes& mistakes);
    // Its content; empty, with a mistake, when it cannot be read.
    static std::string ReadText(const std::string& path, Mistakes& mistakes);
    static GraphFile Parse(const std::string& path, const std::string& text, Mistakes& mistakes);

    // An argument INSTANCE.PARAMETER=VALUE of the command line: replaces what the file says.
    void Set(const std::string& argument, Mistakes& mistakes);

    // For programs that build graphs. What they add has no place; the order is that of the file.
    InstanceEntry* FindInstance(const std::string& name);
    std::vector<InstanceEntry>& EditInstances() { return instances; }
    std::vector<LineEntry>& EditLines() { return lines; }
    void AcceptDifferences(bool accept) { acceptsDifferences = accept; }

    const std::string& GetPath() const { return path; }
    GraphForm GetForm() const { return form; }
    const GraphWording& GetWording() const { return GraphWording::Of(form); }
    const std::vector<InstanceEntry>& GetInstances() const { return instances; }
    const std::vector<LineEntry>& GetLines() const { return lines; }
    // Also when each of them is wrong.
    bool HasLines() const { return hasLines || !lines.empty(); }
    // The section of the server that joins the places of the graph; none in most graphs.
    const std::optional<InstanceEntry>& GetEngine() const { return engine; }
    const std::vector<ViewEntry>& GetView() const { return view; }
    const std::vector<Comment>& GetComments() const { return comments; }
    // Whether lines between ports whose declarators differ are accepted without a question.
    bool AcceptsDifferences() const { return acceptsDifferences; }

 private:
    friend class GraphBuilder;

    void Fill(std::string_view text, Mistakes& mistakes);

    std::string path;
    GraphForm form = GraphForm::Text;
    std::vector<InstanceEntry> instances;
    std::vector<LineEntry> lines;
    std::optional<InstanceEntry> engine;
    std::vector<ViewEntry> view;
    std::vector<Comment> comments;
    bool acceptsDifferences = false;
    bool hasLines = false;
};

}  // namespace host
