#include "modules/instrument/Instrument.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>
#include <utility>

#include "modules/common/SharedSettings.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"

namespace {

using tc::Bilingual;

// Groups of parameters.
constexpr Bilingual CONNECTION("Connection", "Verbindung");
constexpr Bilingual QUERY("Query", "Abfrage");

enum class Way { TCP, SERIAL };
constexpr tc::Choice<Way> WAYS[] = {{"tcp", Way::TCP}, {"serial", Way::SERIAL}};

enum class Answer { NUMBERS, BLOCK };
constexpr tc::Choice<Answer> ANSWERS[] = {{"numbers", Answer::NUMBERS}, {"block", Answer::BLOCK}};

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "connection",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "tcp",
     .help = {"the way to the instrument", "der Weg zum Messgerät"},
     .choices = tc::CHOICE_WORDS<WAYS>,
     .label = {"Connection", "Verbindung"},
     .group = CONNECTION},
    {.name = "address",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = nullptr,
     .help = {"of the instrument: a name or a number in the network, or a serial line, as /dev/ttyUSB0",
              "des Messgeräts: Name oder Nummer im Netzwerk, oder eine serielle Leitung, wie /dev/ttyUSB0"},
     .label = {"Address", "Adresse"},
     .group = CONNECTION},
    {.name = "port",
     .kind = TCModuleParameter::INTEGER,
     .defaultValue = "5025",
     .help = {"of the network", "des Netzwerks"},
     .minimum = 1.0,
     .maximum = 65535.0,
     .label = {"Port", "Port"},
     .group = CONNECTION,
     .enabledWhen = {"connection", "tcp"}},
    {.name = "speed",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "9600",
     .help = {"of the serial line, in bits per second; 8 data bits, no parity, 1 stop bit",
              "der seriellen Leitung, in Bits je Sekunde; 8 Datenbits, keine Parität, 1 Stoppbit"},
     .choices = "1200|2400|4800|9600|19200|38400|57600|115200|230400|460800|921600",
     .label = {"Speed", "Geschwindigkeit"},
     .group = CONNECTION,
     .enabledWhen = {"connection", "serial"}},
    {.name = "commands",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "",
     .help = {"sent once at the start, with semicolons between them: *RST;:CONF:VOLT:DC 10",
              "einmal am Anfang gesendet, durch Strichpunkte getrennt: *RST;:CONF:VOLT:DC 10"},
     .label = {"Commands", "Befehle"},
     .group = QUERY},
    {.name = "query",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "READ?",
     .help = {"sent at each interval", "in jedem Intervall gesendet"},
     .label = {"Query", "Abfrage"},
     .group = QUERY},
    {.name = "interval",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "1",
     .unit = "s",
     .help = {"from one query to the next", "von einer Abfrage zur nächsten"},
     .minimum = 1e-3,
     .maximum = 86400.0,
     .label = {"Interval", "Intervall"},
     .group = QUERY},
    {.name = "timeout",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "0.8",
     .unit = "s",
     .help = {"how long an answer may take", "wie lange eine Antwort dauern darf"},
     .minimum = 1e-3,
     .maximum = 3600.0,
     .label = {"Timeout", "Wartezeit"},
     .group = QUERY},
    {.name = "answer",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "numbers",
     .help = {"numbers between commas, or a block of samples",
              "Zahlen zwischen Kommas, oder ein Block von "
              "Abtastwerten"},
     .choices = tc::CHOICE_WORDS<ANSWERS>,
     .label = {"Answer", "Antwort"},
     .group = QUERY},
    {.name = "values",
     .kind = TCModuleParameter::INTEGER,
     .defaultValue = "1",
     .help = {"numbers in an answer, each an output", "Zahlen in einer Antwort, jede ein Ausgang"},
     .minimum = 1.0,
     .maximum = 256.0,
     .label = {"Values", "Werte"},
     .group = QUERY,
     .enabledWhen = {"answer", "numbers"}},
    {.name = "format",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "f32be",
     .help = {"of a sample in a block", "eines Abtastwerts in einem Block"},
     .choices = "s8|u8|s16le|s16be|u16le|u16be|s24le|s24be|s32le|s32be|f32le|f32be|f64le|f64be",
     .label = {"Format", "Format"},
     .group = QUERY,
     .enabledWhen = {"answer", "block"}},
    {.name = "rate",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "1000",
     .unit = "Hz",
     .help = {"samples per second in a block", "Abtastwerte je Sekunde in einem Block"},
     .minimum = 1e-6,
     .maximum = 1e12,
     .label = {"Sample rate", "Abtastrate"},
     .group = tc::TIME_GROUP,
     .enabledWhen = {"answer", "block"}},
    {.name = "unit",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "",
     .help = {"of the values: SI text, as V; of several values between commas, as V, A",
              "der Werte: SI-Text, wie V; bei mehreren Werten durch Kommas getrennt, wie V, A"},
     .label = {"Unit", "Einheit"},
     .group = QUERY},
};

