#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "modules/common/ChannelOutputs.h"
#include "sigweave/module/TCModuleParameter.h"
#include "sigweave/services/RunTime.h"

// What sources have in common that read arrays of numbers out of files which also describe them.
namespace tc {

// What a file says of its array; what it does not say is empty or 0.
struct ArrayFacts {
    std::size_t channels = 1;
    std::int64_t samples = 0;  // of each channel
    std::string name;          // of the signal; of several channels what their names begin with
    std::string unit;          // as the file has it
    double rate = 0.0;         // samples per second
    double start = 0.0;        // milliseconds since 1970
};

// Takes what a file says under a name that programs use for it, as sample_rate, fs, dt, unit or start_time;
// in any case. Others are left alone.
bool IsFactName(std::string_view name);
void TakeFact(std::string_view name, double number, ArrayFacts& facts);
void TakeFact(std::string_view name, const std::string& text, ArrayFacts& facts);

// Appends a character, of the first 65,535 of Unicode, in UTF-8.
void AppendCharacter(unsigned code, std::string& text);

// The array of that name in a file that has these; without a name the only one, or that called "samples".
// Empty with a line in `error`, which begins with the parameter's name, when there is none. `expected`: what
// can be read, with the file as %1 and a suggestion as %2.
std::string ChooseArray(const std::string& path, const char* parameter, const std::string& wanted,
                        const CStringArray& names, const Bilingual& expected, std::string& error);

// An array that is open.
class ArrayReader {
 public:
    virtual ~ArrayReader() = default;
    virtual const ArrayFacts& Facts() const = 0;
    // The samples from `begin` on: that of channel c and number i goes to values[c * stride + i]. False, with
    // the file's name in `error`, where the file cannot be read.
    virtual bool Read(std::int64_t begin, std::int64_t count, double* values, std::int64_t stride,
                      std::string& error) = 0;
};

// The direction of the samples in an array of two dimensions.
enum class ArrayLayout { LONGER, COLUMNS, ROWS };
inline constexpr Choice<ArrayLayout> ARRAY_LAYOUTS[] = {
    {"auto", ArrayLayout::LONGER}, {"columns", ArrayLayout::COLUMNS}, {"rows", ArrayLayout::ROWS}};

// How the array lies: false, with a line in `error`, for other than one or two dimensions, or too many
// channels.
struct ArrayShape {
    std::int64_t samples = 0;
    std::int64_t channels = 1;
    bool areRows = false;  // a channel is a row
};
bool FindShape(const std::vector<std::int64_t>& sizes, ArrayLayout layout, ArrayShape& shape,
               std::string& error);

}  // namespace tc

// Plays an array: the outputs, the blocks and their metadata.
class ArraySource {
 public:
    struct Settings {
        double rate = 0.0;
        std::string unit;
        std::string start;
        std::int64_t block = 0;
    };

    // Before a file is known.
    void Declare(TCPortHelper& ports) { outputs.Declare(ports, {""}, "Channel"); }
    // By the settings of the module and the facts of its file; false with a line for each mistake.
    bool Set(TCPortHelper& ports, const tc::ArrayFacts& facts, const Settings& given, std::string& error);
    TCForetoldSignal Foretell(int output) const { return outputs.Foretell(output); }
    // What the user may not expect; empty: nothing.
    const std::string& Remark() const { return remark; }

    // Whether an array still has the facts by which the ports were declared.
    bool Fits(const tc::ArrayFacts& facts) const;
    void Begin(std::unique_ptr<tc::ArrayReader> opened);
    bool IsOver() const { return isOver; }
    // Sends the next block; 0, or a negative code with the reason in `error` or the port helper's record.
    int Step(TCPortHelper& ports, bool isInterrupted, std::string& error);
    void End();
    double Progress() const;

 private:
    ChannelOutputs outputs;
    tc::ArrayFacts expected;
    std::string remark;
    double offset = 0.0;
    double start = 0.0;  // 0: the time of the run
    std::int64_t blockSize = 0;
    std::unique_ptr<tc::ArrayReader> reader;
    tc::RunTime runTime;
    std::int64_t position = 0;
    bool isOver = false;
    std::vector<double> values;
};
