#include "host/RunFacts.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include "host/FileDigest.h"
#include "host/GraphText.h"
#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/platform/MachineFacts.h"

namespace host {
namespace {

namespace fs = std::filesystem;

bool IsPath(const TCModuleParameter& parameter) {
    return parameter.kind == TCModuleParameter::FILE || parameter.kind == TCModuleParameter::OUTPUT_FILE;
}

std::string Whole(const std::string& path) {
    std::error_code failed;
    const fs::path whole = fs::absolute(path, failed);
    return failed ? path : whole.string();
}

}  // namespace

const TCArray<TCRunFact>& RunFacts::Get() {
    if (facts.GetSize() > 0) return facts;
    Add("graph", GraphText());
    Add("graph.path", Whole(file.GetPath()));
    AddModules();
    Add("program", "sigweave " SIGWEAVE_VERSION);
    Add("host", tc::MachineName());
    start.Take();
    Add("start", tc::ShortestText(start.Get()));
    tc::ClockError clock;
    if (tc::ReadClockError(clock)) {
        Add("clock.synchronised", clock.isSynchronised ? "yes" : "no");
        Add("clock.largest_error", tc::ShortestText(clock.largest));
        Add("clock.estimated_error", tc::ShortestText(clock.estimated));
    }
    AddFiles();
    return facts;
}

void RunFacts::Add(const std::string& name, const std::string& value) {
    TCRunFact fact;
    fact.name = name.c_str();
    fact.value.AllocCopy(value);
    facts.Add(fact);
}

// Settings of files become whole paths, and wildcards the ports that they found, so that the graph means the
// same anywhere, also where its sources are not.
std::string RunFacts::GraphText() const {
    GraphFile graph = file;
    graph.EditLines() = lines;
    Mistakes ignored;
    for (const InstanceEntry& entry : file.GetInstances()) {
        const auto found = std::ranges::find(modules, entry.name, &RunModule::instance);
        auto* const module = found != modules.end() ? dynamic_cast<TCBaseModuleEx*>(found->module) : nullptr;
        for (const Setting& setting : entry.settings) {
            const TCModuleParameter* const parameter =
                module != nullptr ? module->FindParameter(setting.name.c_str()) : nullptr;
            if (parameter == nullptr || setting.value.empty()) continue;
            const std::string begin = entry.name + "." + setting.name + "=";
            if (parameter->secret) graph.Set(begin, ignored);
            if (IsPath(*parameter))
                graph.Set(begin + Whole(std::string(module->GetParameter(parameter->name))), ignored);
        }
    }
    return WriteGraphText(graph);
}

void RunFacts::AddModules() {
    for (const RunModule& entry : modules) {
        auto* const module = dynamic_cast<TCBaseModuleEx*>(entry.module);
        if (module == nullptr) continue;
        std::string settings;
        for (const TCModuleParameter& parameter : module->GetParameters())
            if (!parameter.secret)
                settings +=
                    WriteTextSetting(parameter.name, std::string(module->GetParameter(parameter.name))) +
                    "\n";
        Add("settings." + entry.instance, settings);
    }
}

void RunFacts::AddFiles() {
    std::set<std::string> paths;
    for (const RunModule& entry : modules) {
        auto* const module = dynamic_cast<TCBaseModuleEx*>(entry.module);
        TCArray<TCModuleFile> files;
        if (module != nullptr) module->GetFiles(files);
        for (int i = 0; i < files.GetSize(); ++i)
            if (files[i].use == TCModuleFile::READS) paths.insert(Whole(std::string(files[i].path)));
    }
    int number = 0;
    FileDigest digest;
    for (const std::string& path : paths) {
        if (!ComputeDigest(path, digest)) continue;
        const std::string name = "input." + std::to_string(++number);
        Add(name + ".path", path);
        Add(name + ".size", std::to_string(digest.bytes));
        Add(name + ".sha256", digest.sha256);
    }
}

}  // namespace host