// As many units as outputs; the last one that was named holds for the rest.
bool ReadUnits(const std::string& text, std::size_t count, std::vector<TCSI_Unit>& units,
               std::string& error) {
    std::istringstream list(text);
    TCSI_Unit unit;
    units.clear();
    for (std::string item; std::getline(list, item, ',');) {
        item.erase(0, std::min(item.find_first_not_of(' '), item.size()));
        unit = {};
        if (!tc::ParseUnit(item, unit, error)) return false;
        units.push_back(unit);
    }
    if (units.size() > count) {
        tc::AddReason(error,
                      tc::NotValid("unit", text,
                                   Bilingual("at most %1", "höchstens %1").With({std::to_string(count)})));
        return false;
    }
    units.resize(count, unit);
    return true;
}

}  // namespace

Instrument::Instrument(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclareSource();
    portHelper->SetPort(OUTPUT, 0, "Value 1", "DOUBLE[]", "TIME_DOMAIN", true);
    metadata.resize(1);
}

bool Instrument::AnswersBlocks() const {
    return ParamChoice<ANSWERS>("answer") == Answer::BLOCK;
}

double Instrument::Samplerate() const {
    return AnswersBlocks() ? ParamDbl("rate") : 1.0 / ParamDbl("interval");
}

std::string Instrument::Name() const {
    const std::string address(ParamText("address"));
    return ParamChoice<WAYS>("connection") == Way::TCP ? address + ":" + std::string(ParamText("port"))
                                                       : address;
}

bool Instrument::OnSettingsChanged(TCString& error) {
    std::string reason;
    std::vector<TCSI_Unit> units;
    const std::size_t count = AnswersBlocks() ? 1 : static_cast<std::size_t>(ParamInt("values"));
    ReadUnits(std::string(ParamText("unit")), count, units, reason);
    for (const char* const parameter : {"commands", "query"})
        if (std::string(ParamText(parameter)).find('\n') != std::string::npos)
            tc::AddReason(reason, tc::NotValid(parameter, std::string(ParamText(parameter)),
                                               Bilingual("a single line", "eine einzige Zeile").Text()));
    if (ParamText("query").empty())
        tc::AddReason(reason,
                      tc::NotValid("query", "", Bilingual("a text, as READ?", "ein Text, wie READ?").Text()));
    error = reason.c_str();
    if (!reason.empty()) return false;
    name = Name();
    metadata.assign(count, TCTypeInfo());
    portHelper->ClearPorts(true);
    for (std::size_t i = 0; i < count; ++i) {
        const TCString port = TCString::FormatS("Value %d", static_cast<int>(i) + 1);
        portHelper->SetPort(OUTPUT, static_cast<unsigned>(i), port, "DOUBLE[]", "TIME_DOMAIN", true);
        metadata[i].SetSignalname(port);
        metadata[i].SetSamplerate(Samplerate());
        metadata[i].SetUnit(units[i]);
    }
    return true;
}

void Instrument::CheckStart(TCStartCheck& check) {
    WarnWithoutEffect(check);
}

TCForetoldSignal Instrument::ForetellOutput(int output, std::span<const TCForetoldSignal>) {
    const TCTypeInfo& ti = metadata[static_cast<std::size_t>(output)];
    return {ti.GetSignalname(), ti.GetSamplerate(), ti.GetUnit()};
}

void* Instrument::GetWaitHandle(const char*& what) {
    what = name.c_str();
    return inquirer != nullptr ? inquirer->Handle() : nullptr;
}

