#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/platform/ModuleHandle.h"

// The metadata of a signal that a test makes up.
struct TestSignal {
    std::string name = "test";
    double rate = 1000.0;
    std::string unit = "";
    double timestamp = 1.0e12;
};

// One module out of its real library, wired to streams that the test fills and reads:
//   construct -> Set -> WireInputs, WireOutput -> Start -> Feed or Pump -> Finish
// Operations that can fail answer whether they went well; Error then has the module's words.
class ModuleBench {
 public:
    static constexpr const char* TIME_DOMAIN = "TYPEINFO{TypeInfo} DOUBLE[]{TIME_DOMAIN}";
    static constexpr const char* FREQ_DOMAIN = "TYPEINFO{TypeInfo} DOUBLE[]{FREQ_DOMAIN}";

    ModuleBench(const std::string& library, const char* id);
    ~ModuleBench();
    ModuleBench(const ModuleBench&) = delete;
    ModuleBench& operator=(const ModuleBench&) = delete;

    bool Set(const std::string& settings);
    // One line to each of as many inputs as there are types.
    void WireInputs(const std::vector<const char*>& types);
    void WireOutput(int output);

    bool Start();
    // Sends a whole signal in blocks, and lets the module work after each; `first` and `last` say whether it
    // begins and ends with these samples.
    bool Feed(int input, const std::vector<double>& samples, const TestSignal& signal = {}, int block = 1000,
              bool first = true, bool last = true);
    // Sends one block, which without samples has metadata only, and lets the module work.
    bool Send(int input, const TCTypeInfo& ti, const std::vector<double>& samples);
    // The block waits until the module works.
    void Write(int input, const TCTypeInfo& ti, const std::vector<double>& samples);
    // Lets the module work until it has nothing to do, at most this number of steps.
    bool Pump(int steps = 1 << 30);
    bool Finish();
    // Start, Feed to input 0 or Pump, Finish.
    bool Run();
    bool Run(const std::vector<double>& samples, const TestSignal& signal = {});

    TCBaseModuleEx& Module() { return *module; }
    const std::string& Error() const { return error; }
    // What came out of an output in one run: all samples, and the metadata of each block.
    const std::vector<double>& Samples(int output) const { return outputs[Index(output)]->samples; }
    const std::vector<TCTypeInfo>& Blocks(int output) const { return outputs[Index(output)]->blocks; }
    std::string States(int output) const;
    // NaN when there is no such result.
    double Result(const std::string& quantity, const std::string& signal = "test") const;
    // The streams of an input and an output, for blocks that are no plain samples; they must be wired.
    TCIOStream& Input(int input) { return *inputs[Index(input)]; }
    TCIOStream& Stream(int output) { return outputs[Index(output)]->stream; }
    // The warnings of all modules since the last call, one a line.
    static std::string TakeWarnings();

 private:
    struct Output {
        TCIOStream stream;
        std::vector<double> samples;
        std::vector<TCTypeInfo> blocks;
    };

    static std::size_t Index(int output) { return static_cast<std::size_t>(output); }
    bool Check(int code);
    void Collect();

    HINSTANCE library = nullptr;
    int kind = 0;
    TCBaseModuleEx* module = nullptr;
    std::vector<std::unique_ptr<TCIOStream>> inputs;
    std::vector<std::unique_ptr<Output>> outputs;
    std::string error;
};

// A name in the test's scratch folder, where no file is left from an earlier test.
std::string FreshFile(const std::string& name);
std::string ReadText(const std::string& path);
