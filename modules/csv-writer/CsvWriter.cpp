#include "modules/csv-writer/CsvWriter.h"

#include <algorithm>
#include <limits>

#include "modules/common/SignalSettings.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/module/TCModuleMessage.h"

namespace {

constexpr TCModuleParameter PARAMETERS[] = {
    {.name = "file",
     .kind = TCModuleParameter::OUTPUT_FILE,
     .defaultValue = nullptr,
     .help = "the file to write"},
    {.name = "overwrite",
     .kind = TCModuleParameter::SWITCH,
     .defaultValue = "no",
     .help = "replace a file that is there"},
    {.name = "separator",
     .kind = TCModuleParameter::CHOICE,
     .defaultValue = "comma",
     .help = "between the columns",
     .choices = "comma|semicolon|tab"},
};

// In the order of the choices.
constexpr char SEPARATORS[] = {',', ';', '\t'};

// An input that is this many samples ahead is left to wait.
constexpr std::size_t FAR_AHEAD = 1 << 18;

std::string Cell(const std::string& text) {
    if (text.find_first_of(",;\t\"\r\n") == std::string::npos) return text;
    std::string cell = "\"";
    for (const char character : text)
        cell += character == '"' ? std::string("\"\"") : std::string(1, character);
    return cell + "\"";
}

}  // namespace

CsvWriter::CsvWriter(int instance) : TCBaseModuleEx(instance, PARAMETERS) {
    UseAnyNumberOfInputs("", "");
}

int CsvWriter::Init() {
    std::string error;
    file.Abandon();
    headerWritten = false;
    separator = SEPARATORS[ParamChoice("separator")];
    columns.assign(static_cast<std::size_t>(GetNoInput()), Column{});
    for (unsigned input = 0; input < columns.size(); ++input) {
        columns[input].ended = !portHelper->IsWired(INPUT, input);
    }
    if (!tc::CheckDoubleInputs(*portHelper, error)) return Fail(tc::MODULE_FAILED, error.c_str());
    const int code = TCBaseModuleEx::Init();
    if (code < 0) return code;
    const std::string path(ParamStr("file"));
    return file.Open(path, GetInstance(), ParamBool("overwrite"))
               ? 0
               : Fail(tc::MODULE_FAILED, file.Error().c_str());
}

int CsvWriter::Fetch() {
    for (unsigned input = 0; input < columns.size(); ++input) {
        if (IsWaiting(input)) return 0;
    }
    return 1;
}

bool CsvWriter::IsWaiting(unsigned input) const {
    return columns[input].Waiting() < FAR_AHEAD && portHelper->BlocksOnStream(INPUT, input) > 0;
}

int CsvWriter::Execute() {
    for (unsigned input = 0; input < columns.size(); ++input) {
        const int code = IsWaiting(input) ? Take(input) : 0;
        if (code < 0) return code;
    }
    EndIdleColumns();
    return WriteRows();
}

int CsvWriter::Take(unsigned input) {
    Column& column = columns[input];
    const int code = portHelper->TakeBlock(input);
    if (code <= 0) return code;
    if (column.ended) {
        return Fail(tc::MODULE_FAILED,
                    TCString::FormatS("the input \"%s\" goes on after its signal has ended",
                                      portHelper->GetPortName(INPUT, input).operator const char*()));
    }
    const TCTypeInfo* metadata = portHelper->LastTypeInfo(input);
    if (metadata != nullptr) column.metadata = *metadata;
    column.begun = true;
    column.ended = column.metadata.GetState() == STOP;
    int count = 0;
    const double* values = portHelper->AccessDblData(input, count);
    column.values.insert(column.values.end(), values, values + count);
    return 0;
}

// A COMPLETE block may be the whole signal or one of many: when others have run far ahead, it was the last.
void CsvWriter::EndIdleColumns() {
    const bool farAhead = std::any_of(columns.begin(), columns.end(),
                                      [](const Column& column) { return column.Waiting() >= FAR_AHEAD; });
    if (!farAhead) return;
    for (unsigned input = 0; input < columns.size(); ++input) {
        Column& column = columns[input];
        const bool idle = column.Waiting() == 0 && portHelper->BlocksOnStream(INPUT, input) == 0;
        if (idle && column.metadata.GetState() == COMPLETE) column.ended = true;
    }
}

// As many rows as every column has something to say about.
int CsvWriter::WriteRows() {
    std::size_t count = std::numeric_limits<std::size_t>::max();
    std::size_t longest = 0;
    for (const Column& column : columns) {
        longest = std::max(longest, column.Waiting());
        if (!column.ended) count = std::min(count, column.Waiting());
    }
    count = std::min(count, longest);
    if (count == 0) return 0;
    std::string text = headerWritten ? std::string() : Header();
    headerWritten = true;
    text += Rows(count);
    return file.Write(text) ? 0 : Fail(tc::MODULE_FAILED, file.Error().c_str());
}

std::string CsvWriter::Header() const {
    std::string names;
    std::string units;
    std::string rates;
    for (unsigned input = 0; input < columns.size(); ++input) {
        const Column& column = columns[input];
        TCString unit;
        column.metadata.GetUnit().ToString(unit);
        const std::string between = input > 0 ? std::string(1, separator) : std::string();
        names += between + Cell(tc::SignalName(*portHelper, input, column.metadata));
        units += between + Cell(std::string(unit));
        rates += between + (column.begun ? tc::NumberText(column.metadata.GetSamplerate()) : std::string());
    }
    return names + "\n" + units + "\n" + rates + "\n";
}

std::string CsvWriter::Rows(std::size_t count) {
    std::string text;
    for (std::size_t row = 0; row < count; ++row) {
        for (std::size_t i = 0; i < columns.size(); ++i) {
            Column& column = columns[i];
            if (i > 0) text += separator;
            if (column.Waiting() > 0) text += tc::NumberText(column.values[column.next++]);
        }
        text += '\n';
    }
    for (Column& column : columns) {
        column.values.erase(column.values.begin(),
                            column.values.begin() + static_cast<std::ptrdiff_t>(column.next));
        column.next = 0;
    }
    return text;
}

int CsvWriter::Done() {
    const int closed = file.IsOpen() ? Close() : 0;
    const int code = TCBaseModuleEx::Done();
    return closed < 0 ? closed : code;
}

bool CsvWriter::IsWhole() const {
    for (unsigned input = 0; input < columns.size(); ++input) {
        const TCBLOCKSTATUS state = columns[input].metadata.GetState();
        if (state == START || state == BUSY || portHelper->BlocksOnStream(INPUT, input) > 0) return false;
    }
    return true;
}

int CsvWriter::Close() {
    const bool whole = IsWhole();
    for (Column& column : columns) column.ended = true;
    const int code = WriteRows();
    if (code >= 0 && whole && file.Finish()) return 0;
    file.Abandon();
    if (code < 0 || whole) return Fail(tc::MODULE_FAILED, file.Error().c_str());
    TCModuleMessage::Warning(GetModuleName(), "the signals did not end; what there is of them is in %s",
                             file.PartName().c_str());
    return 0;
}

TC_MODULE_LIBRARY(CsvWriter);
