#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "host/parts/CutOutput.h"
#include "host/parts/Part.h"
#include "host/parts/PartPlan.h"
#include "host/parts/RingLink.h"
#include "sigweave/platform/Thread.h"

namespace host {

struct RunLine;

// The parts of a run in this process, each on a thread of its own; the first is on the calling one. Owns what
// stands for cut lines, so it must outlive the reading of their blocks. Modules are initialised and done by
// the caller, on its thread. One thread, but for what `Run` makes.
class PartedRun {
 public:
    // `parts` by module of the run.
    PartedRun(int partCount, std::vector<int> parts, const std::vector<RunLine>& runLines);

    int Count() const { return count; }
    int PartOf(int module) const { return partOf[static_cast<std::size_t>(module)]; }
    // The output of a cut line; null for one that is not cut.
    CutOutput* CutOf(int line) const { return cutOf[static_cast<std::size_t>(line)]; }
    // Whether it is the first cut line of its output.
    bool IsFirst(int line) const;
    void SetReceiver(int line, TCIOStream* receiver);
    // Blocks that were written outside of steps, as in Init: hands them to their receivers.
    void PassOn();

    // Steps all modules. `make` gives what the scheduler of a part is made of; `onHandOver` is for tests.
    // If `options.threads` is 0, the first blocks run on the calling thread, and decide whether others are
    // made.
    void Run(const std::function<SchedulerParts(int part)>& make, const RunOptions& options);
    // Steps those of one place.
    void RunPlace(const std::function<SchedulerParts(int part)>& make, const RunOptions& options);
    // Whether threads were made.
    bool IsThreaded() const { return !threads.empty(); }
    const Part& PartAt(int part) const { return *parts[static_cast<std::size_t>(part)]; }
    // What the last part knows: the part that failed, -1: none.
    int FailedPart() const { return parts.back()->FailedPart(); }

 private:
    using Threads = std::vector<std::unique_ptr<tc::Thread>>;

    // Without a thread between two parts. While the run is measured, it notes the time that the receiving
    // part and those after it need, and how often something is handed over.
    class DirectLink final : public PartLink {
     public:
        DirectLink(PartedRun& wholeRun, int receivingPart) : run(wholeRun), part(receivingPart) {}
        bool Send(PartDelivery& delivery) override;

        double milliseconds = 0.0;
        int deliveries = 0;

     private:
        PartedRun& run;
        const int part;
    };

    // To another place, when there is one: what was said is said here.
    class PlaceLink final : public PartLink {
     public:
        PlaceLink(const Part& sendingPart, PartLink& link) : part(sendingPart), next(link) {}
        bool Send(PartDelivery& delivery) override;

     private:
        const Part& part;
        PartLink& next;
    };

    void StepPlace(Part& part, PlaceRun& place) const;
    void TellSources(const Part& part, PlaceRun& place) const;
    std::unique_ptr<tc::Thread> Start(int part);
    void StartAll();
    void Decide();
    bool Pays(double whole) const;

    const int count;
    const std::vector<int> partOf;
    std::vector<std::unique_ptr<CutOutput>> cuts;
    std::vector<CutOutput*> cutOf;  // by line
    std::vector<int> firstLines;    // of each cut
    std::vector<std::unique_ptr<Part>> parts;
    std::vector<std::unique_ptr<RingLink>> rings;  // to each part but the first
    std::vector<std::unique_ptr<DirectLink>> directs;
    Threads threads;
    bool isMeasured = false;  // as long as it is not decided whether threads pay
    double measuredSince = 0.0;
};

}  // namespace host
