#include "host/check/ModuleChecker.h"

#include <algorithm>
#include <filesystem>

#include "host/Console.h"
#include "host/Guard.h"
#include "host/HostWindow.h"
#include "host/Table.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/NearNames.h"

namespace host::check {
namespace {

using tc::Bilingual;
using tc::ChildEnd;

constexpr const char* STANDARD_OUTPUT = "standard-output";
constexpr const char* RANDOM_CALLS = "random-calls";
constexpr std::size_t MOST_QUOTED = 200;

// What the child reports besides scenes and calls.
enum Tale : char {
    STATUS = 's',
    REASON = 'w',
    REMEDY = 'y',
    NEVER_RAN = 'n',
    MODULE_ID = 'i',
    PARAMETER = 'v',
    UNREADABLE = 'u'
};

std::string LastLine(const std::string& text) {
    const std::size_t end = text.find_last_not_of(" \n\r");
    if (end == std::string::npos) return {};
    const std::size_t begin = text.rfind('\n', end);
    return text.substr(begin == std::string::npos ? 0 : begin + 1, end - begin).substr(0, MOST_QUOTED);
}

void Tell(const tc::ChildReport& report, const Finding& finding) {
    report.Tell(STATUS, std::to_string(finding.status));
    report.Tell(REASON, finding.reason);
    report.Tell(REMEDY, finding.remedy);
    if (finding.neverRan) report.Tell(NEVER_RAN, {});
}

Finding ThrownBy(const std::string& thrown) {
    return {Finding::FAILED, thrown,
            Bilingual("catch it in the module; no exception may leave an entry point",
                      "fangen Sie sie im Modul; aus einer Schnittstellenfunktion darf keine Ausnahme nach "
                      "außen gelangen")
                .Text()};
}

Finding WhatItFinds(const NamedCheck& check, CheckSubject& subject) {
    Finding finding;
    const std::string thrown = WhatItThrows([&] {
        try {
            finding = check.run(subject);
        } catch (const Finding& thrownFinding) {
            finding = thrownFinding;
        }
        try {
            if (finding.status != Finding::FAILED) subject.CheckPlace();
        } catch (const Finding& thrownFinding) {
            finding = thrownFinding;
        }
    });
    return thrown.empty() ? finding : ThrownBy(thrown);
}

constexpr int RULES_WITH_TRUNCATION = 3;
constexpr Bilingual CAN_EMPTY(
    "this system confines %1 by its rules for files alone: it can still empty the files that you may write, "
    "and "
    "change the modes of yours",
    "dieses System schließt %1 nur mit seinen Dateiregeln ein: sie kann noch Dateien leeren, die Sie "
    "schreiben "
    "dürfen, und die Rechte Ihrer Dateien ändern");
constexpr Bilingual CAN_CHANGE_MODES(
    "this system confines %1 by its rules for files alone: it can still change the modes and times of your "
    "files, "
    "and reach the network",
    "dieses System schließt %1 nur mit seinen Dateiregeln ein: sie kann noch Rechte und Zeiten Ihrer Dateien "
    "ändern "
    "und das Netz erreichen");

struct Ending {
    ChildEnd::Kind kind;
    Bilingual reason;  // with the signal, the exit code, the seconds or the system's words
    Bilingual remedy;
};

constexpr Ending ENDINGS[] = {
    {ChildEnd::Kind::Killed,
     "%1",
     {"build the library with -g -fsanitize=address,undefined and check it again",
      "bauen Sie die Bibliothek mit -g -fsanitize=address,undefined und prüfen Sie sie noch einmal"}},
    {ChildEnd::Kind::Exited,
     {"it ended the program with exit code %1", "es hat das Programm mit dem Exitcode %1 beendet"},
     {"return a negative code instead of calling exit()",
      "geben Sie einen negativen Code zurück, statt exit() aufzurufen"}},
    {ChildEnd::Kind::TimedOut,
     {"no end within %1 s", "kein Ende binnen %1 s"},
     {"a call must return; if it only takes long, raise --time-limit SECONDS",
      "ein Aufruf muss zurückkehren; dauert er nur lange, erhöhen Sie --time-limit SEKUNDEN"}},
    {ChildEnd::Kind::Silenced,
     {"it closed file descriptors that it had not opened",
      "es hat Dateideskriptoren geschlossen, die es nicht geöffnet hatte"},
     {"close only what the module opened, and once",
      "schließen Sie nur, was das Modul geöffnet hat, und nur einmal"}},
    {ChildEnd::Kind::NotStarted,
     {"the check could not be started: %1", "die Prüfung ließ sich nicht starten: %1"},
     {"look for room and rights in the folder for temporary files (TMPDIR), and for the limits of processes",
      "prüfen Sie Platz und Rechte im Ordner für temporäre Dateien (TMPDIR) und die Grenzen für Prozesse"}},
    {ChildEnd::Kind::Signalled,
     {"it sent a signal to the program that checks it%1",
      "es hat dem prüfenden Programm ein Signal gesendet%1"},
     {"a module ends nothing but its own work; answer a negative code, and signal only processes that it "
      "started",
      "ein Modul beendet nur seine eigene Arbeit; geben Sie einen negativen Code zurück, und senden Sie "
      "Signale nur an eigene Prozesse"}},
    {ChildEnd::Kind::Finished, {"the check reported nothing", "die Prüfung hat nichts gemeldet"}, ""},
};

constexpr Bilingual STEPS[] = {{"no temporary folder could be made for it (%1)",
                                "für sie ließ sich kein temporärer Ordner anlegen (%1)"},
                               {"no process could be started (%1)", "es ließ sich kein Prozess starten (%1)"},
                               {"it could not be confined as at the beginning (%1)",
                                "sie ließ sich nicht einschließen wie am Anfang (%1)"},
                               {"its temporary folder could not be entered (%1)",
                                "ihr temporärer Ordner ließ sich nicht betreten (%1)"}};

std::string WhyNotStarted(const ChildEnd& end) {
    const Bilingual& step = STEPS[static_cast<std::size_t>(end.step)];
    return step.With({std::error_code(end.number, std::system_category()).message()});
}

// What a child that did not finish says of its module.
Finding EndedBy(const ChildEnd& end, double timeLimit) {
    std::string insert = end.signal;
    if (end.kind == ChildEnd::Kind::Exited) insert = std::to_string(end.number);
    if (end.kind == ChildEnd::Kind::TimedOut) insert = NumberText(timeLimit, 6);
    if (end.kind == ChildEnd::Kind::NotStarted) insert = WhyNotStarted(end);
    if (end.kind == ChildEnd::Kind::Signalled && !insert.empty()) insert = ": " + insert;
    const Ending& ending = *std::ranges::find(ENDINGS, end.kind, &Ending::kind);
    Finding finding{Finding::FAILED, ending.reason.With({insert}), ending.remedy.Text()};
    const std::string said = LastLine(end.errors);
    if (!said.empty()) finding.reason += Bilingual("; it said: %1", "; es meldete: %1").With({said});
    return finding;
}

}  // namespace

int CheckReport::Count(Finding::Status status) const {
    return static_cast<int>(std::ranges::count_if(
        results, [&](const CheckResult& result) { return result.finding.status == status; }));
}

ModuleChecker::ModuleChecker(const CheckOptions& checkOptions) : options(checkOptions) {
    std::error_code failed;
    options.folder = std::filesystem::current_path(failed).string();
    options.library = std::filesystem::absolute(options.library, failed).lexically_normal().string();
    report.library = options.library;
    report.seed = options.seed;
}

bool ModuleChecker::FindConfinement(std::string& error) {
    tc::ChildEnd end;
    report.confinement = tc::FindConfinement(end);
    if (end.kind != ChildEnd::Kind::Finished)
        error = EndedBy(end, options.timeLimit).reason + "; " + EndedBy(end, options.timeLimit).remedy;
    else if (report.confinement.IsNone())
        console::Warning(
            Bilingual(
                "this system offers no means to confine %1: it can change and delete all files that you can; "
                "check only a library that you trust, or in a container of its own",
                "dieses System bietet kein Mittel, %1 einzuschließen: sie kann alle Dateien ändern und "
                "löschen, "
                "die Sie ändern und löschen können; prüfen Sie nur eine Bibliothek, der Sie trauen, oder in "
                "einem eigenen Container")
                .With({options.library}));
    else if (!report.confinement.namespaces)
        console::Warning((report.confinement.fileRules < RULES_WITH_TRUNCATION ? CAN_EMPTY : CAN_CHANGE_MODES)
                             .With({options.library}));
    return error.empty();
}

tc::ChildPlan ModuleChecker::Plan() const {
    tc::ChildPlan plan;
    plan.time = std::chrono::milliseconds(static_cast<std::int64_t>(options.timeLimit * 1000.0));
    plan.fileVariables = {"SIGWEAVE_USER_HIVE", "SIGWEAVE_MACHINE_HIVE"};
    plan.confinement = report.confinement;
    return plan;
}

ChildEnd ModuleChecker::RunInChild(const std::function<void(const tc::ChildReport&, tc::ChildPlace&)>& work,
                                   const std::function<void(char, std::string_view)>& listen) const {
    ChildEnd end = tc::RunInChild(Plan(), work, listen);
    if (!end.left.empty())
        console::Warning(Bilingual("not all of the temporary folder %1 could be removed; it is left",
                                   "der temporäre Ordner %1 ließ sich nicht ganz entfernen; er bleibt stehen")
                             .With({end.left}));
    return end;
}

bool ModuleChecker::Prepare(std::string& error) {
    return FindConfinement(error) && Look(error) && ChooseModule(error) && ReadSettings(error);
}

// In a child too: opening the library runs code of it. When that dies, the checks report how.
bool ModuleChecker::Look(std::string& error) {
    const auto look = [&](const tc::ChildReport& child, tc::ChildPlace&) {
        ModuleLibrary::Step step{};
        std::string reason;
        const auto library = ModuleLibrary::Open(options.library, reason, &step);
        if (step == ModuleLibrary::Step::Load) child.Tell(UNREADABLE, reason);
        if (library == nullptr) return;
        int kind = library->FirstKind();
        for (const std::string& id : library->GetIds()) {
            child.Tell(MODULE_ID, id);
            TCBaseModule* const module = library->create(kind, 0);
            if (const auto* extended = dynamic_cast<TCBaseModuleEx*>(module))
                for (const TCModuleParameter& parameter : extended->GetParameters())
                    child.Tell(PARAMETER, Text(parameter.name));
            if (module != nullptr) library->destroy(kind, module);
            ++kind;
        }
    };
    RunInChild(look, [&](char tale, std::string_view text) {
        if (tale == UNREADABLE) error = text;
        if (tale == MODULE_ID) kinds.push_back({std::string(text), {}});
        if (tale == PARAMETER) kinds.back().parameters.emplace_back(text);
    });
    if (!error.empty()) error = options.library + ": " + error;
    return error.empty();
}

bool ModuleChecker::ChooseModule(std::string& error) {
    if (options.module.empty()) return true;
    CStringArray ids;
    for (const Kind& kind : kinds) ids.push_back(kind.id);
    if (std::ranges::find(ids, options.module) != ids.end()) {
        std::erase_if(kinds, [&](const Kind& kind) { return kind.id != options.module; });
        return true;
    }
    error = Bilingual("%1 has no module '%2'; %3", "%1 hat kein Modul '%2'; %3")
                .With({options.library, options.module, tc::SuggestNames(options.module, ids)});
    return false;
}

bool ModuleChecker::ReadSettings(std::string& error) {
    CStringArray names;
    for (const Kind& kind : kinds) names.insert(names.end(), kind.parameters.begin(), kind.parameters.end());
    for (const std::string& setting : options.settings) {
        const std::size_t split = setting.find('=');
        const std::string name = setting.substr(0, split);
        if (split == std::string::npos || split == 0)
            error = Bilingual("--set %1: write PARAMETER=VALUE", "--set %1: schreiben Sie PARAMETER=WERT")
                        .With({setting});
        else if (std::ranges::find(names, name) == names.end())
            error = Bilingual("--set %1: no module has a parameter '%2'; %3",
                              "--set %1: kein Modul hat einen Parameter '%2'; %3")
                        .With({setting, name, tc::SuggestNames(name, names)});
        if (!error.empty()) return false;
        settings.emplace_back(name, setting.substr(split + 1));
    }
    return true;
}

CheckReport ModuleChecker::Run() {
    const auto begin = std::chrono::steady_clock::now();
    for (const NamedCheck& check : AllChecks())
        if (check.ofLibrary && !options.reproduce) Add({}, check);
    for (const Kind& kind : kinds) CheckModule(kind.id);
    console::ShowProgress("");
    report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    return std::move(report);
}

void ModuleChecker::CheckModule(const std::string& id) {
    printed.clear();
    for (const NamedCheck& check : AllChecks())
        if (!check.ofLibrary && (!options.reproduce || Text(check.name) == RANDOM_CALLS)) Add(id, check);
    JudgeStandardOutput(id);
}

std::string ModuleChecker::WhatHinders(const std::string& module, const NamedCheck& check) const {
    for (const CheckResult& result : report.results) {
        const Finding& finding = result.finding;
        const bool isNeeded = std::ranges::any_of(
            check.needs, [&](const char* name) { return name != nullptr && result.check == name; });
        if (isNeeded && result.module == module &&
            (finding.status == Finding::FAILED || finding.skipped || finding.neverRan))
            return result.check;
    }
    return {};
}

void ModuleChecker::Add(const std::string& module, const NamedCheck& check) {
    console::ShowProgress(module + " " + check.name);
    const std::string hindrance = WhatHinders(module, check);
    if (hindrance.empty()) {
        report.results.push_back({module, check.name, Do(module, check)});
        return;
    }
    Finding finding;
    finding.status = Finding::NOT_APPLICABLE;
    finding.reason = Bilingual("because of '%1'", "wegen '%1'").With({hindrance});
    finding.skipped = true;
    report.results.push_back({module, check.name, finding});
}

Finding ModuleChecker::Do(const std::string& module, const NamedCheck& check) {
    Finding finding;
    std::string scene;
    std::string call;
    bool told = false;
    const auto listen = [&](char tale, std::string_view text) {
        if (tale == CheckSubject::TELLS_SCENE) scene = text;
        if (tale == CheckSubject::TELLS_CALL) call = text;
        if (tale == CheckSubject::TELLS_SEED) finding.seed = text;
        if (tale == STATUS) finding.status = static_cast<Finding::Status>(text.front() - '0');
        if (tale == REASON) finding.reason = text;
        if (tale == REMEDY) finding.remedy = text;
        finding.neverRan = finding.neverRan || tale == NEVER_RAN;
        told = told || tale == STATUS;
        const bool isStep = tale == CheckSubject::TELLS_SCENE || tale == CheckSubject::TELLS_CALL;
        if (options.reproduce && isStep) report.calls.emplace_back(text);
    };
    const auto work = [&](const tc::ChildReport& child, tc::ChildPlace& place) {
        HostWindow window;
        CheckSubject subject(options, settings, module, child, place);
        Tell(child, WhatItFinds(check, subject));
    };
    const ChildEnd end = RunInChild(work, listen);
    if (end.kind != ChildEnd::Kind::Finished || !told) {
        const std::string seed = finding.seed;
        finding = EndedBy(end, options.timeLimit);
        finding.seed = seed;
    }
    if (finding.status == Finding::FAILED)
        finding.step = call + (call.empty() || scene.empty() ? "" : "; ") + scene;
    if (finding.status != Finding::FAILED) finding.seed.clear();
    if (printed.empty()) printedIn = check.name;
    printed += end.output;
    return finding;
}

void ModuleChecker::JudgeStandardOutput(const std::string& module) {
    Finding finding = Passed(Bilingual("left alone", "blieb unberührt").Text());
    if (!printed.empty())
        finding = {Finding::FAILED,
                   Bilingual("it printed there in '%1': %2", "es schrieb dorthin in '%1': %2")
                       .With({printedIn, printed.substr(0, std::min(printed.find('\n'), MOST_QUOTED))}),
                   Bilingual("standard output belongs to the host's report; send texts with TCModuleMessage",
                             "die Standardausgabe gehört dem Bericht des Programms; senden Sie Texte mit "
                             "TCModuleMessage")
                       .Text()};
    report.results.push_back({module, STANDARD_OUTPUT, std::move(finding)});
}

}  // namespace host::check
