#pragma once

#include <string>
#include <vector>

#include "host/Mistakes.h"

namespace host {

// A graph as it was written: names only, nothing of it looked up yet. Every entry knows its place, for
// messages. The format is described in docs/graph-files.md.

struct Setting {
    std::string name;
    std::string value;
    Place place;
    bool onCommandLine = false;
};

struct InstanceEntry {
    std::string name;
    std::string module;  // the module's id; empty when the section does not say
    Place place;
    Place modulePlace;
    std::vector<Setting> settings;
};

struct PortName {
    std::string instance;
    std::string port;
};

struct LineEntry {
    PortName from;
    PortName to;
    Place place;
};

class GraphFile {
 public:
    // Adds a mistake for everything that is not well formed, and keeps what is.
    static GraphFile Read(const std::string& path, Mistakes& mistakes);
    static GraphFile Parse(const std::string& path, const std::string& text, Mistakes& mistakes);

    // An argument INSTANCE.PARAMETER=VALUE of the command line: replaces what the file says.
    void Set(const std::string& argument, Mistakes& mistakes);

    const std::string& GetPath() const { return path; }
    const std::vector<InstanceEntry>& GetInstances() const { return instances; }
    const std::vector<LineEntry>& GetLines() const { return lines; }
    // Whether lines between ports whose declarators differ are accepted without a question.
    bool AcceptsDifferences() const { return acceptsDifferences; }

 private:
    class Parser;

    InstanceEntry* FindInstance(const std::string& name);

    std::string path;
    std::vector<InstanceEntry> instances;
    std::vector<LineEntry> lines;
    bool acceptsDifferences = false;
};

}  // namespace host
