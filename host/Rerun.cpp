#include "host/Rerun.h"

#include <algorithm>
#include <map>
#include <set>

#include "host/GraphText.h"
#include "sigweave/recording/RecordingReader.h"
#include "sigweave/services/Bilingual.h"

namespace host {
namespace {

std::string Line(const std::string& name, const std::string& value) {
    return WriteTextSetting(name, value) + "\n";
}

using tc::Bilingual;

constexpr const char* PLAYER = "recorded signals";  // an instance

bool IsOf(const LineEntry& line, const std::string& from) {
    return line.from.instance == from;
}

// Those from which a way leads to the instance, and itself.
std::set<std::string> LeadingTo(const GraphFile& graph, const std::string& instance) {
    std::set<std::string> found = {instance};
    for (std::size_t before = 0; before != found.size();) {
        before = found.size();
        for (const LineEntry& line : graph.GetLines())
            if (found.contains(line.to.instance)) found.insert(line.from.instance);
    }
    return found;
}

class Maker {
 public:
    Maker(const GraphFile& graphFile, const std::string& recorderName, const tc::RecordingReader& recording)
        : graph(graphFile), recorder(recorderName), kept(LeadingTo(graphFile, recorderName)) {
        const std::size_t signals = recording.GetSignals().size();
        for (std::size_t i = 0; i < signals; ++i)
            outputs[recording.GetSignals()[i].port] =
                signals == 1 ? "Signal" : "Signal " + std::to_string(i + 1);
        for (const LineEntry& line : graph.GetLines())
            if (line.to.instance == recorder && outputs.contains(line.to.port))
                recorded[Name(line.from)] = outputs[line.to.port];
    }

    // Whether the instance is a source in the graph, and all that it sends on was recorded.
    bool IsPlayed(const std::string& instance) const {
        return IsSource(instance) && std::ranges::all_of(graph.GetLines(), [&](const LineEntry& line) {
                   return !IsOf(line, instance) || !kept.contains(line.to.instance) ||
                          recorded.contains(Name(line.from));
               });
    }
    bool IsSource(const std::string& instance) const {
        return std::ranges::none_of(graph.GetLines(),
                                    [&](const LineEntry& line) { return line.to.instance == instance; });
    }

    RerunGraph Make(const std::string& recordingPath, const std::string& target) const {
        RerunGraph made;
        bool plays = false;
        for (const InstanceEntry& instance : graph.GetInstances()) {
            if (!kept.contains(instance.name)) continue;
            if (IsPlayed(instance.name)) {
                plays = true;
                continue;
            }
            if (IsSource(instance.name)) made.ranAnew += (made.ranAnew.empty() ? "" : ", ") + instance.name;
            made.text += "[" + instance.name + "]\n" + Line("module", instance.module);
            if (instance.name == recorder)
                made.text += Line("file", target);
            else
                for (const Setting& setting : instance.settings)
                    made.text += Line(setting.name, setting.value);
        }
        if (plays)
            made.text +=
                std::string("[") + PLAYER + "]\n" + Line("module", "Player") + Line("file", recordingPath);
        made.text += "[lines]\n";
        if (graph.AcceptsDifferences()) made.text += "accept=yes\n";
        for (const LineEntry& line : graph.GetLines()) {
            if (!kept.contains(line.to.instance)) continue;
            const std::string from = IsPlayed(line.from.instance)
                                         ? std::string(PLAYER) + "." + recorded.at(Name(line.from))
                                         : Name(line.from);
            made.text += Line(from, Name(line.to));
        }
        return made;
    }

 private:
    static std::string Name(const PortName& port) { return PortText(port); }

    const GraphFile& graph;
    const std::string& recorder;
    std::set<std::string> kept;
    std::map<std::string, std::string> outputs;   // port of the recorder -> output of the player
    std::map<std::string, std::string> recorded;  // output of the graph -> output of the player
};

}  // namespace

RerunGraph MakeRerunGraph(const GraphFile& graph, const std::string& recorder, const std::string& recording,
                          const std::string& target) {
    RerunGraph made;
    tc::RecordingReader reader;
    if (!reader.Open(recording.c_str())) {
        made.error = reader.GetError();
        return made;
    }
    const auto& instances = graph.GetInstances();
    // Where the recording has lost its name, the first one is meant.
    const auto found = std::ranges::find_if(instances, [&](const InstanceEntry& each) {
        return each.module == "Recorder" && (recorder.empty() || each.name == recorder);
    });
    if (found == instances.end()) {
        made.error = Bilingual("%1 has no Recorder '%2', which the recording names; give the graph one",
                               "%1 hat keinen Recorder '%2', den die Aufzeichnung nennt; ergänzen Sie ihn")
                         .With({graph.GetPath(), recorder});
        return made;
    }
    return Maker(graph, found->name, reader).Make(recording, target);
}

}  // namespace host
