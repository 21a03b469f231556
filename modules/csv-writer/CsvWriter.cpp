#include "modules/csv-writer/CsvWriter.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "sigweave/foundation/NumberFormat.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/signal/UnitText.h"

namespace {

using tc::Bilingual;

constexpr tc::Choice<char> SEPARATORS[] = {{"comma", ','}, {"semicolon", ';'}, {"tab", '\t'}};

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "file",
     .kind = TCModuleParameter::OUTPUT_FILE,
     .defaultValue = nullptr,
     .help = {"the file to write", "die zu schreibende Datei"},
     .label = {"File", "Datei"},
     .fileFilter = "*.csv"},
    {.name = "overwrite",
     .kind = TCModuleParameter::SWITCH,
     .defaultValue = "no",
     .help = {"replace an existing file", "eine vorhandene Datei ersetzen"},
     .label = {"Overwrite", "Überschreiben"}},
    {.name = "separator",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "comma",
     .help = {"between the columns", "zwischen den Spalten"},
     .choices = tc::CHOICE_WORDS<SEPARATORS>,
     .label = {"Separator", "Trennzeichen"}},
    {.name = "time",
     .kind = TCModuleParameter::SWITCH,
     .defaultValue = "yes",
     .help = {"a first column with the time, or for spectra the frequency; none if rates or domains differ",
              "eine erste Spalte mit der Zeit, bei Spektren der Frequenz; keine bei verschiedenen Raten oder "
              "Domänen"},
     .label = {"Time column", "Zeitspalte"}},
    {.name = "on",
     .kind = TCModuleParameter::SWITCH,
     .defaultValue = "yes",
     .help = {"while it is off, rows are left out", "solange es aus ist, entfallen die Zeilen"},
     .label = {"On", "Ein"},
     .live = true},
};

constexpr std::int64_t MOST_ROWS_AT_ONCE = 4096;

std::string Cell(const std::string& text) {
    if (text.find_first_of(",;\t\"\r\n") == std::string::npos) return text;
    std::string cell = "\"";
    for (const char character : text)
        cell += character == '"' ? std::string("\"\"") : std::string(1, character);
    return cell + "\"";
}

}  // namespace

CsvWriter::CsvWriter(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    DeclarePlacement(ANY_THREAD);
    UseAnyNumberOfInputs("", "");
}

void CsvWriter::GetFiles(TCArray<TCModuleFile>& files) const {
    AddReplacedFile(files, ParamStr("file"), "file");
}

void CsvWriter::CheckStart(TCStartCheck& check) {
    tc::CheckDoubleInputs(*portHelper, check);
    const std::string reason = CsvFile::WhyRefused(ParamText("file"), ParamBool("overwrite"));
    if (!reason.empty()) check.Refuse("file: " + reason);
}

int CsvWriter::Init() {
    TCStartCheck check;
    file.Abandon();
    runBegun = headerWritten = false;
    separator = ParamChoice<SEPARATORS>("separator");
    columns.clear();
    columns.resize(static_cast<std::size_t>(GetNoInput()));
    axis = nullptr;
    firstOfSignal = rows = 0;
    for (unsigned input = 0; input < columns.size(); ++input) {
        columns[input].ended = !portHelper->IsWired(INPUT, input);
        const char* const type = portHelper->GetPortType(INPUT, input, nullptr);
        columns[input].spectrum = type != nullptr && std::strstr(type, "{FREQ_DOMAIN}") != nullptr;
        columns[input].timeless = type != nullptr && std::strstr(type, "{VALUE_DOMAIN}") != nullptr;
    }
    CheckStart(check);
    if (!check.mistakes.IsEmpty()) return Fail(tc::MODULE_FAILED, check.mistakes);
    const int code = TCBaseModuleEx::Init();
    if (code < 0) return code;
    std::string error;
    const bool opened = file.Open(ParamText("file"), ParamBool("overwrite"), error);
    return opened ? 0 : Fail(tc::MODULE_FAILED, error);
}

// Asked for the first time when all modules have started.
int CsvWriter::Fetch() {
    runBegun = true;
    return TCBaseModuleEx::Fetch();
}

int CsvWriter::Execute() {
    int code = 0;
    for (unsigned input = 0; input < columns.size() && code >= 0; ++input) code = Take(input);
    if (code >= 0) code = WriteRows();
    if (code < 0) file.Abandon();
    return code;
}

int CsvWriter::Take(unsigned input) {
    Column& column = columns[input];
    const int code = portHelper->TakeBlock(input);
    if (code <= 0) return code;
    if (column.hasEmptyCells)
        return Fail(tc::MODULE_FAILED,
                    Bilingual("%1 goes on after its signal has ended",
                              "%1 liefert weiter, obwohl das Signal zu Ende ist"),
                    {tc::InputName(*portHelper, input)});
    const TCTypeInfo* metadata = portHelper->LastTypeInfo(input);
    if (metadata != nullptr) column.metadata = *metadata;
    if (column.spectrum || tc::BeginsSignal(column.metadata.GetState())) NoteBegin(column);
    column.begun = true;
    column.ended = column.metadata.GetState() == STOP;
    int count = 0;
    const double* values = portHelper->AccessDblData(input, count);
    if (column.samples.Add(values, static_cast<std::size_t>(count))) return 0;
    return Fail(tc::MODULE_FAILED, tc::QUEUE_FAILED);
}

