#include "modules/raw-input/RawInput.h"

#include <filesystem>

#include "modules/common/SharedSettings.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"

namespace {

using live::StreamPlace;
using tc::Bilingual;

// Groups of parameters.
constexpr Bilingual PLACE("Where from", "Woher");
constexpr Bilingual BYTES("Bytes", "Bytes");

constexpr tc::Choice<StreamPlace::Kind> PLACES[] = {
    {"stdin", StreamPlace::STANDARD_INPUT}, {"file", StreamPlace::FILE}, {"tcp", StreamPlace::TCP},
    {"listen", StreamPlace::LISTEN},        {"udp", StreamPlace::UDP},   {"unix", StreamPlace::LOCAL}};

// The positions are those of live::FORMATS.
enum class Format {
    S8,
    U8,
    S16LE,
    S16BE,
    U16LE,
    U16BE,
    S24LE,
    S24BE,
    S32LE,
    S32BE,
    F32LE,
    F32BE,
    F64LE,
    F64BE
};
constexpr tc::Choice<Format> FORMATS[] = {
    {"s8", Format::S8},       {"u8", Format::U8},       {"s16le", Format::S16LE}, {"s16be", Format::S16BE},
    {"u16le", Format::U16LE}, {"u16be", Format::U16BE}, {"s24le", Format::S24LE}, {"s24be", Format::S24BE},
    {"s32le", Format::S32LE}, {"s32be", Format::S32BE}, {"f32le", Format::F32LE}, {"f32be", Format::F32BE},
    {"f64le", Format::F64LE}, {"f64be", Format::F64BE}};

enum class Number { NONE, U16LE, U16BE, U32LE, U32BE, U64LE, U64BE };
constexpr tc::Choice<Number> NUMBERS[] = {
    {"none", Number::NONE},   {"u16le", Number::U16LE}, {"u16be", Number::U16BE}, {"u32le", Number::U32LE},
    {"u32be", Number::U32BE}, {"u64le", Number::U64LE}, {"u64be", Number::U64BE}};
constexpr struct {
    int bytes;
    bool isBigEndian;
} NUMBER_FORMS[] = {{0, false}, {2, false}, {2, true}, {4, false}, {4, true}, {8, false}, {8, true}};

enum class Counted { PACKETS, SAMPLES };
constexpr tc::Choice<Counted> COUNTED[] = {{"packets", Counted::PACKETS}, {"samples", Counted::SAMPLES}};

enum class Close { END, FAIL };
constexpr tc::Choice<Close> CLOSES[] = {{"end", Close::END}, {"fail", Close::FAIL}};

constexpr const char* NUMBERED = "u16le|u16be|u32le|u32be|u64le|u64be";

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "from",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "stdin",
     .help = {"where the samples come from: tcp connects to a server, listen waits for a peer",
              "woher die Abtastwerte kommen: tcp verbindet sich mit einem Server, listen wartet auf eine "
              "Gegenseite"},
     .choices = tc::CHOICE_WORDS<PLACES>,
     .label = {"From", "Von"},
     .group = PLACE},
    {.name = "file",
     .kind = TCModuleParameter::FILE,
     .defaultValue = "",
     .help = {"the file, pipe or socket to read", "die Datei, Pipe oder der Socket"},
     .label = {"File", "Datei"},
     .group = PLACE,
     .enabledWhen = {"from", "file|unix"}},
    {.name = "grows",
     .kind = TCModuleParameter::SWITCH,
     .defaultValue = "no",
     .help = {"at its end the file is waited for: another program still writes it",
              "am Ende der Datei wird gewartet: ein anderes Programm schreibt sie noch"},
     .label = {"Grows", "Wächst"},
     .group = PLACE,
     .enabledWhen = {"from", "file"}},
    {.name = "host",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "127.0.0.1",
     .help = {"of tcp the server, of listen and udp the address of this machine (0.0.0.0: all of them)",
              "bei tcp der Server, bei listen und udp die Adresse dieses Rechners (0.0.0.0: alle)"},
     .label = {"Host", "Adresse"},
     .group = PLACE,
     .enabledWhen = {"from", "tcp|listen|udp"}},
    {.name = "port",
     .kind = TCModuleParameter::INTEGER,
     .defaultValue = "5000",
     .help = {"of the network", "des Netzwerks"},
     .minimum = 1.0,
     .maximum = 65535.0,
     .label = {"Port", "Port"},
     .group = PLACE,
     .enabledWhen = {"from", "tcp|listen|udp"}},
    {.name = "silence",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "0.8",
     .unit = "s",
     .help = {"after which a sender of datagrams that has begun counts as gone, and the run fails; 0: it may "
              "pause "
              "as long as it likes",
              "nach der ein Sender von Datagrammen, der begonnen hat, als weg gilt und der Lauf fehlschlägt; "
              "0: er darf beliebig lange pausieren"},
     .minimum = 0.0,
     .maximum = 86400.0,
     .label = {"Silence", "Stille"},
     .group = PLACE,
     .enabledWhen = {"from", "udp"}},
    {.name = "on_close",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "end",
     .help = {"what it means that the peer closes the connection: the end of the signals, or a failure of "
              "the run",
              "was es bedeutet, dass die Gegenseite die Verbindung schließt: das Ende der Signale, oder ein "
              "Fehlschlag des Laufs"},
     .choices = tc::CHOICE_WORDS<CLOSES>,
     .label = {"When closed", "Beim Schließen"},
     .group = PLACE,
     .enabledWhen = {"from", "tcp|listen|unix"}},
    {.name = "format",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "s16le",
     .help = {"of a sample: signed, unsigned or floating point, bits, byte order",
              "eines Abtastwerts: mit oder ohne Vorzeichen oder Gleitkomma, Bits, Bytereihenfolge"},
     .choices = tc::CHOICE_WORDS<FORMATS>,
     .label = {"Format", "Format"},
     .group = BYTES},
    {.name = "channels",
     .kind = TCModuleParameter::INTEGER,
     .defaultValue = "1",
     .help = {"whose samples alternate", "deren Abtastwerte sich abwechseln"},
     .minimum = 1.0,
     .maximum = 1024.0,
     .label = {"Channels", "Kanäle"},
     .group = BYTES},
    {.name = "rate",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "48000",
     .unit = "Hz",
     .help = {"samples per second of each channel", "Abtastwerte je Sekunde und Kanal"},
     .minimum = 1e-6,
     .maximum = 1e9,
     .label = {"Sample rate", "Abtastrate"},
     .group = tc::TIME_GROUP,
     .suggestions = "8000|44100|48000|96000|192000"},
    {.name = "sequence",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "none",
     .help = {"the number at the beginning of each packet, which shows what was lost",
              "die Nummer am Anfang jedes Pakets, die zeigt, was verloren ging"},
     .choices = tc::CHOICE_WORDS<NUMBERS>,
     .label = {"Sequence number", "Folgenummer"},
     .group = BYTES},
    {.name = "counts",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "packets",
     .help = {"what the sequence number counts", "was die Folgenummer zählt"},
     .choices = tc::CHOICE_WORDS<COUNTED>,
     .label = {"Counts", "Zählt"},
     .group = BYTES,
     .enabledWhen = {"sequence", NUMBERED}},
    {.name = "packet",
     .kind = TCModuleParameter::INTEGER,
     .defaultValue = "0",
     .help = {"samples of each channel in a packet; a datagram of udp is one of any size",
              "Abtastwerte je Kanal in einem Paket; bei udp ist jedes Datagramm eines, beliebig lang"},
     .minimum = 0.0,
     .maximum = 65536.0,
     .label = {"Packet size", "Paketgröße"},
     .group = BYTES,
     .enabledWhen = {"sequence", NUMBERED}},
    tc::BLOCK_PARAMETER,
    tc::FACTOR_PARAMETER,
    tc::OFFSET_PARAMETER,
    tc::CALIBRATED_UNIT_PARAMETER,
    tc::START_PARAMETER,
};

}  // namespace

