#include "modules/player/Player.h"

#include <algorithm>
#include <utility>

#include "modules/common/Recording.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"

namespace {

using tc::Bilingual;

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "file",
     .kind = TCModuleParameter::FILE,
     .defaultValue = nullptr,
     .help = {"the recording to play", "die abzuspielende Aufzeichnung"},
     .label = {"File", "Datei"},
     .fileFilter = "*.mcap"},
};

constexpr Bilingual NO_SIGNAL("file: %1 has no signal whose type is known",
                              "file: %1 enthält kein Signal, dessen Typ bekannt ist");
constexpr Bilingual CHANGED("%1 has changed since it was checked", "%1 hat sich seit der Prüfung geändert");
constexpr Bilingual MISFIT("%1: block %2 of '%3' does not fit: %4", "%1: Block %2 von '%3' passt nicht: %4");
constexpr Bilingual BROKEN("%1 breaks off after block %2 of '%3': its signal does not end",
                           "%1 bricht nach Block %2 von '%3' ab: das Signal endet nicht");
constexpr Bilingual REMAINS("%1: %2 bytes at its end are no block", "%1: %2 Byte am Ende sind kein Block");
constexpr Bilingual DAMAGED("%1; 'sigweave info --check' lists what is whole after it",
                            "%1; 'sigweave info --check' nennt, was danach noch heil ist");

}  // namespace

// Before a recording is known there is one output without a type.
Player::Player(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclareSource();
    portHelper->SetPort(OUTPUT, 0, "Signal", "", "", true);
}

bool Player::OnSettingsChanged(TCString& error) {
    const std::string file = ParamText("file");
    tc::RecordingReader found;
    if (!found.Open(file.c_str())) {
        error = ("file: " + found.GetError()).c_str();
        return false;
    }
    std::vector<Track> newTracks;
    for (const tc::RecordingSignal& signal : found.GetSignals()) {
        Track& track = newTracks.emplace_back();
        track.type = signal.type;
        track.items = signal.items;
        const int number = static_cast<int>(newTracks.size()) - 1;
        if (found.Seek(number, 1) && found.Next() == 1 && found.GetSignal() == number)
            if (const TCTypeInfo* const ti = found.GetBlock().GetTI())
                track.foretold = {TCString(ti->GetSignalname()), ti->GetSamplerate(), ti->GetUnit()};
    }
    const bool isKnown = std::ranges::all_of(newTracks, [](const Track& track) { return track.items > 0; });
    if (newTracks.empty() || !isKnown) {
        error = NO_SIGNAL.With({file}).c_str();
        return false;
    }
    portHelper->ClearPorts(true);
    for (unsigned i = 0; i < newTracks.size(); ++i) {
        const TCString name =
            newTracks.size() == 1 ? TCString("Signal") : TCString::FormatS("Signal %u", i + 1);
        tc::DeclareRecordedOutput(*portHelper, i, name, newTracks[i].type, newTracks[i].items);
    }
    tracks = std::move(newTracks);
    return true;
}

TCForetoldSignal Player::ForetellOutput(int output, std::span<const TCForetoldSignal>) {
    return tracks[static_cast<std::size_t>(output)].foretold;
}

double Player::GetProgress() {
    const auto size = isReading ? static_cast<double>(reader.GetFileSize()) : 0.0;
    return size > 0.0 ? static_cast<double>(reader.GetFrameOffset()) / size : -1.0;
}

int Player::Init() {
    failure.clear();
    const std::string file = ParamText("file");
    if (!reader.Open(file.c_str())) return Fail(tc::MODULE_FAILED, reader.GetError());
    const std::vector<tc::RecordingSignal>& signals = reader.GetSignals();
    const bool isSame = std::ranges::equal(
        signals, tracks, [](const auto& signal, const Track& track) { return signal.type == track.type; });
    if (!isSame) return Fail(tc::MODULE_FAILED, CHANGED, {file});
    for (Track& track : tracks) {
        track.breaksOff = false;
        track.blocks = 0;
    }
    isReading = true;
    return TCBaseModuleEx::Init();
}

bool Player::HasOpenSignal() const {
    return std::ranges::any_of(tracks, &Track::breaksOff);
}

int Player::Execute() {
    if (!failure.empty()) return Fail(tc::MODULE_FAILED, DAMAGED, {failure});
    while (isReading && (!IsInterrupted() || HasOpenSignal())) {
        const int read = reader.Next();
        if (read == 1 && reader.GetSignal() < static_cast<int>(tracks.size())) {
            const int code = Play();
            if (code != 0) return std::min(code, 0);
            continue;
        }
        if (read < 0) failure = reader.GetError();
        if (read == 0) WarnOfBreaks();
        if (read <= 0) isReading = false;
    }
    if (failure.empty()) portHelper->SetReadyFlag(false);
    return 0;
}

// 1 when a block was sent. A run that is to end lets each signal end with its next block.
int Player::Play() {
    const int output = reader.GetSignal();
    Track& track = tracks[static_cast<std::size_t>(output)];
    const auto port = static_cast<unsigned>(output);
    if (!portHelper->IsWired(OUTPUT, port, TCPortHelper::STREAM_CONNECTED)) return 0;
    if (IsInterrupted() && !track.breaksOff) return 0;
    if (IsInterrupted()) tc::EndSignal(reader.GetBlock());
    track.breaksOff = tc::BreaksOff(reader.GetBlock());
    track.blocks = reader.GetBlockNumber();
    if (portHelper->WriteCopy(port, &reader.GetBlock()) >= 0) return 1;
    return Fail(tc::MODULE_FAILED, MISFIT,
                {ParamText("file"), std::to_string(track.blocks),
                 reader.GetSignals()[static_cast<std::size_t>(output)].name,
                 std::string(portHelper->GetErrorText())});
}

void Player::WarnOfBreaks() {
    const std::string file = ParamText("file");
    for (std::size_t i = 0; i < tracks.size(); ++i)
        if (tracks[i].breaksOff)
            Warn(BROKEN, {file, std::to_string(tracks[i].blocks), reader.GetSignals()[i].name});
    if (reader.GetBytesBehind() > 0) Warn(REMAINS, {file, std::to_string(reader.GetBytesBehind())});
}

int Player::Done() {
    isReading = false;
    reader.Close();
    return TCBaseModuleEx::Done();
}

TC_MODULE_LIBRARY(Player);
