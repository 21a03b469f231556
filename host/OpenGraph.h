#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/FileClashes.h"
#include "host/Graph.h"
#include "host/GraphFile.h"
#include "host/HostWindow.h"
#include "host/Mistakes.h"
#include "host/ModuleCatalogue.h"
#include "host/RunReport.h"
#include "host/Runner.h"

namespace host {

// What is to be opened.
struct GraphSource {
    std::string path;                   // of the file; of a text the name that messages call it by
    std::optional<std::string> text;    // the graph itself, when it is not to be read from the file
    std::vector<std::string> settings;  // INSTANCE.PARAMETER=VALUE, which replace those of the graph
    std::vector<std::string> folders;   // with module libraries; see ModuleCatalogue::FoldersOf
    std::vector<FileUse> filesOfHost;   // that the program itself will read and write besides the graph
};

// A graph read and checked, with all that it needs: for programs that check and run graphs. It prints
// nothing, but what its modules report goes where HostWindow and TCModuleMessage lead it. One thread, which
// is that of the run too.
class OpenGraph {
 public:
    explicit OpenGraph(const GraphSource& source);

    // All that is wrong, each with its place. A graph with mistakes must not be run.
    Mistakes mistakes;
    const GraphFile file;
    HostWindow window;
    const ModuleCatalogue catalogue;
    Graph graph;

    // The output INSTANCE.OUTPUT, to be watched in a run. None, with a mistake at `place`, when there is no
    // such output.
    std::optional<OutputWatch> WatchOutput(const std::string& name, const Place& place);
    // Makes the folders that modules write to, and runs the graph; once. Of a run that has come to its end,
    // warnings about sinks to which nothing came are added to `warnings`. The messages of the run are not in
    // the report yet: whoever runs it takes them (host/Messages.h), unless others may have some.
    RunReport Run(const RunOptions& options, std::vector<Message>& warnings) const;

 private:
    GraphFile Read(const GraphSource& source);
};

}  // namespace host