RawInput::RawInput(int instance) : LiveSource(instance, PARAMETERS) {}

StreamPlace RawInput::Place() const {
    return {.kind = ParamChoice<PLACES>("from"),
            .path = std::string(ParamText("file")),
            .grows = ParamBool("grows"),
            .host = std::string(ParamText("host")),
            .port = ParamInt("port"),
            .mayClose = ParamChoice<CLOSES>("on_close") == Close::END};
}

live::Packing RawInput::Packing() const {
    const auto& number = NUMBER_FORMS[static_cast<int>(ParamChoice<NUMBERS>("sequence"))];
    return {.numberBytes = number.bytes,
            .isNumberBigEndian = number.isBigEndian,
            .numbersFrames = ParamChoice<COUNTED>("counts") == Counted::SAMPLES,
            .packetFrames = number.bytes > 0 ? ParamInt("packet") : 0};
}

bool RawInput::OnSettingsChanged(TCString& error) {
    std::string reason;
    TCSI_Unit unit;
    double newStart = 0.0;
    const StreamPlace place = Place();
    const int number = ParamInt("channels");
    const bool needsFile = place.kind == StreamPlace::FILE || place.kind == StreamPlace::LOCAL;
    if (needsFile && place.path.empty())
        tc::AddReason(reason, Bilingual("file: is missing; name what is to be read",
                                        "file: fehlt; nennen Sie, was gelesen werden soll")
                                  .Text());
    if (Packing().numberBytes > 0 && place.kind != StreamPlace::UDP && ParamInt("packet") == 0)
        tc::AddReason(
            reason,
            tc::NotValid(
                "packet", "0", Bilingual("1 or more", "1 oder mehr").Text(),
                Bilingual("with sequence numbers in a stream", "bei Folgenummern in einem Strom").Text()));
    for (const char* const parameter : {"block", "packet"})
        live::CheckBlock(parameter, ParamInt(parameter), number, reason);
    tc::ParseStart(ParamText("start"), newStart, reason);
    tc::ParseUnit(ParamText("unit"), unit, reason);
    error = reason.c_str();
    if (!reason.empty()) return false;
    start = newStart;
    const live::Channel channel{"", ParamDbl("factor"), ParamDbl("offset"), unit};
    Declare(live::FORMATS[static_cast<int>(ParamChoice<FORMATS>("format"))],
            std::vector<live::Channel>(static_cast<std::size_t>(number), channel), ParamDbl("rate"),
            place.Name());
    return true;
}

