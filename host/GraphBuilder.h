#pragma once

#include <string>
#include <string_view>
#include <unordered_map>

#include "host/GraphFile.h"

namespace host {

// The name of the section that holds the lines in parameter text; no instance can have it.
inline constexpr const char* LINES_SECTION = "lines";
// The name of the section that names the server which joins the places of a graph. An instance can have this
// name too: then it has a module, and the section has none.
inline constexpr const char* ENGINE_SECTION = "engine";
// The setting of an instance that says where it runs, unless its module has a parameter of that name.
inline constexpr const char* PLACE_SETTING = "place";
// How the names of sections begin that say how the graph is shown: no instance can have such a name, for it
// has a point.
inline constexpr std::string_view VIEW_PREFIX = "studio.";

// Blanks around names and values do not count, in either form.
std::string_view TrimBlanks(std::string_view text);

// Puts a graph together while it is read, and reports the mistakes that both forms can have. What is added
// goes to the current line of the file.
class GraphBuilder {
 public:
    // Both must outlive the builder.
    GraphBuilder(GraphFile& graphFile, Mistakes& allMistakes) : graph(graphFile), mistakes(allMistakes) {
        place.source = graph.path;
    }

    void SetLine(int line) { place.line = line; }
    void Tell(std::string mistake) { mistakes.Add(place, std::move(mistake)); }
    // False, with a mistake, for a name that cannot be used; the instance's parts must then be skipped.
    bool BeginInstance(const std::string& name);
    // Of the instance begun last.
    void SetModule(const std::string& id);
    void AddSetting(const std::string& name, const std::string& value, bool quoted = false);
    // Each instance.Port; after a port with wildcards the second may be an instance alone. False, without a
    // message, when one of them is not.
    bool AddLine(std::string_view from, std::string_view to);
    // One that is wrong: the graph has lines all the same.
    void CountLine() { graph.hasLines = true; }
    // What may be wrong with it concerns nobody but who shows the graph.
    void AddView(std::string_view section, const std::string& name, const std::string& value) {
        graph.view.push_back({std::string(section), name, value, place});
    }
    void SetAccept(const std::string& value);
    // When all is read.
    void Finish();
    void AddComment(std::string_view text) { graph.comments.push_back({std::string(text), place}); }

 private:
    void FindMisnamedLines();
    bool IsNewSetting(const std::string& name);

    GraphFile& graph;
    Mistakes& mistakes;
    Place place;
    std::unordered_map<std::string, int> lineOfInstance;
    std::unordered_map<std::string, int> lineOfSetting;  // of the instance begun last
};

}  // namespace host
