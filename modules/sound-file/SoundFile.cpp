#include "modules/sound-file/SoundFile.h"

#include <algorithm>
#include <bit>
#include <utility>

#include "modules/common/SharedSettings.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"

namespace {

using tc::Bilingual;

constexpr Bilingual SOUND("File", "Datei");

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "file",
     .kind = TCModuleParameter::FILE,
     .defaultValue = nullptr,
     .help = {"the file to read; -: standard input", "die zu lesende Datei; -: die Standardeingabe"},
     .label = {"File", "Datei"},
     .group = SOUND},
    tc::BLOCK_PARAMETER,
    tc::FACTOR_PARAMETER,
    tc::OFFSET_PARAMETER,
    tc::CALIBRATED_UNIT_PARAMETER,
    tc::START_PARAMETER,
};

// Of all channels together, so that a block of a file with many channels has 128 MB at most. There is one
// such block here and, for each that has not been read, one at the outputs.
constexpr std::int64_t MOST_BLOCK_VALUES = 1 << 24;

constexpr std::int64_t FRAMES_AT_ONCE = 1024;

}  // namespace

// Before a file is known the ports are those of one with a single channel.
SoundFile::SoundFile(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclareSource();
    DeclarePorts(1);
}

bool SoundFile::OnSettingsChanged(TCString& error) {
    std::string reason;
    SoundReader file;
    TCSI_Unit unit;
    double newStart = 0.0;
    if (!(IsStream() ? OpenInput(reason) : Open(file, reason))) reason = "file: " + reason;
    const SoundReader& probe = IsStream() && input != nullptr ? input->reader : file;
    tc::ParseStart(ParamText("start"), newStart, reason);
    tc::ParseUnit(ParamText("unit"), unit, reason);
    error = reason.c_str();
    if (!reason.empty()) return false;
    const std::int64_t newBlockSize = ParamInt("block");
    if (newBlockSize * probe.Channels() > MOST_BLOCK_VALUES) {
        error = tc::NotValid(
                    "block", std::to_string(newBlockSize),
                    Bilingual("at most %1 samples", "eine Zahl bis %1 Abtastwerte")
                        .With({std::to_string(MOST_BLOCK_VALUES / probe.Channels())}),
                    Bilingual("with %1 channels", "bei %1 Kanälen").With({std::to_string(probe.Channels())}))
                    .c_str();
        return false;
    }
    start = newStart;
    factor = ParamDbl("factor");
    offset = ParamDbl("offset");
    blockSize = newBlockSize;
    const double ends[] = {factor * probe.RangeMinimum() + offset, factor * probe.RangeMaximum() + offset};
    const auto [low, high] = std::minmax(ends[0], ends[1]);
    DeclarePorts(probe.Channels());
    for (int i = 0; i < channels; ++i) {
        TCTypeInfo& ti = metadata[static_cast<std::size_t>(i)];
        ti.SetSignalname(names[static_cast<std::size_t>(i)]);
        ti.SetSamplerate(probe.Samplerate());
        ti.SetRangeMin(low);
        ti.SetRangeMax(high);
        ti.SetUnit(unit);
    }
    if (IsStream()) DeclareStream(probe, unit);
    return true;
}

bool SoundFile::IsStream() const {
    return ParamText("file") == "-";
}

bool SoundFile::OpenInput(std::string& error) {
    if (input != nullptr) return true;
    const std::string name = Bilingual("standard input", "die Standardeingabe").Text();
    auto opened = std::make_shared<SoundInput>();
    auto bytes = tc::ByteInput::StandardInput();
    if (bytes == nullptr) {
        error = Bilingual("%1 is closed", "%1 ist geschlossen").With({name});
        return false;
    }
    if (!opened->reader.OpenStream(std::move(bytes), name, opened->cancel, error)) return false;
    streamName = name;
    input = std::move(opened);
    return true;
}

void SoundFile::DeclareStream(const SoundReader& probe, const TCSI_Unit& unit) {
    const char* const word = std::endian::native == std::endian::little ? "f64le" : "f64be";
    const auto* const format =
        std::ranges::find(live::FORMATS, std::string_view(word), &live::SampleFormat::word);
    std::vector<live::Channel> declared;
    for (const TCString& name : names)
        declared.push_back(
            {name, factor, offset, unit, std::pair(probe.RangeMinimum(), probe.RangeMaximum())});
    stream.Declare(*portHelper, *format, std::move(declared), probe.Samplerate());
}

void* SoundFile::GetWaitHandle(const char*& what) {
    what = streamName.c_str();
    return IsStream() ? stream.Handle() : nullptr;
}

int SoundFile::Fetch() {
    const int verdict = TCBaseModuleEx::Fetch();
    return verdict != 0 || !IsStream() || IsInterrupted() || stream.HasWork() ? verdict : 1;
}

int SoundFile::BeginStream() {
    if (input->isUsed)
        return Fail(tc::MODULE_FAILED,
                    Bilingual("standard input was read in the run before; start the program again",
                              "die Standardeingabe wurde im vorigen Lauf gelesen; starten Sie "
                              "das Programm neu"));
    const int code = TCBaseModuleEx::Init();
    if (code < 0) return code;
    input->isUsed = true;
    stream.Begin(std::make_unique<SoundDevice>(input), {.block = static_cast<std::size_t>(blockSize)}, start);
    return code;
}

