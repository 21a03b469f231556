#include "modules/bus-select/BusSelect.h"

#include <algorithm>
#include <string>
#include <utility>

#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/module/TCBusValidation.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/signal/TCBusSerializeHelper.h"

namespace {

using tc::Bilingual;

constexpr tc::Choice<TCRegExp::FindType> MATCHES[] = {{"find", TCRegExp::FIND_ANYWHERE},
                                                      {"whole", TCRegExp::FIND_WHOLE}};

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "expression",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = nullptr,
     .help = {"regular expression for the names of the channels, as ^mic [0-9]+",
              "regulärer Ausdruck für die Namen der Kanäle, wie ^mic [0-9]+"},
     .label = {"Expression", "Ausdruck"}},
    {.name = "match",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "find",
     .help = {"whether a part of the name is enough or the whole must match",
              "ob ein Teil des Namens genügt oder der ganze passen muss"},
     .choices = tc::CHOICE_WORDS<MATCHES>,
     .label = {"Match", "Übereinstimmung"}},
    {.name = "invert",
     .kind = TCModuleParameter::SWITCH,
     .defaultValue = "no",
     .help = {"pass on the channels that do not match", "die nicht passenden Kanäle weitergeben"},
     .label = {"Invert", "Umkehren"}},
    {.name = "signals",
     .kind = TCModuleParameter::INTEGER,
     .defaultValue = "1",
     .help = {"how many of the channels also come out as signals of their own",
              "wie viele der Kanäle auch als eigene Signale herauskommen"},
     .minimum = 0.0,
     .maximum = 256.0,
     .label = {"Single signals", "Einzelne Signale"}},
};

constexpr TCPortHelper::TYPE SINGLE_VALUES = TCPortHelper::TYPE_SWORD | TCPortHelper::TYPE_SWORD1 |
                                             TCPortHelper::TYPE_DOUBLE | TCPortHelper::TYPE_DOUBLE1 |
                                             TCPortHelper::TYPE_TEXT;

}  // namespace

BusSelect::BusSelect(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclarePlacement(ANY_THREAD);
    DeclarePorts(1);
}

void BusSelect::DeclarePorts(int signals) {
    portHelper->ClearPorts(true);
    // The bus blocks themselves have no metadata; each of their channels has its own.
    portHelper->SetPort(INPUT, 0, "Bus", "STRUCT_BUS", "BUS", false);
    portHelper->SetPort(OUTPUT, 0, "Bus", "STRUCT_BUS", "BUS", false);
    for (int i = 1; i <= signals; ++i) {
        portHelper->SetPort(OUTPUT, static_cast<unsigned>(i), TCString::FormatS("Channel %d", i), "DOUBLE[]",
                            "TIME_DOMAIN", true);
    }
    portHelper->SetObligatoryInput(0);
}

bool BusSelect::OnSettingsChanged(TCString& error) {
    const TCString pattern = ParamStr("expression");
    unsigned long code = 0;
    expression.Init(pattern, TCRegExp::ECMASCRIPT);
    if (expression.IsError(&code)) {
        error = tc::NotValid("expression", std::string(pattern),
                             Bilingual("a regular expression", "ein regulärer Ausdruck").Text(),
                             std::string("(") + tc::RegExpErrorText(code) + ")")
                    .c_str();
        return false;
    }
    expression.SetFindType(ParamChoice<MATCHES>("match"));
    DeclarePorts(ParamInt("signals"));
    return true;
}

int BusSelect::Init() {
    invert = ParamBool("invert");
    warned = false;
    channels.clear();
    signalNames.clear();
    return TCBaseModuleEx::Init();
}

int BusSelect::Execute() {
    TCIOStream::Block* bus = nullptr;
    if (portHelper->ExchangeBinary(0, &bus, true) == 0) return 0;
    const int code = PassOn(*bus);
    portHelper->ExchangeBinary(0, &bus, false);
    return code;
}

int BusSelect::PassOn(const TCIOStream::Block& bus) {
    const auto count = static_cast<std::size_t>(bus.SegmentCnt());
    channels.resize(std::max(channels.size(), count));
    bool selected = false;
    begun = false;
    for (std::size_t i = 0; i < count; ++i) {
        const Segment& segment = *bus.Segment(static_cast<int>(i));
        Channel& channel = channels[i];
        if (!Read(channel, segment.GetName())) return tc::MODULE_FAILED;
        if (!channel.selected || segment.GetBlocks() == nullptr) continue;
        selected = true;
        const int code = PassOn(channel, segment);
        if (code < 0) return code;
    }
    if (!selected) WarnOfNone(count);
    return begun ? portHelper->EndWriteMultitype(0) : 0;
}

// False when the expression gives up on the name.
bool BusSelect::Read(Channel& channel, const TCString& segmentName) {
    if (channel.segmentName == segmentName) return true;
    TCBusSerializeHelper parts;
    const bool isChannel = parts.ParseSegmentName(segmentName);
    const TCPortHelper::TYPE type = TCBusValidation::GetDataType(parts.GetValidation());
    const bool matches = expression.Find(parts.GetSegmentName(), TCRegExp::MATCH_DEFAULT);
    channel = {segmentName, parts.GetSegmentName(), parts.PortIdx(), (type & SINGLE_VALUES) != 0,
               isChannel && matches != invert};
    if (channel.selected) channel.output = OutputOf(segmentName);
    unsigned long code = 0;
    if (!expression.IsError(&code)) return true;
    Fail(tc::MODULE_FAILED,
         Bilingual("expression: matching the channel \"%1\" was given up: %2",
                   "expression: der Vergleich mit dem Kanal \"%1\" wurde aufgegeben: %2"),
         {std::string(channel.name), tc::RegExpErrorText(code)});
    return false;
}

