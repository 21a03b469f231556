#include "host/Report.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <vector>

#include "host/Console.h"
#include "host/Table.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/signal/UnitText.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr int VALUE_COLUMN = 3;

// For people, in the order of the verdicts.
constexpr Bilingual VERDICTS[] = {{"complete", "vollständig"},       {"interrupted", "unterbrochen"},
                                  {"stalled", "steckengeblieben"},   {"failed", "fehlgeschlagen"},
                                  {"mistakes", "Fehler im Graphen"}, {"with gaps", "lückenhaft"}};

using Json = nlohmann::ordered_json;

Json ModulesOf(const RunReport& report) {
    Json modules = Json::array();
    for (const ModuleReport& module : report.modules) {
        Json results = Json::array();
        for (const ResultReport& result : module.results)
            results.push_back({{"signal", result.signal},
                               {"quantity", result.quantity},
                               {"value", result.value},
                               {"unit", result.unit}});
        Json entry = {{"instance", module.instance},
                      {"module", module.module},
                      {"blocks_in", module.blocksIn},
                      {"blocks_out", module.blocksOut},
                      {"results", std::move(results)}};
        if (module.gaps.count > 0)
            entry["gaps"] = {
                {"count", module.gaps.count}, {"samples", module.gaps.samples}, {"first", module.gaps.first}};
        modules.push_back(std::move(entry));
    }
    return modules;
}

Json LinesOf(const RunReport& report) {
    Json lines = Json::array();
    for (const LineReport& line : report.lines)
        lines.push_back({{"from", line.from},
                         {"to", line.to},
                         {"blocks", line.blocks},
                         {"deepest_queue", line.deepestQueue}});
    return lines;
}

Json ChangesOf(const RunReport& report) {
    Json changes = Json::array();
    for (const LiveChange& change : report.changes)
        changes.push_back({{"instance", change.instance},
                           {"parameter", change.parameter},
                           {"value", change.value},
                           {"block", change.block}});
    return changes;
}

// The warnings, or all others.
Json MessagesOf(const RunReport& report, bool warnings) {
    Json messages = Json::array();
    for (const Message& message : report.messages) {
        if ((message.severity == Severity::Warning) != warnings) continue;
        Json entry = {{"instance", message.instance}, {"text", message.text}, {"times", message.times}};
        if (!warnings) entry["severity"] = ToText(message.severity);
        if (!message.place.source.empty()) entry["file"] = message.place.source;
        if (message.place.line > 0) entry["line"] = message.place.line;
        messages.push_back(std::move(entry));
    }
    return messages;
}

Json MistakesOf(const RunReport& report) {
    Json mistakes = Json::array();
    for (const Mistake& mistake : report.mistakes)
        mistakes.push_back(
            {{"file", mistake.place.source}, {"line", mistake.place.line}, {"text", mistake.text}});
    return mistakes;
}

// With separators between thousands.
std::string CountText(long long count, char separator) {
    std::string text = std::to_string(count);
    for (int place = static_cast<int>(text.size()) - 3; place > 0; place -= 3)
        text.insert(static_cast<std::size_t>(place), 1, separator);
    return text;
}

// Of the day, in UTC, to hundredths of a second.
std::string ClockText(double milliseconds) {
    const double ofDay = std::fmod(std::floor(milliseconds / 10.0), 8640000.0);
    const int hundredths = std::isfinite(ofDay) ? static_cast<int>(ofDay) : 0;
    const int seconds = hundredths / 100;
    return std::string(TCString::FormatS("%02d:%02d:%02d.%02d", seconds / 3600, seconds / 60 % 60,
                                         seconds % 60, hundredths % 100));
}

// Counts are written in full.
int DigitsOf(double value) {
    return value == std::floor(value) && std::fabs(value) < 1e15 ? 15 : 10;
}

}  // namespace

std::string ShownUnit(const std::string& stored) {
    TCSI_Unit unit;
    return unit.FromString(stored.c_str()) ? tc::DisplayUnit(unit) : stored;
}

std::string WriteTable(const RunReport& report) {
    std::vector<std::vector<std::string>> rows{
        {Bilingual("instance", "Instanz").Text(), Bilingual("signal", "Signal").Text(),
         Bilingual("quantity", "Größe").Text(), Bilingual("value", "Wert").Text(),
         Bilingual("unit", "Einheit").Text()}};
    for (const ModuleReport& module : report.modules) {
        for (const ResultReport& result : module.results)
            rows.push_back({module.instance, result.signal, result.quantity,
                            NumberText(result.value, DigitsOf(result.value)), ShownUnit(result.unit)});
        if (module.gaps.count == 0) continue;
        rows.push_back({module.instance, "", "gaps", std::to_string(module.gaps.count), ""});
        rows.push_back({module.instance, "", "lost samples", std::to_string(module.gaps.samples), ""});
    }
    return rows.size() > 1 ? LayOut(rows, VALUE_COLUMN) : std::string();
}

std::string WriteMessage(const Message& message) {
    const std::string place = message.place.source.empty() ? "" : ToText(message.place) + ": ";
    const bool named = !place.empty() || message.instance.empty();
    std::string text = place + (named ? "" : message.instance + ": ") + message.text;
    if (message.times > 1)
        text += Bilingual(" (%1 times)", " (%1-mal)").With({std::to_string(message.times)});
    return text;
}

std::string WriteWarnings(const RunReport& report, Warnings which) {
    std::string text;
    for (const Message& message : report.messages)
        if (message.severity == Severity::Warning && (which == Warnings::All || !message.told))
            text += std::string(console::WARNING_WORD.Text()) + ": " + WriteMessage(message) + "\n";
    return text;
}

std::int64_t CountWarnings(const RunReport& report) {
    std::int64_t count = 0;
    for (const Message& message : report.messages)
        if (message.severity == Severity::Warning) count += message.times;
    return count;
}

std::string WriteChangesMade(const RunReport& report) {
    std::string text;
    for (const LiveChange& change : report.changes)
        text += Bilingual("changed: %1.%2=%3 from block %4 on\n", "geändert: %1.%2=%3 ab Block %4\n")
                    .With({change.instance, change.parameter, change.value, std::to_string(change.block)});
    return text;
}

std::string WriteGaps(const TCModuleGaps& gaps) {
    static constexpr Bilingual ONE("1 gap, %2 samples, at %3", "1 Lücke, %2 Abtastwerte, um %3");
    static constexpr Bilingual SEVERAL("%1 gaps, %2 samples, the first at %3",
                                       "%1 Lücken, %2 Abtastwerte, die erste um %3");
    const char separator = *Bilingual(",", ".").Text();
    return (gaps.count == 1 ? ONE : SEVERAL)
        .With({CountText(gaps.count, separator), CountText(gaps.samples, separator), ClockText(gaps.first)});
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
    const Json document = {{"graph", graph},
                           {"verdict", ToText(report.verdict)},
                           {"reason", report.explanation},
                           {"seconds", report.seconds},
                           {"warnings", MessagesOf(report, true)},
                           {"messages", MessagesOf(report, false)},
                           {"messages_left_out", report.messagesLeftOut},
                           {"mistakes", MistakesOf(report)},
                           {"modules", ModulesOf(report)},
                           {"lines", LinesOf(report)},
                           {"changes", ChangesOf(report)}};
    return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace host
