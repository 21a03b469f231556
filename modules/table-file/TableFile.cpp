#include "modules/table-file/TableFile.h"

#include <algorithm>

#include "modules/common/SharedSettings.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"

namespace {

using tc::Bilingual;
using Header = tc::TableSettings::Header;

// Groups of parameters.
constexpr Bilingual FORM("Form of the table", "Form der Tabelle");
constexpr Bilingual SIGNALS("Signals", "Signale");

constexpr tc::Choice<char> SEPARATORS[] = {
    {"auto", '\0'}, {"comma", ','}, {"semicolon", ';'}, {"tab", '\t'}, {"blank", ' '}};
constexpr tc::Choice<char> POINTS[] = {{"auto", '\0'}, {"point", '.'}, {"comma", ','}};
constexpr tc::Choice<Header> HEADERS[] = {{"auto", Header::FOUND},
                                          {"none", Header::NONE},
                                          {"names", Header::NAMES},
                                          {"names_units", Header::NAMES_UNITS},
                                          {"names_units_rates", Header::NAMES_UNITS_RATES}};

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "file",
     .kind = TCModuleParameter::FILE,
     .defaultValue = nullptr,
     .help = {"the table to read, also compressed with gzip",
              "die zu lesende Tabelle, auch mit gzip komprimiert"},
     .label = {"File", "Datei"},
     .fileFilter = "*.csv|*.tsv|*.txt|*.csv.gz|*.tsv.gz|*.txt.gz"},
    {.name = "separator",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "auto",
     .help = {"between the columns; blank: any number of blanks and tabs",
              "zwischen den Spalten; blank: beliebig viele Leerzeichen und Tabulatoren"},
     .choices = tc::CHOICE_WORDS<SEPARATORS>,
     .label = {"Separator", "Trennzeichen"},
     .group = FORM},
    {.name = "decimal",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "auto",
     .help = {"the decimal sign", "das Dezimalzeichen"},
     .choices = tc::CHOICE_WORDS<POINTS>,
     .label = {"Decimal sign", "Dezimalzeichen"},
     .group = FORM},
    {.name = "skip",
     .kind = TCModuleParameter::INTEGER,
     .defaultValue = "0",
     .help = {"lines before the table, which are not read",
              "Zeilen vor der Tabelle, die nicht gelesen werden"},
     .minimum = 0.0,
     .maximum = 1000000.0,
     .label = {"Lines to skip", "Zeilen überspringen"},
     .group = FORM},
    {.name = "header",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "auto",
     .help = {"the rows above the numbers", "die Zeilen über den Zahlen"},
     .choices = tc::CHOICE_WORDS<HEADERS>,
     .label = {"Header rows", "Kopfzeilen"},
     .group = FORM},
    {.name = "columns",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "",
     .help = {"names or numbers of the columns to read, between commas; empty: all with numbers",
              "Namen oder Nummern der zu lesenden Spalten, durch Kommas getrennt; leer: alle mit Zahlen"},
     .label = {"Columns", "Spalten"},
     .group = SIGNALS},
    {.name = "units",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "",
     .help = {"of the columns, between commas, or one for all; empty: those of the table",
              "der Spalten, durch Kommas getrennt, oder eine für alle; leer: die der Tabelle"},
     .label = {"Units", "Einheiten"},
     .group = SIGNALS},
    {.name = "time",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "",
     .help = {"name or number of the column of times; empty: found by its name; none: there is none",
              "Name oder Nummer der Spalte mit Zeiten; leer: nach dem Namen gefunden; none: es gibt keine"},
     .label = {"Column of times", "Zeitspalte"},
     .group = tc::TIME_GROUP},
    {.name = "rate",
     .kind = TCModuleParameter::NUMBER,
     .defaultValue = "0",
     .unit = "Hz",
     .help = {"rows per second; 0: by the column of times", "Zeilen je Sekunde; 0: nach der Zeitspalte"},
     .minimum = 0.0,
     .label = {"Samplerate", "Abtastrate"},
     .group = tc::TIME_GROUP},
    tc::BLOCK_PARAMETER,
    {.name = "start",
     .kind = TCModuleParameter::TEXT,
     .defaultValue = "",
     .help =
         {"UTC time of the first row, as 2026-03-01T12:00:00Z; empty: that of the table, else of the run",
          "Zeit der ersten Zeile in UTC, wie 2026-03-01T12:00:00Z; leer: die der Tabelle, sonst des Laufs"},
     .label = {"Start time", "Startzeit"},
     .group = tc::TIME_GROUP},
};

// Of all channels together, so that a block of a table with many columns has 128 MB at most.
constexpr std::int64_t MOST_BLOCK_VALUES = 1 << 24;
constexpr std::int64_t LONGEST_SPECTRUM = 1 << 20;
// What a check reads.
constexpr std::int64_t CHECKED_ROWS = 1000;

}  // namespace

// Before a file is known the ports are those of one with a single column.
TableFile::TableFile(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclareSource();
    outputs.Declare(*portHelper, {""}, "Column");
}

tc::TableSettings TableFile::Settings() const {
    tc::TableSettings settings;
    settings.separator = ParamChoice<SEPARATORS>("separator");
    settings.point = ParamChoice<POINTS>("decimal");
    settings.skip = ParamInt("skip");
    settings.header = ParamChoice<HEADERS>("header");
    settings.columns = ParamText("columns");
    settings.time = ParamText("time");
    settings.units = ParamText("units");
    settings.rate = ParamDbl("rate");
    return settings;
}

