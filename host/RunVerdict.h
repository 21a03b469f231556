#pragma once

#include <string>

#include "host/RunOutcome.h"
#include "host/RunReport.h"
#include "host/Scheduler.h"
#include "host/SteppedGraph.h"
#include "sigweave/services/Bilingual.h"

namespace host {

// How a module failed, by what it was doing: instance, module, reason.
namespace failures {
inline constexpr tc::Bilingual WIRING("%1 (%2) failed while being wired: %3",
                                      "%1 (%2) schlug beim Verbinden fehl: %3");
inline constexpr tc::Bilingual STARTING("%1 (%2) failed while starting: %3",
                                        "%1 (%2) schlug beim Starten fehl: %3");
inline constexpr tc::Bilingual RUNNING("%1 (%2) failed while running: %3", "%1 (%2) schlug im Lauf fehl: %3");
inline constexpr tc::Bilingual FINISHING("%1 (%2) failed while finishing: %3",
                                         "%1 (%2) schlug beim Beenden fehl: %3");
}  // namespace failures

// Judges how a run went, in the report: its verdict, the explanation and the failures. One thread.
class RunVerdict {
 public:
    // All must outlive it.
    RunVerdict(const SteppedGraph& steppedGraph, const RunOptions& runOptions, RunReport& runReport)
        : graph(steppedGraph), options(runOptions), report(runReport) {}

    // `failure` is one of the above; `thrown` is what the module threw, empty: its own error counts.
    void Fail(int module, int code, const std::string& thrown, const tc::Bilingual& failure);
    void Interrupt() { report.verdict = Verdict::Interrupted; }
    // How the steps ended. The report has its lines.
    void JudgeEnd(const RunOutcome& outcome);
    // The same, where it was not a module here that ended the run of a place.
    void JudgeEndOfPlace(bool wasInterrupted, int failedPart);
    // Whether sources lost anything, once the report has its modules.
    void JudgeGaps();

 private:
    bool WasInterrupted() const;
    std::string FailedPort(int module) const;
    void JudgeStall(const RunOutcome& outcome);
    std::string DescribeLeftovers(const RunOutcome& outcome, std::size_t place) const;

    const SteppedGraph& graph;
    const RunOptions& options;
    RunReport& report;
};

}  // namespace host