std::unique_ptr<tc::ByteInput> Instrument::Connect(std::string& error) const {
    errno = 0;
    auto connected = ParamChoice<WAYS>("connection") == Way::TCP
                         ? tc::ByteInput::Connect(ParamText("address").c_str(), ParamInt("port"))
                         : tc::ByteInput::Serial(ParamText("address").c_str(), std::stoi(ParamText("speed")));
    if (connected == nullptr)
        error =
            Bilingual(
                "no instrument answers at %1 (%2); switch it on, or check the connection",
                "an %1 antwortet kein Messgerät (%2); schalten Sie es ein, oder prüfen Sie die Verbindung")
                .With({name, std::strerror(errno)});
    return connected;
}

int Instrument::Init() {
    std::string error;
    std::unique_ptr<tc::ByteInput> connected = Connect(error);
    if (connected == nullptr) return Fail(tc::MODULE_FAILED, error);
    const int code = TCBaseModuleEx::Init();
    if (code < 0) return code;
    const std::string format(ParamText("format"));
    InquirerPlan plan{.name = name,
                      .commands = std::string(ParamText("commands")),
                      .query = std::string(ParamText("query")),
                      .interval = 1000.0 * ParamDbl("interval"),
                      .patience = 1000.0 * ParamDbl("timeout"),
                      .values = metadata.size()};
    if (AnswersBlocks())
        plan.blockFormat = std::ranges::find(live::FORMATS, format, &live::SampleFormat::word);
    isOpen = hasSome = isHeld = isOver = false;
    inquirer = std::make_unique<Inquirer>(std::move(connected), plan);
    return code;
}

int Instrument::Fetch() {
    const int verdict = TCBaseModuleEx::Fetch();
    return verdict != 0 || IsInterrupted() || isHeld || inquirer->HasSome() ? verdict : 1;
}

int Instrument::Execute() {
    std::string failure;
    if (!isOver && (isHeld || inquirer->Take(reading, failure))) {
        if (!std::exchange(isHeld, false) && reading.lost > 0 && hasSome) {
            AddGap(reading.lost, arrived);
            isHeld = isOpen;
            if (isHeld) return EndSignals();  // which must reach its receivers before the next one begins
        }
        isOver = IsInterrupted();
        return Send(reading);
    }
    if (isOpen) {  // a step of its own, so that it reaches its receivers also when the run fails then
        isOver = true;
        return EndSignals();
    }
    portHelper->SetReadyFlag(false);
    if (failure.empty() && !IsInterrupted()) inquirer->Take(reading, failure);
    return failure.empty() || IsInterrupted() ? 0 : Fail(tc::MODULE_FAILED, failure);
}

int Instrument::Send(const Inquirer::Reading& taken) {
    const bool isBlock = AnswersBlocks();
    int code = 0;
    for (std::size_t i = 0; i < metadata.size() && code >= 0; ++i) {
        TCTypeInfo& ti = metadata[i];
        ti.SetTimestamp(taken.arrived);
        ti.SetState(tc::BlockState(isBlock || !isOpen, isBlock || isOver));
        code = tc::WriteSamples(*portHelper, static_cast<unsigned>(i), ti, taken.values.data() + i,
                                isBlock ? taken.values.size() : 1);
    }
    isOpen = !isBlock && !isOver;
    hasSome = true;
    arrived = taken.arrived;
    return code;
}

int Instrument::EndSignals() {
    int code = 0;
    for (std::size_t i = 0; i < metadata.size() && code >= 0 && isOpen; ++i) {
        metadata[i].SetState(STOP);
        code = tc::WriteSamples(*portHelper, static_cast<unsigned>(i), metadata[i], nullptr, 0);
    }
    isOpen = false;
    return code;
}

int Instrument::Done() {
    const double measured = inquirer != nullptr ? inquirer->MeasuredRate() : 0.0;
    if (measured > 0.0) {
        TCSI_Unit hertz;
        hertz.FromString("Hz");
        AddResult(name.c_str(), "measured rate", measured, hertz);
    }
    inquirer.reset();
    return TCBaseModuleEx::Done();
}

TC_MODULE_LIBRARY(Instrument);
