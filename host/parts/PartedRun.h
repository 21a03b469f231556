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
    void Run(const std::function<SchedulerParts(int part)>& make, const RunOptions& options);
    // Steps those of one place.
    void RunPlace(const std::function<SchedulerParts(int part)>& make, const RunOptions& options);
    const Part& PartAt(int part) const { return *parts[static_cast<std::size_t>(part)]; }
    // What the last part knows: the part that failed, -1: none.
    int FailedPart() const { return parts.back()->FailedPart(); }

 private:
    // Without a thread between two parts.
    class DirectLink final : public PartLink {
     public:
        explicit DirectLink(Part& receivingPart) : part(receivingPart) {}
        bool Send(PartDelivery& delivery) override { return part.Take(delivery); }

     private:
        Part& part;
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

    std::unique_ptr<tc::Thread> Start(int part);

    const int count;
    const std::vector<int> partOf;
    std::vector<std::unique_ptr<CutOutput>> cuts;
    std::vector<CutOutput*> cutOf;  // by line
    std::vector<int> firstLines;    // of each cut
    std::vector<std::unique_ptr<Part>> parts;
    std::vector<std::unique_ptr<RingLink>> rings;  // to each part but the first
    std::vector<std::unique_ptr<DirectLink>> directs;
};

}  // namespace host
