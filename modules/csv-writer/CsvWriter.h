#pragma once

#include <vector>

#include "modules/csv-writer/CsvFile.h"
#include "sigweave/module/TCBaseModuleEx.h"

// Writes the signals that are wired to it as text, one column each. Three header rows hold the names, the
// units and the samplerates; then comes one row for each sample. Numbers have a point in every locale and as
// many digits as read back to the same double ("nan", "inf" and "-inf" for what is no finite number); texts
// that hold a separator, a quotation mark or a line end stand in quotation marks.
//
// A shorter signal's column ends in empty cells. Signals may arrive at different speeds: an input that is far
// ahead of the others is left to wait, so memory stays flat. A signal that has ended with STOP takes no more
// blocks; further COMPLETE blocks continue a column unless the others are far ahead by then.
//
// The file has its name only when it is whole (see CsvFile). Its inputs adopt the type of their line, which
// must be double values.
class CsvWriter final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "CsvWriter";

    explicit CsvWriter(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override { return "Writes signals as columns of a CSV file"; }
    const char* GetBaseName() const override { return ID; }
    int Init() override;
    int Fetch() override;
    int Execute() override;
    int Done() override;

 private:
    struct Column {
        std::vector<double> values;
        std::size_t next = 0;  // the first value that is not yet written
        TCTypeInfo metadata;   // of the last block
        bool begun = false;
        bool ended = false;

        std::size_t Waiting() const { return values.size() - next; }
        // Whether rows can be written without waiting for this column.
        bool IsSettled() const { return ended || Waiting() > 0; }
    };

    bool IsWaiting(unsigned input) const;
    int Take(unsigned input);
    void EndIdleColumns();
    int WriteRows();
    std::string Header() const;
    std::string Rows(std::size_t count);
    bool IsWhole() const;
    int Close();

    CsvFile file;
    char separator = ',';
    bool headerWritten = false;
    std::vector<Column> columns;
};
