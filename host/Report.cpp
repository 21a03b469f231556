#include "host/Report.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <vector>

#include "host/Table.h"
#include "sigweave/services/Bilingual.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr int VALUE_COLUMN = 3;

// For people, in the order of the verdicts.
constexpr Bilingual VERDICTS[] = {{"complete", "vollständig"},
                                  {"interrupted", "unterbrochen"},
                                  {"stalled", "steckengeblieben"},
                                  {"failed", "fehlgeschlagen"}};

// Counts are told in full.
int DigitsOf(double value) {
    return value == std::floor(value) && std::fabs(value) < 1e15 ? 15 : 10;
}

}  // namespace

std::string WriteTable(const RunReport& report) {
    std::vector<std::vector<std::string>> rows{
        {Bilingual("instance", "Instanz").Text(), Bilingual("signal", "Signal").Text(),
         Bilingual("quantity", "Größe").Text(), Bilingual("value", "Wert").Text(),
         Bilingual("unit", "Einheit").Text()}};
    for (const ModuleReport& module : report.modules)
        for (const ResultReport& result : module.results)
            rows.push_back({module.instance, result.signal, result.quantity,
                            NumberText(result.value, DigitsOf(result.value)), result.unit});
    return rows.size() > 1 ? LayOut(rows, VALUE_COLUMN) : std::string();
}

std::string WriteVerdict(const RunReport& report, const std::string& graph) {
    std::string text = std::string(VERDICTS[static_cast<int>(report.verdict)].Text()) + ": " + graph + ", ";
    if (report.signalSeconds >= 0.0)
        text +=
            Bilingual("%1 s of signal in ", "%1 s Signal in ").With({NumberText(report.signalSeconds, 6)});
    text += NumberText(report.seconds, 3) + " s";
    return report.explanation.empty() ? text : text + "; " + report.explanation;
}

std::string WriteJson(const RunReport& report, const std::string& graph) {
    using Json = nlohmann::ordered_json;
    Json modules = Json::array();
    for (const ModuleReport& module : report.modules) {
        Json results = Json::array();
        for (const ResultReport& result : module.results)
            results.push_back({{"signal", result.signal},
                               {"quantity", result.quantity},
                               {"value", result.value},
                               {"unit", result.unit}});
        modules.push_back({{"instance", module.instance},
                           {"module", module.module},
                           {"blocks_in", module.blocksIn},
                           {"blocks_out", module.blocksOut},
                           {"results", std::move(results)}});
    }
    Json lines = Json::array();
    for (const LineReport& line : report.lines)
        lines.push_back({{"from", line.from},
                         {"to", line.to},
                         {"blocks", line.blocks},
                         {"deepest_queue", line.deepestQueue}});
    const Json document = {{"graph", graph},
                           {"verdict", ToText(report.verdict)},
                           {"seconds", report.seconds},
                           {"modules", std::move(modules)},
                           {"lines", std::move(lines)}};
    return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace host
