#include "host/IdleSinks.h"

#include <set>

#include "sigweave/services/Bilingual.h"

namespace host {

std::vector<Message> FindIdleSinks(const RunReport& report, const std::vector<RunLine>& lines) {
    static constexpr tc::Bilingual NO_BLOCK("no block came to '%1' from '%2'",
                                            "bei '%1' kam von '%2' kein Block an");
    std::set<int> feeding;
    for (const RunLine& line : lines) feeding.insert(line.from);
    std::vector<Message> found;
    for (std::size_t index = 0; index < report.lines.size(); ++index) {
        const LineReport& line = report.lines[index];
        const int sink = lines[index].to;
        if (line.blocks > 0 || feeding.contains(sink)) continue;
        found.push_back({Severity::Warning,
                         report.modules[static_cast<std::size_t>(sink)].instance,
                         NO_BLOCK.With({line.to, line.from}),
                         {}});
    }
    return found;
}

}  // namespace host
