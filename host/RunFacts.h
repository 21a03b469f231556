#pragma once

#include <string>
#include <vector>

#include "host/GraphFile.h"
#include "host/Runner.h"
#include "sigweave/module/TCRunFacts.h"
#include "sigweave/services/RunTime.h"

namespace host {

// What this host tells modules of a run: the graph as parameter text with whole paths and without wildcards,
// the settings of each module, program and machine, the error of its clock, and the digest of each file that
// is read. Values of secret parameters are left out. The graph file, its lines and the modules must outlive
// it.
class RunFacts final : public TCRunFacts {
 public:
    // `graphLines` are those of the file with each wildcard replaced by what it stands for.
    RunFacts(const GraphFile& graphFile, const std::vector<LineEntry>& graphLines,
             std::vector<RunModule> runModules)
        : file(graphFile), lines(graphLines), modules(std::move(runModules)) {}

    const TCArray<TCRunFact>& Get() override;

 private:
    void Add(const std::string& name, const std::string& value);
    std::string GraphText() const;
    void AddModules();
    void AddFiles();

    const GraphFile& file;
    const std::vector<LineEntry>& lines;
    std::vector<RunModule> modules;
    TCArray<TCRunFact> facts;
    tc::RunTime start;  // that of the sources
};

}  // namespace host
