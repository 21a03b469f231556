#include "host/FileWait.h"

#include <algorithm>
#include <filesystem>

#include "host/Console.h"
#include "host/RunLog.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr double PATIENCE = 1500.0;  // ms
constexpr double PAUSE = 300.0;      // between two looks at a run
constexpr int ANSWER_TIME = 1000;

bool MayWait(const std::string& file) {
    std::error_code ignored;
    const auto type = std::filesystem::status(file == "-" ? "/dev/stdin" : file, ignored).type();
    using std::filesystem::file_type;
    return type == file_type::fifo || type == file_type::character || type == file_type::socket;
}

void Tell(const std::string& text) {
    console::Say(text);
    runlog::FromHost(TCLogFile::NOTICE, text);
}

}  // namespace

std::string FirstThatMayWait(const std::vector<std::string>& files) {
    const auto found = std::ranges::find_if(files, MayWait);
    return found != files.end() ? *found : std::string();
}

void TellWait(const std::string& instance, const std::string& what) {
    Tell(Bilingual("%1 waits for '%2'; Ctrl-C ends the wait", "%1 wartet auf '%2'; Strg-C beendet das Warten")
             .With({instance.empty() ? "sigweave" : instance, what}));
}

FileWait::FileWait(const std::string& instance, const std::vector<std::string>& files) {
    const std::string file = FirstThatMayWait(files);
    if (file.empty()) return;
    thread = std::make_unique<tc::Thread>("file wait", [this, instance, file] {
        if (tc::WaitForHandle(done.GetHandle(), PATIENCE) == tc::WAIT_TIMED_OUT) TellWait(instance, file);
    });
}

RunWait::RunWait(RunGauge& runGauge, const std::vector<RunModule>& modules, const Interruption& wish,
                 std::function<void()> whenStuck)
    : gauge(runGauge), interruption(wish), giveUp(std::move(whenStuck)) {
    for (const RunModule& module : modules) {
        instances.push_back(module.instance);
        files.push_back(FirstThatMayWait(FilesOf(*module.module)));
    }
    const auto isNone = [](const std::string& file) { return file.empty(); };
    if (!std::ranges::all_of(files, isNone))
        thread = std::make_unique<tc::Thread>("run wait", [this] { Watch(); });
}

void RunWait::Watch() {
    int told = -1;  // the module whose wait was reported
    while (tc::WaitForHandle(done.GetHandle(), PAUSE) == tc::WAIT_TIMED_OUT) {
        const int module = gauge.Current();
        const bool mayWait = module >= 0 && !files[static_cast<std::size_t>(module)].empty();
        RunFigures figures;
        if (!mayWait || gauge.Ask(figures, ANSWER_TIME) || gauge.Current() != module) {
            told = -1;
            continue;
        }
        const std::string& instance = instances[static_cast<std::size_t>(module)];
        const std::string& file = files[static_cast<std::size_t>(module)];
        if (interruption.IsRaised()) {
            Tell(Bilingual("%1 does not come back from waiting for '%2'; the program ends now",
                           "%1 kehrt vom Warten auf '%2' nicht zurück; das Programm wird beendet")
                     .With({instance, file}));
            return giveUp();
        }
        if (told != module) TellWait(instance, file);
        told = module;
    }
}

std::vector<std::string> FilesOf(TCBaseModule& module) {
    std::vector<std::string> files;
    auto* const extended = dynamic_cast<TCBaseModuleEx*>(&module);
    if (extended == nullptr) return files;
    for (const TCModuleParameter& parameter : extended->GetParameters())
        if (parameter.kind == TCModuleParameter::FILE || parameter.kind == TCModuleParameter::OUTPUT_FILE)
            files.emplace_back(extended->GetParameter(parameter.name));
    return files;
}

}  // namespace host
