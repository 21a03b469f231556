#pragma once

#include <string>
#include <vector>

#include "modules/common/ChannelOutputs.h"
#include "modules/table-file/TableReader.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/RunTime.h"

// Plays a table of numbers into the graph, plain or compressed with gzip: one output for each column of
// values, named as in the table, and all of them as one bus. The samplerate is that of the column of times,
// whose rows must be even, or `rate`. Where rows are missing by their times the signals end and begin again.
// What is not set is found in the first rows; a table of CsvWriter needs no setting.
//
// The ports follow from the file, so they are declared when the settings are known, and its first rows are
// read for good then. Where a later row is wrong, what is before it is delivered, the signals are ended, and
// then the run fails.
class TableFile final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "TableFile";

    explicit TableFile(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Reads the columns of a CSV, TSV or other table of numbers",
                             "Liest die Spalten einer CSV-, TSV- oder anderen Tabelle mit Zahlen")
            .Text();
    }
    bool OnSettingsChanged(TCString& error) override;
    void CheckStart(TCStartCheck& check) override;
    TCForetoldSignal ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) override;
    int Init() override;
    int Execute() override;
    int Done() override;

 private:
    tc::TableSettings Settings() const;
    bool CheckHead(TableReader& probe, std::string& error) const;
    int WriteBlock(bool isLast);
    void BeginAnew(TableReader::Next next);
    int Finish();

    TableReader reader;
    ChannelOutputs outputs;
    std::vector<std::string> remarks;
    double start = 0.0;  // 0: that of the table, or of the run
    tc::RunTime runTime;
    double begin = 0.0;  // of this run
    std::int64_t blockSize = 0;
    std::int64_t position = 0;  // of the next row, which counts those that are missing
    std::int64_t inSignal = 0;  // rows of the signal that were sent
    std::vector<char> over;     // whose channels have sent their last block
    std::int64_t count = 0;     // rows of the block
    bool isEnd = false;
    std::vector<double> values;  // of the block, one channel after the other
};
