#pragma once

#include <optional>
#include <string>
#include <vector>

#include "modules/math/Arithmetic.h"
#include "modules/math/Expression.h"
#include "modules/math/SignalQueue.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

// The sum or product of any number of signals, the difference or quotient of two, sample by sample; then
// `scale` times that, plus `offset`. With one input it scales and shifts a signal.
//
// The unit of the result is that of the first input for a sum or difference, whose other inputs must have the
// same dimension (another decimal factor is converted), else the product or quotient of the units; in both
// cases times that of `scale`. The offset is in the unit of the result. Division by zero follows IEEE 754.
//
// An `expression` takes the place of the operation (see Expression): any number of inputs, units that follow
// from it, and a range that is not known.
//
// The first signal of each input meets the first of the others, the second the second, and so on. They must
// have the same samplerate (to 1e-9) and begin at the same time (to half a sample): else the run fails, and
// the message names the module Align, which makes signals begin together. Blocks may be cut differently: what
// is ahead waits in bounded memory and a temporary file. The result ends with the signal that ends first,
// with a block without samples when that one did so; what the others have left is counted, with a
// warning.
class Math final : public TCBaseModuleEx {
 public:
    static constexpr const char* ID = "Math";

    explicit Math(int instance);

    const char* GetModuleId() const override { return ID; }
    const char* GetDescription() const override {
        return tc::Bilingual("Adds, subtracts, multiplies, divides, scales, or computes an expression",
                             "Addiert, subtrahiert, multipliziert, dividiert, skaliert oder berechnet einen "
                             "Ausdruck")
            .Text();
    }
    void OnInputsDeclared(int count) override;
    bool OnSettingsChanged(TCString& error) override;
    void CheckStart(TCStartCheck& check) override;
    TCForetoldSignal ForetellOutput(int output, std::span<const TCForetoldSignal> inputs) override;
    int Init() override;
    int Execute() override;
    int Done() override;
    bool OnLiveChanged(TCString& error) override;

 private:
    struct Input {
        SignalQueue signals;
        bool over = false;            // the result has ended, this signal goes on
        std::size_t endedBefore = 0;  // the input whose end that was
        std::int64_t leftOut = 0;     // samples of it

        bool HasEnded() const { return signals.Front().ended && signals.Front().waiting == 0; }
    };

    int Take(std::size_t index);
    int Join();
    bool IsReady() const;
    int Begin();
    // Why the inputs do not belong together; the last input that was looked at is the one that does not.
    struct Mismatch {
        std::string error;
        std::size_t input = 0;
    };

    std::string WhyWrongCount() const;
    void CheckRates(double rate, double otherRate, Mismatch& found) const;
    bool CheckTimes(std::string& error) const;
    std::optional<TCSI_Unit> ComputeUnit(const std::vector<std::optional<TCSI_Unit>>& units,
                                         Mismatch& found) const;
    std::optional<TCSI_Unit> ComputeExpressionUnit(const std::vector<std::optional<TCSI_Unit>>& units,
                                                   Mismatch& found) const;
    bool ScaleResult(std::optional<TCSI_Unit>& unit, Mismatch& found) const;
    bool ComputeUnit(std::string& error);
    bool HasExpression() const { return !expression.IsEmpty(); }
    tc::Operation GivenOperation() const;
    static bool KeepsUnit(tc::Operation kind);
    void DescribeResult();
    void DescribeRange();
    tc::ValueRange RangeOf(std::size_t index) const;
    void ToCommonUnit(std::size_t index, double* values, std::size_t count) const;
    bool Combine(std::int64_t count);
    bool ComputeExpression(std::int64_t count);
    int Write(std::int64_t count);
    void Stamp();
    bool IsOver() const;
    void End();
    void LeaveOut(std::size_t index);
    void TellLeftOut(std::size_t index);
    std::string PortText(std::size_t index) const;
    const TCTypeInfo& Metadata(std::size_t index) const { return inputs[index].signals.Front().metadata; }

    tc::Operation operation = tc::Operation::SUM;
    const double& scale = LiveDbl("scale");
    const double& offset = LiveDbl("offset");
    TCSI_Unit scaleUnit;
    Expression expression;  // empty: the operation
    std::vector<Input> inputs;
    bool open = false;          // the result has begun and not ended
    std::int64_t position = 0;  // in the result
    TCTypeInfo metadata;        // of the result
    std::vector<double> result;
    std::vector<double> operand;
    std::vector<std::vector<double>> taken;  // of each input, for the expression
    std::vector<const double*> takenAt;
};