// Each channel keeps the output that it got first, so that no two signals mix.
unsigned BusSelect::OutputOf(const TCString& segmentName) {
    const auto known = std::ranges::find_if(signalNames, [&](const TCString& name) {
        return TCBusSerializeHelper::CompareSegmentNames(name, segmentName) == 0;
    });
    const auto output = static_cast<unsigned>(known - signalNames.begin()) + 1;
    if (known != signalNames.end()) return output;
    if (output > static_cast<unsigned>(ParamInt("signals"))) return 0;
    signalNames.push_back(segmentName);
    return output;
}

// A channel may hold several blocks.
int BusSelect::PassOn(const Channel& channel, const Segment& blocks) {
    const bool toBus = portHelper->IsWired(OUTPUT, 0, TCPortHelper::STREAM_CONNECTED);
    const bool isSignal =
        channel.output > 0 && portHelper->IsWired(OUTPUT, channel.output, TCPortHelper::STREAM_CONNECTED);
    int code = 0;
    for (int i = 0; i < blocks.GetElementCount() && code >= 0; ++i) {
        const TCIOStream::Block& block = *blocks.GetBlocks()[i];
        const Segment* values = block.Segment(0);
        if (toBus && values != nullptr && values->GetElementCount() > 0) {
            code = WriteToBus(channel, *values, block.GetTI());
            begun = true;
        }
        if (isSignal && code >= 0) code = WriteSignal(channel, values, block.GetTI());
    }
    return code;
}

int BusSelect::WriteToBus(const Channel& channel, const Segment& values, const TCTypeInfo* metadata) {
    const int count = values.GetElementCount();
    const int index = channel.index;
    const char* name = channel.name;
    int rows = 0;
    int columns = 0;
    values.GetShape(rows, columns);
    const bool matrix = values.GetDimensionCount() == 2;
    const bool single = channel.single && count == 1;
    if (const int* ints = values.GetInts()) {
        if (matrix) {
            return portHelper->WriteIntMatrixBusBlock(0, rows, columns, ints, true, index, name, metadata);
        }
        return single ? portHelper->WriteIntBusBlock(0, *ints, index, name, metadata)
                      : portHelper->WriteIntDataBusBlock(0, count, ints, index, name, metadata);
    }
    if (const double* doubles = values.GetDoubles()) {
        if (matrix) {
            return portHelper->WriteDblMatrixBusBlock(0, rows, columns, doubles, true, index, name, metadata);
        }
        return single ? portHelper->WriteDblBusBlock(0, *doubles, index, name, metadata)
                      : portHelper->WriteDblDataBusBlock(0, count, doubles, index, name, metadata);
    }
    if (const TCString* texts = values.GetStrings()) {
        return single ? portHelper->WriteStringBusBlock(0, *texts, index, name, metadata)
                      : portHelper->WriteStringDataBusBlock(0, count, texts, index, name, metadata);
    }
    if (values.GetType() == TCIOStream::POINTER)
        return portHelper->WritePtrBusBlock(0, values.GetData(), count, index, name, metadata);
    return Fail(
        tc::MODULE_FAILED,
        Bilingual("the channel \"%1\" holds blocks inside of its blocks, which cannot be passed on",
                  "der Kanal \"%1\" enthält Blöcke in seinen Blöcken; sie lassen sich nicht weitergeben"),
        {name});
}

int BusSelect::WriteSignal(const Channel& channel, const Segment* values, const TCTypeInfo* metadata) {
    const TCTypeInfo none;
    const TCTypeInfo& ti = metadata != nullptr ? *metadata : none;
    if (values == nullptr) return tc::WriteSamples(*portHelper, channel.output, ti, nullptr, 0);
    const double* doubles = values->GetDoubles();
    if (doubles == nullptr) {
        return Fail(
            tc::MODULE_FAILED,
            Bilingual(
                "the channel \"%1\" holds no double values and cannot be the signal \"Channel %2\"",
                "der Kanal \"%1\" enthält keine Double-Werte und kann nicht das Signal \"Channel %2\" sein"),
            {std::string(channel.name), std::to_string(channel.output)});
    }
    return tc::WriteSamples(*portHelper, channel.output, ti, doubles,
                            static_cast<std::size_t>(values->GetElementCount()));
}

void BusSelect::WarnOfNone(std::size_t count) {
    if (std::exchange(warned, true)) return;
    std::string names;
    for (std::size_t i = 0; i < count; ++i) {
        names += (i == 0 ? "\"" : ", \"") + std::string(channels[i].name) + "\"";
    }
    if (names.empty()) names = "-";
    Warn(Bilingual("nothing is sent: no channel of the bus is selected by the expression "
                   "\"%1\"; its channels are %2",
                   "nichts wird gesendet: der Ausdruck \"%1\" wählt keinen Kanal des "
                   "Busses aus; dessen Kanäle sind %2"),
         {ParamText("expression"), names});
}

TC_MODULE_LIBRARY(BusSelect);
