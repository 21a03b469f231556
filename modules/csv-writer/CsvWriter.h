#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "modules/common/SampleQueue.h"
#include "modules/csv-writer/CsvFile.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

// Writes the signals that are wired to it as text, one column each. Three header rows hold the names, the
// units and the samplerates, of spectra the bin spacings; then comes one row for each sample. Where all
// signals have one rate and one domain, a first column holds the time, or the frequency, counted from where
// the first of them begins; the frequency anew with each block, which is a spectrum. Numbers have a point in
// every locale and as many digits as read back to the same double ("nan", "inf" and "-inf" for what is no
// finite number); texts that hold a separator, a quotation mark or a line end are in quotation marks.
//
// While the writer is off, which may change in a run, rows are left out; the time of those that follow goes
// on as if they were there.
//
// A column ends with the STOP block of its signal; the rows of longer signals then have empty cells there,
// and a block that comes later still fails the run. What is ahead of the other columns waits in memory, and
// beyond some thousand samples in a temporary file, so that memory stays flat.
//
// The file has its name only when it is whole (see CsvFile), and none comes to be when the run does not
// begin. Its inputs adopt the type of their line, which must be double values.
class CsvWriter final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "CsvWriter";

    explicit CsvWriter(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Writes signals as columns of a CSV file",
                             "Schreibt Signale als Spalten einer CSV-Datei")
            .Text();
    }
    void GetFiles(TCArray<TCModuleFile>& files) const override;
    void CheckStart(TCStartCheck& check) override;
    int Init() override;
    int Fetch() override;
    int Execute() override;
    int Done() override;

 private:
    struct Column {
        SampleQueue samples;
        std::deque<std::int64_t> begins;  // rows to come in which a signal or spectrum begins, of the axis
        TCTypeInfo metadata;              // of the last block
        bool spectrum = false;
        bool timeless = false;  // values over values
        bool begun = false;
        bool ended = false;
        bool hasEmptyCells = false;
    };

    int Take(unsigned input);
    int WriteRows();
    std::int64_t RowsReady() const;
    void NoteBegin(Column& column);
    Column* FindAxis();
    std::string Header();
    void AppendAxis(std::string& text);
    void AppendRow(std::string& text);
    bool IsWhole() const;
    int Close();

    CsvFile file;
    char separator = ',';
    const int& on = LiveInt("on");
    bool runBegun = false;
    bool headerWritten = false;
    std::vector<Column> columns;
    Column* axis = nullptr;          // whose times or frequencies are in the first column, once it is known
    std::int64_t firstOfSignal = 0;  // the row in which its signal begins
    std::int64_t rows = 0;           // written
};
