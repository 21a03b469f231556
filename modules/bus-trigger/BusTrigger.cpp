#include "modules/bus-trigger/BusTrigger.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/signal/TCBusSerializeHelper.h"

namespace {

using tc::Bilingual;

constexpr TCModuleParameter CHANNEL = {.name = "channel",
                                       .kind = TCModuleParameter::TEXT,
                                       .defaultValue = "",
                                       .help = {"name of the one whose hits count; empty: the first",
                                                "Name dessen, dessen Treffer zählen; leer: der erste"},
                                       .label = {"Triggering channel", "Auslösender Kanal"},
                                       .group = tc::CONDITION_GROUP};

constexpr auto PARAMETERS = [] {
    std::array<TCModuleParameter, std::size(tc::TRIGGER_PARAMETERS) + 1> all{};
    all[0] = CHANNEL;
    std::copy(std::begin(tc::TRIGGER_PARAMETERS), std::end(tc::TRIGGER_PARAMETERS), all.begin() + 1);
    return all;
}();

constexpr Bilingual UNSUITABLE(
    "the channel \"%1\" has no block of double values, or several; each channel needs one",
    "der Kanal \"%1\" hat keinen Block aus Double-Werten, oder mehrere; jeder Kanal braucht einen");
constexpr Bilingual UNLIKE(
    "the channels \"%1\" and \"%2\" have different numbers of values or samplerates; the modules Align and "
    "Reblock make signals alike before BusJoin",
    "die Kanäle \"%1\" und \"%2\" haben verschieden viele Werte oder verschiedene Abtastraten; die Module "
    "Align "
    "und Reblock gleichen Signale vor BusJoin an");
constexpr Bilingual NO_RATE("the channel \"%1\" has no samplerate above 0",
                            "der Kanal \"%1\" hat keine Abtastrate über 0");
constexpr Bilingual CHANGED(
    "the channel \"%1\" appears, or changes its samplerate or unit, within a signal",
    "der Kanal \"%1\" taucht inmitten eines Signals auf oder ändert dort Abtastrate oder "
    "Einheit");
constexpr Bilingual VANISHED("the bus has %1 channels where its signal began with %2",
                             "der Bus hat %1 Kanäle, wo sein Signal mit %2 begann");
constexpr Bilingual NO_CHANNEL("channel: the bus has none that is called '%1'; there are %2",
                               "channel: der Bus hat keinen namens '%1'; es gibt %2");

}  // namespace

BusTrigger::BusTrigger(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclarePlacement(ANY_THREAD);
    // The bus blocks themselves have no metadata; each of their channels has its own.
    portHelper->SetPort(INPUT, 0, "Bus", "STRUCT_BUS", "BUS", false);
    portHelper->SetPort(OUTPUT, 0, "Bus", "STRUCT_BUS", "BUS", false);
    portHelper->SetObligatoryInput(0);
}

bool BusTrigger::OnSettingsChanged(TCString& error) {
    return tc::CheckTexts(tc::TriggerSettings(*this), error);
}

void BusTrigger::CheckStart(TCStartCheck& check) {
    WarnWithoutEffect(check);
}

int BusTrigger::Init() {
    ClearResults();
    channels.clear();
    held = nullptr;
    open = begun = false;
    cutter = tc::PieceCutter();
    return TCBaseModuleEx::Init();
}

int BusTrigger::Fetch() {
    return cutter.IsWorking() ? 0 : TCBaseModuleEx::Fetch();
}

int BusTrigger::Execute() {
    int code = cutter.IsWorking() ? Work() : 0;
    if (code == 0 && !cutter.IsWorking() && (code = Take()) > 0) code = Work();
    return std::min(code, 0);
}

int BusTrigger::Take() {
    if (portHelper->ExchangeBinary(0, &held, true) == 0) return 0;
    CString error;
    bool begins = false;
    if (!Read(*held, begins, error) || (begins && !Begin(error))) return Fail(tc::MODULE_FAILED, error);
    if (channels.empty()) return 0;
    open = begun = true;
    values.clear();
    for (const Channel& channel : channels) values.push_back(channel.values);
    cutter.Take(values, samples, triggering);
    return 1;
}

