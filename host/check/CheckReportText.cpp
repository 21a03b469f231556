#include "host/check/CheckReportText.h"

#include <nlohmann/json.hpp>
#include <vector>

#include "host/Table.h"
#include "sigweave/services/Bilingual.h"

namespace host::check {
namespace {

using tc::Bilingual;

constexpr Bilingual STATUS_WORDS[] = {{"passed", "bestanden"},
                                      {"FAILED", "DURCHGEFALLEN"},
                                      {"not applicable", "entfällt"},
                                      {"warning", "Warnung"}};

void AddRows(const CheckReport& report, const CheckResult& result,
             std::vector<std::vector<std::string>>& rows) {
    const Finding& finding = result.finding;
    const auto add = [&](const std::string& text) { rows.push_back({"", "", text}); };
    rows.push_back({"  " + result.check, STATUS_WORDS[finding.status].Text(), finding.reason});
    if (!finding.step.empty()) add(Bilingual("where: %1", "wo: %1").With({finding.step}));
    if (!finding.remedy.empty()) add(Bilingual("remedy: %1", "Abhilfe: %1").With({finding.remedy}));
    if (!finding.seed.empty())
        add(Bilingual("again: sigweave check-module %1 --module %2 --reproduce %3",
                      "noch einmal: sigweave check-module %1 --module %2 --reproduce %3")
                .With({report.library, result.module, finding.seed}));
}

std::string Warnings(int count) {
    if (count == 0) return {};
    static constexpr Bilingual ONE(", %1 warning", ", %1 Warnung");
    static constexpr Bilingual SEVERAL(", %1 warnings", ", %1 Warnungen");
    return (count == 1 ? ONE : SEVERAL).With({std::to_string(count)});
}

std::string NeverRun(const CheckReport& report) {
    std::string names;
    for (const CheckResult& result : report.results)
        if (result.finding.neverRan && names.find(result.module) == std::string::npos)
            names += (names.empty() ? "" : ", ") + result.module;
    if (names.empty()) return {};
    return Bilingual("never run: %1; what such a module does in a run was not checked\n",
                     "nie gelaufen: %1; was ein solches Modul im Lauf tut, wurde nicht geprüft\n")
        .With({names});
}

// For programs, so the same in every language.
const char* Confinement(const tc::Confinement& confinement) {
    if (confinement.IsNone()) return "none";
    if (!confinement.namespaces) return "file rules";
    return confinement.fileRules > 0 ? "namespaces and file rules" : "namespaces";
}

}  // namespace

// A heading and a table for the library and for each module.
std::string WriteText(const CheckReport& report) {
    std::string text;
    std::vector<std::vector<std::string>> rows;
    for (std::size_t i = 0; i < report.results.size(); ++i) {
        const CheckResult& result = report.results[i];
        if (i == 0 || result.module != report.results[i - 1].module) {
            text += LayOut(rows) + (result.module.empty() ? report.library : result.module) + "\n";
            rows.clear();
        }
        AddRows(report, result, rows);
    }
    text += LayOut(rows);
    std::string calls;
    for (const std::string& call : report.calls) calls += "  " + call + "\n";
    const bool failed = report.Count(Finding::FAILED) > 0;
    const Bilingual& verdict = failed ? STATUS_WORDS[Finding::FAILED] : STATUS_WORDS[Finding::PASSED];
    return text + calls + NeverRun(report) +
           Bilingual("%1: %2 passed, %3 failed, %4 not applicable%6, in %5 s\n",
                     "%1: %2 bestanden, %3 durchgefallen, %4 entfallen%6, in %5 s\n")
               .With({verdict.Text(), std::to_string(report.Count(Finding::PASSED)),
                      std::to_string(report.Count(Finding::FAILED)),
                      std::to_string(report.Count(Finding::NOT_APPLICABLE)), NumberText(report.seconds, 3),
                      Warnings(report.Count(Finding::WARNING))});
}

std::string WriteJson(const CheckReport& report) {
    using Json = nlohmann::ordered_json;
    Json checks = Json::array();
    for (const CheckResult& result : report.results)
        checks.push_back({{"module", result.module},
                          {"check", result.check},
                          {"status", ToText(result.finding.status)},
                          {"reason", result.finding.reason},
                          {"step", result.finding.step},
                          {"remedy", result.finding.remedy},
                          {"seed", result.finding.seed},
                          {"never_ran", result.finding.neverRan}});
    const int failed = report.Count(Finding::FAILED);
    const Json document = {{"library", report.library},
                           {"verdict", failed > 0 ? "failed" : "passed"},
                           {"seed", report.seed},
                           {"seconds", report.seconds},
                           {"passed", report.Count(Finding::PASSED)},
                           {"failed", failed},
                           {"not_applicable", report.Count(Finding::NOT_APPLICABLE)},
                           {"checks", std::move(checks)},
                           {"calls", report.calls},
                           {"warnings", report.Count(Finding::WARNING)},
                           {"confinement", Confinement(report.confinement)}};
    return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace host::check