void RawInput::CheckStart(TCStartCheck& check) {
    const StreamPlace place = Place();
    std::error_code ignored;
    const auto refuse = [&](const Bilingual& why) { check.Refuse(why.With({place.path})); };
    if (place.kind == StreamPlace::FILE || place.kind == StreamPlace::LOCAL) {
        const std::filesystem::file_status status = std::filesystem::status(place.path, ignored);
        if (!std::filesystem::exists(status))
            refuse(
                {"file: %1 does not exist; check the path", "file: %1 gibt es nicht; prüfen Sie den Pfad"});
        else if (std::filesystem::is_directory(status))
            refuse({"file: %1 is a folder; name a file in it",
                    "file: %1 ist ein Ordner; nennen Sie eine Datei darin"});
        else if (std::filesystem::is_socket(status) != (place.kind == StreamPlace::LOCAL))
            refuse(place.kind == StreamPlace::LOCAL
                       ? Bilingual("file: %1 is no socket; set from=file",
                                   "file: %1 ist kein Socket; setzen Sie from=file")
                       : Bilingual("file: %1 is a socket; set from=unix",
                                   "file: %1 ist ein Socket; setzen Sie from=unix"));
    }
    WarnWithoutEffect(check);
}

int RawInput::Init() {
    std::string error;
    auto device = std::make_unique<live::StreamDevice>(Place());
    if (!device->Open(error)) return Fail(tc::MODULE_FAILED, error);
    return Begin(std::move(device),
                 {.packing = Packing(),
                  .block = static_cast<std::size_t>(ParamInt("block")),
                  .silence = Place().kind == StreamPlace::UDP ? 1000.0 * ParamDbl("silence") : 0.0},
                 start);
}

TC_MODULE_LIBRARY(RawInput);
