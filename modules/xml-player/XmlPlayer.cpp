#include "modules/xml-player/XmlPlayer.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "modules/common/RecordFiles.h"
#include "modules/common/Recording.h"
#include "modules/common/SharedSettings.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"

namespace {

using tc::Bilingual;

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "file",
     .kind = TCModuleParameter::FILE,
     .defaultValue = nullptr,
     .help = {"the document to play; {n} is replaced by 1, 2 and so on",
              "das abzuspielende Dokument; {n} steht für 1, 2 und so weiter"},
     .label = {"File", "Datei"},
     .fileFilter = "*.xml"},
    {.name = "documents",
     .kind = TCModuleParameter::INTEGER,
     .defaultValue = "0",
     .help = {"how many of them; 0: all that exist for a name with {n}, else one",
              "wie viele davon; 0: bei einem Namen mit {n} alle vorhandenen, sonst eins"},
     .minimum = 0.0,
     .maximum = 65536.0,
     .label = {"Documents", "Dokumente"}},
};
constexpr int MOST_DOCUMENTS = 65536;

bool Exists(const std::string& file) {
    std::error_code ignored;
    return std::filesystem::exists(file, ignored);
}

}  // namespace

// Before a document is known there is one output without a type.
XmlPlayer::XmlPlayer(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclareSource();
    portHelper->SetPort(OUTPUT, 0, "Signal", "", "", true);
}

std::vector<std::string> XmlPlayer::Files() const {
    const std::string name(ParamStr("file"));
    const int documents = ParamInt("documents");
    const bool isPattern = name.find(tc::RECORD_NUMBER) != std::string::npos;
    std::vector<std::string> files;
    if (documents > 0 || !isPattern) {
        const int count = std::max(documents, 1);
        for (int i = 1; i <= count; ++i) files.push_back(tc::RecordFile(name, i, count == 1));
        return files;
    }
    do files.push_back(tc::RecordFile(name, static_cast<int>(files.size()) + 1, false));
    while (files.size() < MOST_DOCUMENTS &&
           Exists(tc::RecordFile(name, static_cast<int>(files.size()) + 1, false)));
    return files;
}

void XmlPlayer::GetFiles(TCArray<TCModuleFile>& files) const {
    for (const std::string& file : Files()) files.Add({file.c_str(), TCModuleFile::READS, "file"});
}

// The reader is at the first block then.
bool XmlPlayer::Open(Track& track, std::string& error) {
    track.reader = std::make_unique<tc::StreamRecordReader>();
    if (!track.reader->Open(track.file.c_str())) {
        error = track.reader->GetError();
        return false;
    }
    track.type = track.reader->GetTypeString();
    track.items = track.reader->GetItemCount();
    if (track.items > 0) return true;
    error = Bilingual("%1 contains no block and not the type of the port that was recorded",
                      "%1 enthält keinen Block und nennt nicht den Typ des aufgezeichneten Anschlusses")
                .With({track.file});
    return false;
}

bool XmlPlayer::OnSettingsChanged(TCString& error) {
    std::string reason;
    std::vector<Track> found;
    for (const std::string& file : Files()) {
        std::string mistake;
        Track& track = found.emplace_back();
        track.file = file;
        if (!Open(track, mistake))
            tc::AddReason(reason, "file: " + mistake);
        else if (const TCTypeInfo* const ti =
                     track.reader->Next() > 0 ? track.reader->GetBlock().GetTI() : nullptr)
            track.foretold = {TCString(ti->GetSignalname()), ti->GetSamplerate(), ti->GetUnit()};
        track.reader = nullptr;
    }
    error = reason.c_str();
    if (!reason.empty()) return false;
    portHelper->ClearPorts(true);
    for (unsigned i = 0; i < found.size(); ++i) {
        const TCString name = found.size() == 1 ? TCString("Signal") : TCString::FormatS("Signal %u", i + 1);
        tc::DeclareRecordedOutput(*portHelper, i, name, found[i].type, found[i].items);
    }
    tracks = std::move(found);
    return true;
}

TCForetoldSignal XmlPlayer::ForetellOutput(int output, std::span<const TCForetoldSignal>) {
    return tracks[static_cast<std::size_t>(output)].foretold;
}

int XmlPlayer::Init() {
    failure.clear();
    for (Track& track : tracks) {
        const std::string type = track.type;
        std::string error;
        if (!Open(track, error)) return Fail(tc::MODULE_FAILED, error);
        if (track.type != type) return Fail(tc::MODULE_FAILED, tc::HAS_CHANGED, {track.file});
    }
    return TCBaseModuleEx::Init();
}

int XmlPlayer::Execute() {
    if (!failure.empty()) return Fail(tc::MODULE_FAILED, failure);
    bool more = false;
    for (unsigned output = 0; output < tracks.size(); ++output) {
        const int code = Play(output, tracks[output]);
        if (code < 0) return code;
        more = more || code > 0;
    }
    if (failure.empty() && (!more || IsInterrupted())) portHelper->SetReadyFlag(false);
    return 0;
}

// 1 when a block was sent.
int XmlPlayer::Play(unsigned output, Track& track) {
    const bool wired = portHelper->IsWired(OUTPUT, output, TCPortHelper::STREAM_CONNECTED);
    if (track.reader == nullptr || !wired) return 0;
    const int read = track.reader->Next();
    if (read <= 0) {
        if (read < 0) failure = track.reader->GetError();
        if (read == 0) WarnOfBreak(track);
        track.reader = nullptr;
        return 0;
    }
    if (IsInterrupted()) tc::EndSignal(track.reader->GetBlock());
    track.breaksOff = tc::BreaksOff(track.reader->GetBlock());
    if (portHelper->WriteCopy(output, &track.reader->GetBlock()) >= 0) return 1;
    return Fail(tc::MODULE_FAILED, Bilingual("%1: block %2 does not fit: %3", "%1: Block %2 passt nicht: %3"),
                {track.file, std::to_string(track.reader->GetBlockNumber()),
                 std::string(portHelper->GetErrorText())});
}

void XmlPlayer::WarnOfBreak(const Track& track) {
    if (!track.breaksOff) return;
    Warn(Bilingual("%1 breaks off after block %2: its signal does not end",
                   "%1 bricht nach Block %2 ab: das Signal endet nicht"),
         {track.file, std::to_string(track.reader->GetBlockNumber())});
}

int XmlPlayer::Done() {
    for (Track& track : tracks) track.reader = nullptr;
    return TCBaseModuleEx::Done();
}

TC_MODULE_LIBRARY(XmlPlayer);
