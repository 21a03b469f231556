#include "modules/recorder/Recorder.h"

#include "modules/common/Recording.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"

namespace {

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "file",
     .kind = TCModuleParameter::OUTPUT_FILE,
     .defaultValue = nullptr,
     .help = {"the recording to write, of all inputs", "die zu schreibende Aufzeichnung aller Eingänge"},
     .label = {"File", "Datei"},
     .fileFilter = "*.mcap"},
    {.name = "overwrite",
     .kind = TCModuleParameter::SWITCH,
     .defaultValue = "no",
     .help = {"replace an existing file", "eine vorhandene Datei ersetzen"},
     .label = {"Overwrite", "Überschreiben"}},
    {.name = "sync",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "0",
     .unit = "s",
     .help = {"how much a power failure may take, at most; 0: what the system has not yet put on the disk",
              "wie viel ein Stromausfall höchstens kosten darf; 0: was das System noch nicht auf die Platte "
              "geschrieben hat"},
     .minimum = 0.0,
     .maximum = 3600.0,
     .label = {"Sync interval", "Sicherungsabstand"}},
    {.name = "on",
     .kind = TCModuleParameter::SWITCH,
     .defaultValue = "yes",
     .help = {"while it is off, blocks are left out", "solange es aus ist, entfallen die Blöcke"},
     .label = {"On", "Ein"},
     .live = true},
};

}  // namespace

Recorder::Recorder(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclarePlacement(ANY_THREAD);
    UseAnyNumberOfInputs("", "");
}

TCIOStream* Recorder::SetInputStream(int port, int unused, int precision) {
    TCIOStream* const stream = TCBaseModuleEx::SetInputStream(port, unused, precision);
    if (stream == nullptr) return nullptr;
    const auto input = static_cast<unsigned>(port);
    std::erase_if(tracks, [input](const Track& track) { return track.input == input; });
    auto place = tracks.begin();
    while (place != tracks.end() && place->input < input) ++place;
    tracks.insert(place, {stream, input});
    return stream;
}

void Recorder::DeleteStreams() {
    tracks.clear();
    TCBaseModuleEx::DeleteStreams();
}

// The inputs before are gone, and their streams with them.
void Recorder::OnInputsDeclared(int) {
    tracks.clear();
}

void Recorder::GetFiles(TCArray<TCModuleFile>& files) const {
    AddReplacedFile(files, ParamText("file").c_str(), "file");
}

void Recorder::CheckStart(TCStartCheck& check) {
    for (unsigned input = 0; input < static_cast<unsigned>(GetNoInput()); ++input) {
        if (!portHelper->IsWired(INPUT, input)) continue;
        const std::string reason = tc::WhyNotRecorded(*portHelper, input);
        if (!reason.empty()) check.Refuse(reason);
    }
    const std::string reason = tc::WhyNotRecordFile(ParamText("file"), ParamBool("overwrite"));
    if (!reason.empty()) check.Refuse(reason);
}

void Recorder::OfferRunFacts(TCRunFacts& offered, const char* instance) {
    facts = {{"recorder", instance}};
    const TCArray<TCRunFact>& all = offered.Get();
    for (int i = 0; i < all.GetSize(); ++i)
        facts.emplace_back(std::string(all[i].name), TCString::TCString2BinCString(all[i].value));
}

int Recorder::Init() {
    TCStartCheck check;
    begun = false;
    for (const Track& track : tracks) track.switched->Reset();
    CheckStart(check);
    if (!check.mistakes.IsEmpty()) return Fail(tc::MODULE_FAILED, check.mistakes);
    if (!writer.Prepare(ParamText("file").c_str(), ParamBool("overwrite")))
        return Fail(tc::MODULE_FAILED, writer.GetError());
    return TCBaseModuleEx::Init();
}

// Asked for the first time when all modules have started.
int Recorder::Fetch() {
    if (!begun && !Begin()) return Fail(tc::MODULE_FAILED, writer.GetError());
    begun = true;
    return TCBaseModuleEx::Fetch();
}

bool Recorder::Begin() {
    for (const Track& track : tracks) {
        int items = 0;
        const char* const type = portHelper->GetPortType(INPUT, track.input, &items);
        writer.AddSignal(std::string(portHelper->GetPortName(INPUT, track.input)), type, items);
    }
    const double sync = ParamDbl("sync");
    return writer.Begin(facts) && (sync == 0.0 || writer.SyncEvery(sync));
}

int Recorder::Execute() {
    ready.clear();
    for (const Track& track : tracks)
        ready.push_back(track.stream->GetBlockCnt(nullptr) > 0 ? track.switched->Take(*track.stream, on != 0)
                                                               : nullptr);
    return writer.AppendEach(ready) ? 0 : Fail(tc::MODULE_FAILED, writer.GetError());
}

int Recorder::Done() {
    for (int signal = 0; begun && signal < static_cast<int>(tracks.size()); ++signal) {
        const unsigned input = tracks[static_cast<std::size_t>(signal)].input;
        AddResult(portHelper->GetPortName(INPUT, input), "blocks",
                  static_cast<double>(writer.GetBlockCount(signal)), TCSI_Unit());
    }
    const bool isClosed = writer.Close();
    facts.clear();
    const int code = TCBaseModuleEx::Done();
    return isClosed ? code : Fail(tc::MODULE_FAILED, writer.GetError());
}

TC_MODULE_LIBRARY(Recorder);