bool TableFile::OnSettingsChanged(TCString& error) {
    std::string reason;
    TableReader probe;
    double newStart = 0.0;
    if (probe.Open(ParamText("file"), Settings(), reason)) CheckHead(probe, reason);
    tc::ParseStart(ParamText("start"), newStart, reason);
    error = reason.c_str();
    if (!reason.empty()) return false;
    start = newStart;
    const bool isSpectrum = probe.Layout().isSpectrum;
    blockSize =
        isSpectrum ? MOST_BLOCK_VALUES / static_cast<std::int64_t>(probe.Channels()) : ParamInt("block");
    remarks = probe.Layout().remarks;
    std::vector<std::string> names;
    for (std::size_t c = 0; c < probe.Channels(); ++c) names.push_back(probe.Channel(c).name);
    outputs.Declare(*portHelper, names, "Column", isSpectrum ? "FREQ_DOMAIN" : "TIME_DOMAIN");
    for (std::size_t c = 0; c < probe.Channels(); ++c) {
        outputs.Metadata(c).SetSamplerate(probe.Samplerate(c));
        outputs.Metadata(c).SetUnit(probe.Channel(c).unit);
    }
    return true;
}

// What is wrong with the first rows.
bool TableFile::CheckHead(TableReader& probe, std::string& error) const {
    const auto channels = static_cast<std::int64_t>(probe.Channels());
    if (ParamInt("block") * channels > MOST_BLOCK_VALUES) {
        error = tc::NotValid("block", std::to_string(ParamInt("block")),
                             Bilingual("at most %1 samples", "eine Zahl bis %1 Abtastwerte")
                                 .With({std::to_string(MOST_BLOCK_VALUES / channels)}),
                             Bilingual("with %1 columns", "bei %1 Spalten").With({std::to_string(channels)}));
        return false;
    }
    std::vector<double> rows(static_cast<std::size_t>(CHECKED_ROWS * channels));
    for (std::int64_t left = CHECKED_ROWS; left > 0 && probe.LookAhead() != TableReader::Next::END;) {
        const std::int64_t got = probe.Read(rows.data(), CHECKED_ROWS, left);
        left = got > 0 ? left - got : 0;
    }
    if (!probe.Failure().empty()) error = "file: " + probe.Failure();
    return error.empty();
}

void TableFile::CheckStart(TCStartCheck& check) {
    for (const std::string& remark : remarks) check.Warn(remark);
}

TCForetoldSignal TableFile::ForetellOutput(int output, std::span<const TCForetoldSignal>) {
    return outputs.Foretell(output);
}

int TableFile::Init() {
    std::string error;
    if (!reader.Open(ParamText("file"), Settings(), error)) return Fail(tc::MODULE_FAILED, error);
    bool isSame = reader.Channels() == outputs.Count();
    for (std::size_t c = 0; c < reader.Channels() && isSame; ++c)
        isSame = reader.Samplerate(c) == outputs.Metadata(c).GetSamplerate();
    if (!isSame) return Fail(tc::MODULE_FAILED, tc::HAS_CHANGED, {ParamText("file")});
    runTime.Take();
    begin = start > 0.0 ? start : reader.Start() > 0.0 ? reader.Start() : runTime.Get();
    position = inSignal = 0;
    isEnd = false;
    over.assign(outputs.Count(), 0);
    values.resize(static_cast<std::size_t>(blockSize) * outputs.Count());
    return TCBaseModuleEx::Init();
}

int TableFile::Execute() {
    if (isEnd) return Finish();
    count = reader.Read(values.data(), blockSize, blockSize);
    const TableReader::Next next = reader.LookAhead();
    isEnd = next == TableReader::Next::END || IsInterrupted();
    const int code = WriteBlock(isEnd || next != TableReader::Next::ROW);
    position += count;
    inSignal += count;
    if (!isEnd && next != TableReader::Next::ROW) BeginAnew(next);
    return code;
}

void TableFile::BeginAnew(TableReader::Next next) {
    inSignal = 0;
    std::ranges::fill(over, 0);
    if (next != TableReader::Next::GAP) return;
    const double period = 1000.0 / reader.Samplerate(0);
    const std::int64_t missing = reader.MissingRows();
    AddGap(missing, begin + period * static_cast<double>(position));
    position += missing;
    begin += 1000.0 * reader.MissingSeconds() - period * static_cast<double>(missing);
}

// A column that has ended before the others sends nothing more.
int TableFile::WriteBlock(bool isLast) {
    int code = 0;
    for (std::size_t c = 0; c < outputs.Count() && code >= 0; ++c) {
        if (over[c] != 0) continue;
        TCTypeInfo& ti = outputs.Metadata(c);
        const bool ends = isLast || reader.HasEnded(c);
        const double rate = ti.GetSamplerate();
        ti.SetTimestamp(begin + (rate > 0.0 ? 1000.0 * static_cast<double>(position) / rate : 0.0));
        ti.SetState(tc::BlockState(inSignal == 0, ends));
        over[c] = ends ? 1 : 0;
        if (inSignal == 0 && reader.Held(c) == 0) continue;  // another column goes on
        const double* const samples = values.data() + static_cast<std::int64_t>(c) * blockSize;
        code = outputs.Write(*portHelper, c, samples, static_cast<std::size_t>(reader.Held(c)));
    }
    const int ofBus = outputs.EndBlock(*portHelper);
    return code < 0 ? code : ofBus;
}

// A step of its own after the last block: by then that has reached its receivers.
int TableFile::Finish() {
    portHelper->SetReadyFlag(false);
    for (const std::string& oddity : reader.Oddities()) Warn(Bilingual("%1"), {oddity});
    return reader.Failure().empty() ? 0 : Fail(tc::MODULE_FAILED, reader.Failure());
}

int TableFile::Done() {
    reader = TableReader();
    runTime.Release();
    return TCBaseModuleEx::Done();
}

TC_MODULE_LIBRARY(TableFile);