int SoundFile::SendStream() {
    const live::Channels::Step step = stream.Send(*portHelper, IsInterrupted());
    if (step.isOver) portHelper->SetReadyFlag(false);
    return step.failure.empty() ? step.code : Fail(tc::MODULE_FAILED, step.failure);
}

TCForetoldSignal SoundFile::ForetellOutput(int output, std::span<const TCForetoldSignal>) {
    if (output >= channels) return {};  // the bus
    const TCTypeInfo& ti = metadata[static_cast<std::size_t>(output)];
    return {names[static_cast<std::size_t>(output)], ti.GetSamplerate(), ti.GetUnit()};
}

bool SoundFile::Open(SoundReader& opened, std::string& error) const {
    return opened.Open(ParamText("file"), error);
}

void SoundFile::DeclarePorts(int number) {
    channels = number;
    metadata.assign(static_cast<std::size_t>(number), TCTypeInfo());
    names.resize(static_cast<std::size_t>(number));
    portHelper->ClearPorts(true);
    for (int i = 0; i < number; ++i) {
        names[static_cast<std::size_t>(i)] = TCString::FormatS("Channel %d", i + 1);
        portHelper->SetPort(OUTPUT, static_cast<unsigned>(i), names[static_cast<std::size_t>(i)], "DOUBLE[]",
                            "TIME_DOMAIN", true);
    }
    // The bus block itself has no metadata; each of its channels has its own.
    portHelper->SetPort(OUTPUT, static_cast<unsigned>(number), "Channels", "STRUCT_BUS", "BUS", false);
}

int SoundFile::Init() {
    if (IsStream()) return BeginStream();
    std::string error;
    if (!Open(reader, error)) return Fail(tc::MODULE_FAILED, error);
    if (reader.Channels() != channels || reader.Samplerate() != metadata.front().GetSamplerate()) {
        return Fail(tc::MODULE_FAILED, tc::HAS_CHANGED, {ParamText("file")});
    }
    runTime.Take();
    position = 0;
    ended = false;
    values.resize(static_cast<std::size_t>(blockSize * channels));
    frames.resize(static_cast<std::size_t>(FRAMES_AT_ONCE * channels));
    ReadAhead();
    if (!hasAhead)
        return Fail(tc::MODULE_FAILED, Bilingual("%1 holds no samples", "%1 enthält keine Abtastwerte"),
                    {ParamText("file")});
    return TCBaseModuleEx::Init();
}

int SoundFile::Execute() {
    if (IsStream()) return SendStream();
    if (ended) return Finish();
    ReadPiece();
    ended = !hasAhead || IsInterrupted();
    const int code = WritePiece(ended);
    position += count;
    return code;
}

// A step of its own after the last block: by then that has reached its receivers.
int SoundFile::Finish() {
    portHelper->SetReadyFlag(false);
    const std::string shortage = !hasAhead ? reader.Shortage() : std::string();
    return shortage.empty() ? 0 : Fail(tc::MODULE_FAILED, shortage);
}

int SoundFile::Done() {
    if (IsStream()) stream.End();
    reader = SoundReader();
    runTime.Release();
    return TCBaseModuleEx::Done();
}

double SoundFile::GetProgress() {
    const double total = static_cast<double>(reader.IsOpen() ? reader.Frames() : -1);
    return total > 0.0 ? std::min(1.0, static_cast<double>(position) / total) : -1.0;
}

void SoundFile::ReadPiece() {
    count = 0;
    if (hasAhead) TakeFrames(1);
    while (count < blockSize) {
        const std::int64_t read = reader.Read(frames.data(), std::min(blockSize - count, FRAMES_AT_ONCE));
        if (read == 0) break;
        TakeFrames(read);
    }
    ReadAhead();
}

void SoundFile::ReadAhead() {
    hasAhead = reader.Read(frames.data(), 1) == 1;
}

void SoundFile::TakeFrames(std::int64_t taken) {
    for (std::int64_t channel = 0; channel < channels; ++channel) {
        double* to = values.data() + channel * blockSize + count;
        for (std::int64_t i = 0; i < taken; ++i)
            *to++ = frames[static_cast<std::size_t>(i * channels + channel)] * factor + offset;
    }
    count += taken;
}

int SoundFile::WritePiece(bool last) {
    if (position == 0) begin = start > 0.0 ? start : runTime.Get();
    const auto bus = static_cast<unsigned>(channels);
    const bool busWired = portHelper->IsWired(OUTPUT, bus, TCPortHelper::STREAM_CONNECTED);
    int code = 0;
    for (int i = 0; i < channels && code >= 0; ++i) {
        const auto output = static_cast<unsigned>(i);
        TCTypeInfo& ti = metadata[output];
        ti.SetTimestamp(begin + 1000.0 * static_cast<double>(position) / ti.GetSamplerate());
        ti.SetState(tc::BlockState(position == 0, last));
        const double* const samples = values.data() + i * blockSize;
        portHelper->SetTypeInfo(output, ti);
        code = portHelper->WriteDblData(output, static_cast<unsigned long>(count), samples);
        if (busWired && code >= 0) {
            code = portHelper->WriteDblDataBusBlock(bus, static_cast<int>(count), samples, i, names[output],
                                                    &ti);
        }
    }
    if (busWired && code >= 0) code = portHelper->EndWriteMultitype(bus);
    return std::min(code, 0);
}

TC_MODULE_LIBRARY(SoundFile);