// Notes the channels' values and metadata.
bool BusTrigger::Read(const TCIOStream::Block& block, bool& begins, CString& error) {
    const auto count = static_cast<std::size_t>(block.SegmentCnt());
    const std::size_t before = channels.size();
    channels.resize(count);
    metadatas.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
        int here = 0;
        if (!ReadChannel(*block.Segment(static_cast<int>(i)), channels[i], here, metadatas[i], error))
            return false;
        const bool isAlike =
            i == 0 || (here == samples && metadatas[i].GetSamplerate() == metadatas[0].GetSamplerate());
        if (!isAlike) error = UNLIKE.With({channels[0].name, channels[i].name});
        if (!isAlike) return false;
        samples = here;
    }
    if (count == 0) return true;
    if (!FindTriggering(error)) return false;
    begins = !open || tc::BeginsSignal(metadatas[triggering].GetState());
    ends = tc::EndsSignal(metadatas[triggering].GetState());
    if (begins) return true;
    if (count != before) error = VANISHED.With({std::to_string(count), std::to_string(before)});
    for (std::size_t i = 0; i < count && error.empty(); ++i)
        if (metadatas[i].GetSamplerate() != channels[i].first.GetSamplerate() ||
            !(metadatas[i].GetUnit() == channels[i].first.GetUnit()))
            error = CHANGED.With({channels[i].name});
    return error.empty();
}

bool BusTrigger::ReadChannel(const TCIOStream::DataSegment& segment, Channel& channel, int& count,
                             TCTypeInfo& metadata, CString& error) const {
    if (channel.segmentName != segment.GetName()) {
        TCBusSerializeHelper parts;
        parts.ParseSegmentName(segment.GetName());
        channel.segmentName = segment.GetName();
        channel.name = parts.GetSegmentName();
        channel.index = parts.PortIdx();
    }
    const bool isSingle = segment.GetBlocks() != nullptr && segment.GetElementCount() == 1;
    const TCIOStream::Block* const block = isSingle ? segment.GetBlocks()[0] : nullptr;
    const TCIOStream::DataSegment* const data = block != nullptr ? block->Segment(0) : nullptr;
    channel.values = data != nullptr ? data->GetDoubles() : nullptr;
    if (channel.values == nullptr) {
        error = UNSUITABLE.With({channel.name});
        return false;
    }
    count = data->GetElementCount();
    metadata = block->GetTI() != nullptr ? *block->GetTI() : TCTypeInfo();
    const double rate = metadata.GetSamplerate();
    if (std::isfinite(rate) && rate > 0.0) return true;
    error = NO_RATE.With({channel.name});
    return false;
}

bool BusTrigger::FindTriggering(CString& error) {
    const CString& wanted = ParamText("channel");
    triggering = 0;
    if (wanted.empty()) return true;
    std::string names;
    for (; triggering < channels.size(); ++triggering) {
        const std::string& name = channels[triggering].name;
        if (wanted == name) return true;
        names += (names.empty() ? "'" : ", '") + name + "'";
    }
    error = NO_CHANNEL.With({wanted, names});
    return false;
}

bool BusTrigger::Begin(CString& error) {
    for (std::size_t i = 0; i < channels.size(); ++i) channels[i].first = metadatas[i];
    if (channels.empty()) return true;
    return tc::BeginCutting(*this, channels[triggering].first, channels.size(), cutter, error);
}

// Until the end of a piece or of the block; 1 when it sent something.
int BusTrigger::Work() {
    int sent = 0;
    while (cutter.Work(ends)) {
        const int code = Send();
        if (code < 0) return code;
        sent = 1;
        if (cutter.EndsPiece()) return sent;
    }
    open = !ends;
    return sent;
}

int BusTrigger::Send() {
    for (std::size_t i = 0; i < channels.size(); ++i) {
        const Channel& channel = channels[i];
        const std::vector<double>& part = cutter.Part(i);
        outgoing = metadatas[i];
        outgoing.SetTimestamp(tc::PartTimestamp(cutter, channel.first));
        outgoing.SetState(tc::BlockState(cutter.BeginsPiece(), cutter.EndsPiece()));
        const int code = portHelper->WriteDblDataBusBlock(0, static_cast<int>(part.size()), part.data(),
                                                          channel.index, channel.name.c_str(), &outgoing);
        if (code < 0) return code;
    }
    return portHelper->EndWriteMultitype(0);
}

int BusTrigger::Done() {
    ClearResults();
    if (held != nullptr) portHelper->ExchangeBinary(0, &held, false);
    held = nullptr;
    if (begun && triggering < channels.size()) {
        const Channel& channel = channels[triggering];
        for (const auto& [quantity, value, unit] : tc::TriggerResults(cutter, channel.first.GetSamplerate()))
            AddResult(channel.name.c_str(), quantity, value, unit);
    }
    channels.clear();
    return TCBaseModuleEx::Done();
}

TC_MODULE_LIBRARY(BusTrigger);