int CsvWriter::WriteRows() {
    std::int64_t ready = RowsReady();
    while (ready > 0) {
        std::string text = headerWritten ? std::string() : Header();
        headerWritten = true;
        for (std::int64_t i = std::min(ready, MOST_ROWS_AT_ONCE); i > 0; --i, --ready) AppendRow(text);
        std::string error;
        if (!file.Write(text, error)) return Fail(tc::MODULE_FAILED, error);
    }
    const bool broken = std::any_of(columns.begin(), columns.end(),
                                    [](const Column& column) { return column.samples.IsBroken(); });
    return broken ? Fail(tc::MODULE_FAILED, tc::QUEUE_FAILED) : 0;
}

// Rows about which every column has something to say.
std::int64_t CsvWriter::RowsReady() const {
    std::int64_t held = std::numeric_limits<std::int64_t>::max();
    std::int64_t longest = 0;
    for (const Column& column : columns) {
        longest = std::max(longest, column.samples.Waiting());
        if (!column.ended) held = std::min(held, column.samples.Waiting());
    }
    return std::min(held, longest);
}

// Of the column that is, or may become, the axis. Its rows are counted like its samples.
void CsvWriter::NoteBegin(Column& column) {
    if (&column == axis || !headerWritten) column.begins.push_back(rows + column.samples.Waiting());
}

// The first column that got a block, when all of those can share one axis, else null.
CsvWriter::Column* CsvWriter::FindAxis() {
    Column* first = nullptr;
    for (Column& column : columns) {
        if (!column.begun) continue;
        if (column.timeless) return nullptr;
        if (first == nullptr) first = &column;
        const double rate = column.metadata.GetSamplerate();
        const bool isAlike = rate == first->metadata.GetSamplerate() && column.spectrum == first->spectrum;
        if (!isAlike || !std::isfinite(rate) || rate <= 0.0) return nullptr;
    }
    return first;
}

std::string CsvWriter::Header() {
    if (ParamBool("time")) axis = FindAxis();
    std::string names, units, rates;
    bool isFirst = true;
    const auto add = [&](const std::string& name, const std::string& unit, const std::string& rate) {
        const std::string between = isFirst ? std::string() : std::string(1, separator);
        names += between + Cell(name);
        units += between + Cell(unit);
        rates += between + Cell(rate);
        isFirst = false;
    };
    if (axis != nullptr)
        axis->spectrum ? add("frequency", "Hz", "bin spacing") : add("time", "s", "samplerate");
    for (unsigned input = 0; input < columns.size(); ++input) {
        const Column& column = columns[input];
        const double rate = column.metadata.GetSamplerate();
        add(tc::SignalName(*portHelper, input, column.metadata), tc::DisplayUnit(column.metadata.GetUnit()),
            column.begun ? tc::ShortestText(column.spectrum ? 1.0 / rate : rate) : std::string());
    }
    if (units.empty()) units = "\"\"";  // an empty line would be no row for many readers
    return names + "\n" + units + "\n" + rates + "\n";
}

void CsvWriter::AppendAxis(std::string& text) {
    std::deque<std::int64_t>& begins = axis->begins;
    for (; !begins.empty() && begins.front() <= rows; begins.pop_front()) firstOfSignal = begins.front();
    text += tc::ShortestText(static_cast<double>(rows - firstOfSignal) / axis->metadata.GetSamplerate());
    text += separator;
}

void CsvWriter::AppendRow(std::string& text) {
    const std::size_t before = text.size();
    if (axis != nullptr) AppendAxis(text);
    for (std::size_t i = 0; i < columns.size(); ++i) {
        Column& column = columns[i];
        if (i > 0) text += separator;
        if (column.samples.Waiting() > 0) {
            text += tc::ShortestText(column.samples.Take());
        } else {
            column.hasEmptyCells = true;
        }
    }
    text += '\n';
    if (on == 0) text.resize(before);
    ++rows;
}

int CsvWriter::Done() {
    if (!runBegun) file.Discard();
    const int closed = file.IsOpen() ? Close() : 0;
    const int code = TCBaseModuleEx::Done();
    return closed < 0 ? closed : code;
}

bool CsvWriter::IsWhole() const {
    return std::none_of(columns.begin(), columns.end(), [](const Column& column) {
        return column.metadata.GetState() == START || column.metadata.GetState() == BUSY;
    });
}

int CsvWriter::Close() {
    const bool whole = IsWhole();
    for (Column& column : columns) column.ended = true;
    const int code = WriteRows();
    std::string error;
    if (code >= 0 && whole && (headerWritten || file.Write(Header(), error)) && file.Finish(error)) return 0;
    file.Abandon();
    if (code < 0) return code;
    if (whole) return Fail(tc::MODULE_FAILED, error);
    Warn(Bilingual("the signals did not end; what arrived is in %1",
                   "die Signale endeten nicht; was angekommen ist, steht in %1"),
         {file.PartName()});
    return 0;
}

TC_MODULE_LIBRARY(CsvWriter);
