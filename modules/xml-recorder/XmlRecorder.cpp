#include "modules/xml-recorder/XmlRecorder.h"

#include "modules/common/RecordFiles.h"
#include "modules/common/Recording.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"

namespace {

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "file",
     .kind = TCModuleParameter::OUTPUT_FILE,
     .defaultValue = nullptr,
     .help =
         {"the document to write; with several inputs their number replaces {n} or precedes the extension",
          "das zu schreibende Dokument; bei mehreren Eingängen ist {n} die Nummer, sonst steht sie vor "
          "der Endung"},
     .label = {"File", "Datei"}},
    {.name = "overwrite",
     .kind = TCModuleParameter::SWITCH,
     .defaultValue = "no",
     .help = {"replace existing files", "vorhandene Dateien ersetzen"},
     .label = {"Overwrite", "Überschreiben"}},
    {.name = "on",
     .kind = TCModuleParameter::SWITCH,
     .defaultValue = "yes",
     .help = {"while it is off, blocks are left out", "solange es aus ist, entfallen die Blöcke"},
     .label = {"On", "Ein"},
     .live = true},
};

constexpr int DIGITS = 9;  // of text forms, which a recording does not have

}  // namespace

XmlRecorder::XmlRecorder(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclarePlacement(ANY_THREAD);
    UseAnyNumberOfInputs("", "");
    remade.AddOutputStream(remadeQueue.SetInputStream(DIGITS));
}

TCIOStream* XmlRecorder::SetInputStream(int port, int unused, int precision) {
    TCIOStream* const stream = TCBaseModuleEx::SetInputStream(port, unused, precision);
    if (stream == nullptr) return nullptr;
    const auto index = static_cast<std::size_t>(port);
    if (streams.size() <= index) streams.resize(index + 1);
    streams[index] = stream;
    return stream;
}

void XmlRecorder::DeleteStreams() {
    tracks.clear();
    streams.clear();
    TCBaseModuleEx::DeleteStreams();
}

// The inputs before are gone, and their streams with them.
void XmlRecorder::OnInputsDeclared(int) {
    tracks.clear();
    streams.clear();
}

std::string XmlRecorder::FileOf(int input) const {
    const int inputs = portHelper->GetPortCnt(INPUT);
    return tc::RecordFile(ParamText("file"), input + 1, inputs == 1);
}

void XmlRecorder::GetFiles(TCArray<TCModuleFile>& files) const {
    for (int input = 0; input < portHelper->GetPortCnt(INPUT); ++input)
        AddReplacedFile(files, FileOf(input).c_str(), "file");
}

void XmlRecorder::CheckStart(TCStartCheck& check) {
    for (unsigned input = 0; input < static_cast<unsigned>(GetNoInput()); ++input) {
        const std::string reason = portHelper->IsWired(INPUT, input) ? WhyRefused(input) : std::string();
        if (!reason.empty()) check.Refuse(reason);
    }
}

int XmlRecorder::Init() {
    TCStartCheck check;
    tracks.clear();
    begun = false;
    for (unsigned input = 0; input < streams.size(); ++input) {
        if (streams[input] == nullptr) continue;
        Track& track = *tracks.emplace_back(std::make_unique<Track>());
        track.stream = streams[input];
        track.file = FileOf(static_cast<int>(input));
    }
    CheckStart(check);
    if (!check.mistakes.IsEmpty()) return Fail(tc::MODULE_FAILED, check.mistakes);
    for (const auto& track : tracks)
        if (!track->writer.Prepare(track->file.c_str(), ParamBool("overwrite")))
            return Fail(tc::MODULE_FAILED, track->writer.GetError());
    return TCBaseModuleEx::Init();
}

// Asked for the first time when all modules have started.
int XmlRecorder::Fetch() {
    std::string error;
    if (!begun && !BeginTracks(error)) return Fail(tc::MODULE_FAILED, error);
    begun = true;
    return TCBaseModuleEx::Fetch();
}

std::string XmlRecorder::WhyRefused(unsigned input) const {
    const std::string reason = tc::WhyNotRecorded(*portHelper, input);
    return !reason.empty() ? reason
                           : tc::WhyNotRecordFile(FileOf(static_cast<int>(input)), ParamBool("overwrite"));
}

bool XmlRecorder::BeginTracks(std::string& error) {
    unsigned input = 0;
    for (const auto& track : tracks) {
        while (streams[input] != track->stream) ++input;
        int items = 0;
        const char* const type = portHelper->GetPortType(INPUT, input, &items);
        if (track->writer.Begin(type, items)) continue;
        error = track->writer.GetError();
        return false;
    }
    return true;
}

int XmlRecorder::Execute() {
    for (const auto& track : tracks) {
        if (track->stream->GetBlockCnt(nullptr) == 0) continue;
        if (!(on != 0 ? Record(*track) : LeaveOut(*track)))
            return Fail(tc::MODULE_FAILED, track->writer.GetError());
    }
    return 0;
}

bool XmlRecorder::Record(Track& track) {
    const TCTypeInfo* const next = track.stream->PeekTI();
    const TCBLOCKSTATUS state = next != nullptr ? next->GetState() : INVALID;
    const bool begins = next == nullptr || tc::BeginsSignal(state) || !track.gap;
    if (next != nullptr) track.metadata = *next;
    track.open = next != nullptr && !tc::EndsSignal(state);
    track.gap = false;
    if (begins) return Append(track, *track.stream);
    remade.MoveBlocks(*track.stream, tc::BlockState(true, tc::EndsSignal(state)));
    return Append(track, remadeQueue);
}

bool XmlRecorder::LeaveOut(Track& track) {
    const TCTypeInfo* const next = track.stream->PeekTI();
    const double end = next != nullptr ? next->GetTimestamp() : 0.0;
    track.stream->RemoveContents(false);
    track.gap = true;
    if (!std::exchange(track.open, false)) return true;
    track.metadata.SetTimestamp(end);
    track.metadata.SetState(STOP);
    remade.StartWriteSegments();
    remade.SetTI(&track.metadata, false);
    remade.EndWriteSegments();
    return Append(track, remadeQueue);
}

bool XmlRecorder::Append(Track& track, TCIOStream& from) {
    ++track.blocks;
    return track.writer.Append(from);
}

int XmlRecorder::Done() {
    std::string error;
    for (const auto& track : tracks) {
        if (!track->writer.Close()) tc::AddReason(error, track->writer.GetError());
        AddResult(track->file.c_str(), "blocks", static_cast<double>(track->blocks), TCSI_Unit());
    }
    tracks.clear();
    const int code = TCBaseModuleEx::Done();
    return error.empty() ? code : Fail(tc::MODULE_FAILED, error);
}

TC_MODULE_LIBRARY(XmlRecorder);
