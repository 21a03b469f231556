#include "host/RunStreams.h"

#include <algorithm>
#include <cstring>

#include "host/parts/PlaceRun.h"

namespace host {
namespace {

constexpr int TEXT_DIGITS = 9;  // of the text forms of streams

}  // namespace

void RunStreams::Join(const std::function<void(int module)>& onMissing) {
    for (int index = 0; index < graph.LineCount(); ++index) {
        const RunLine& line = graph.Line(index);
        const int port = line.gatePort >= 0 ? line.gatePort : line.input;
        TCIOStream* receiver = nullptr;
        if (division.IsHere(line.to)) {
            receiver = graph.Receiver(line).SetInputStream(port, 0, TEXT_DIGITS);
            if (receiver == nullptr) onMissing(line.to);
        }
        if (receiver != nullptr || !division.IsHere(line.to)) JoinLine(index, receiver);
        receivers.push_back(receiver);
    }
    JoinWatches();
}

void RunStreams::JoinLine(int index, TCIOStream* receiver) {
    const RunLine& line = graph.Line(index);
    PartedRun* const parted = division.Parted();
    CutOutput* const cut = parted != nullptr ? parted->CutOf(index) : nullptr;
    if (cut == nullptr && !division.IsHere(line.from)) return;
    if (cut == nullptr) return graph.Module(line.from).AddOutputStream(line.output, receiver);
    if (receiver != nullptr) parted->SetReceiver(index, receiver);
    if (parted->IsFirst(index) && division.IsHere(line.from))
        graph.Module(line.from).AddOutputStream(line.output, &cut->sink);
}

void RunStreams::JoinWatches() {
    for (const OutputWatch& watch : options.watches) {
        watchStreams.push_back(nullptr);
        if (FirstLineOf(watch.module, watch.output) >= 0) continue;
        watchStreams.back() = std::make_unique<TCIOStream>();
        graph.Module(watch.module)
            .AddOutputStream(watch.output, watchStreams.back()->SetInputStream(TEXT_DIGITS));
    }
}

// -1 when it has none.
int RunStreams::FirstLineOf(int module, int output) const {
    const auto found = std::ranges::find_if(
        graph.lines, [&](const RunLine& line) { return line.from == module && line.output == output; });
    return found != graph.lines.end() ? static_cast<int>(found - graph.lines.begin()) : -1;
}

std::set<std::pair<int, int>> RunStreams::WiredOutputs() const {
    std::set<std::pair<int, int>> wired;
    for (const RunLine& line : graph.lines) wired.emplace(line.from, line.output);
    return wired;
}

Scheduler::Line RunStreams::MakeLine(int index) const {
    const RunLine& line = graph.Line(index);
    const char* const type = graph.TypeOf(line);
    const TCPortHelper* const helper = graph.Module(line.from).GetPortHelper();
    Scheduler::Line made;
    made.receiver = receivers[static_cast<std::size_t>(index)];
    made.elementSize = helper != nullptr ? helper->ElemSize(OUTPUT, static_cast<unsigned>(line.output)) : 0;
    made.isTimed = type == nullptr || std::strstr(type, "{FREQ_DOMAIN}") == nullptr;
    made.gatePort = line.gatePort;
    return made;
}

void RunStreams::AddNode(int module, SchedulerParts& made, std::vector<int>& positions) const {
    const bool source = graph.Module(module).GetTypeOfModule() == 1;
    positions[static_cast<std::size_t>(module)] = made.wiring.AddModule(source);
    Scheduler::Node& node = made.nodes.emplace_back();
    node.module = &graph.Module(module);
    node.number = module;
    node.name = &graph.Name(module);
    node.source = source;
    node.gate = graph.Entry(module).gate;
    if (source && options.realtime)
        node.pace =
            std::make_unique<SourcePace>(options.clock != nullptr ? *options.clock : tc::MachineClock());
}

// Where the signals of sources meet: one of an earlier place.
bool RunStreams::IsElsewhere(int module, int part) const {
    return part > 0 && options.place != nullptr && part == options.place->Plan().joining &&
           division.Parted()->PartOf(module) < part;
}

// In the order of the steps; those of sources elsewhere have no module.
void RunStreams::AddNodes(int part, const std::set<std::pair<int, int>>& outputs, SchedulerParts& made,
                          std::vector<int>& positions) const {
    for (std::size_t place = 0; place < graph.order.size(); ++place) {
        const int module = graph.order[place];
        const bool isElsewhere = IsElsewhere(module, part) && graph.Module(module).GetTypeOfModule() == 1;
        if (!division.IsIn(module, part) && !isElsewhere) continue;
        AddNode(module, made, positions);
        Scheduler::Node& node = made.nodes.back();
        node.place = static_cast<int>(place);
        if (isElsewhere) {
            node.module = nullptr;
            node.gate = nullptr;
            node.pace = nullptr;
            continue;
        }
        made.hasSources = made.hasSources || node.source;
        for (int output = 0; output < graph.Module(module).GetNoOutput(); ++output)
            node.makesUnseen = node.makesUnseen || !outputs.contains({module, output});
    }
}

// What a source elsewhere leads to there comes from its node.
void RunStreams::FindFeeds(int part, SchedulerParts& made, const std::vector<int>& positions) const {
    made.feedOf.assign(graph.modules.size(), made.feed);
    for (const int module : graph.order) {
        if (!IsElsewhere(module, part)) continue;
        const auto index = static_cast<std::size_t>(module);
        if (graph.Module(module).GetTypeOfModule() == 1) made.feedOf[index] = positions[index];
        for (const RunLine& line : graph.lines)
            if (line.to == module && graph.Module(module).GetTypeOfModule() != 1)
                made.feedOf[index] = made.feedOf[static_cast<std::size_t>(line.from)];
    }
}

// A line that comes from another part leads from the node that stands for it; the cut lines of an output are
// one, to the node `exit`. Where signals of sources meet, one from a source elsewhere to a later part is
// there too, without blocks, so that it is known where that source leads to.
void RunStreams::AddLine(int index, int part, const std::vector<int>& positions,
                         std::set<std::pair<int, int>>& outputs, SchedulerParts& made) const {
    const RunLine& line = graph.Line(index);
    const bool leaves = !division.IsIn(line.to, part);
    const bool passes = leaves && IsElsewhere(line.from, part) && division.Parted()->PartOf(line.to) > part;
    if (!division.IsIn(line.from, part) && leaves && !passes) return;
    if (leaves && !passes && !division.Parted()->IsFirst(index)) return;
    Scheduler::Line added = MakeLine(index);
    if (leaves) added.receiver = &division.Parted()->CutOf(index)->sink;
    added.number = leaves || index >= graph.linesOfGraph ? -1 : index;
    const bool isFirst = outputs.erase({line.from, line.output}) > 0;
    const auto from = static_cast<std::size_t>(line.from);
    added.lineOfRun = leaves ? -1 : index;
    made.wiring.AddLine(division.IsIn(line.from, part) ? positions[from] : made.feedOf[from],
                        leaves ? made.exit : positions[static_cast<std::size_t>(line.to)], isFirst);
    made.lines.push_back(added);
}

// Nodes are in the order of the steps.
void RunStreams::AddWatches(std::vector<Scheduler::Node>& nodes) const {
    for (std::size_t index = 0; index < options.watches.size(); ++index) {
        const OutputWatch& watch = options.watches[index];
        const int line = FirstLineOf(watch.module, watch.output);
        const auto node = std::ranges::find(nodes, watch.module, &Scheduler::Node::number);
        TCIOStream* const receiver =
            line >= 0 ? receivers[static_cast<std::size_t>(line)] : watchStreams[index].get();
        node->watches.push_back({&watch, receiver, line, 0});
    }
}

SchedulerParts RunStreams::MakeSchedulerParts(int part) const {
    SchedulerParts made;
    std::vector<int> positions(graph.modules.size());
    std::set<std::pair<int, int>> outputs = WiredOutputs();
    if (part >= 0) {
        made.feed = made.wiring.AddModule(false);
        made.nodes.emplace_back();
    }
    AddNodes(part, outputs, made, positions);
    made.hasSources = made.hasSources || part == 0;
    FindFeeds(part, made, positions);
    if (part >= 0) {
        made.exit = made.wiring.AddModule(false);
        made.nodes.emplace_back();
    }
    for (int index = 0; index < graph.LineCount(); ++index) AddLine(index, part, positions, outputs, made);
    made.wiring.FindSources();
    AddWatches(made.nodes);
    return made;
}

}  // namespace host
