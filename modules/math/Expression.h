#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "sigweave/signal/TCSI_Unit.h"

// A formula over signals, as "a*b - 0.5*abs(c)": what it means for values and for their units. Inputs are a,
// b, c, d in their order, or x1, x2 and so on. Precedence and the functions are those of Python with NumPy,
// and so are the results, also of what is not finite. A number may have a unit in brackets, as 0.5[mV]; 0
// fits any.
//
// Errors are whole messages about the parameter "expression" with the position in it, from 1.
class Expression {
 public:
    static constexpr std::size_t MOST_CHARACTERS = 4096;

    // False with the error for a text that is no expression.
    bool Parse(const std::string& text, std::string& error);
    bool IsEmpty() const { return nodes.empty(); }
    // Whether it has that input, counted from 0, and how many it needs at least.
    bool Uses(std::size_t input) const;
    std::size_t InputsNeeded() const;
    // An input that is beyond those that there are; false with the error.
    bool CheckInputs(std::size_t count, std::string& error) const;

    // The unit of the result, as far as those of the inputs, as many as are wired, are known. False with the
    // error where they do not fit.
    bool FindUnit(std::span<const std::optional<TCSI_Unit>> units, std::optional<TCSI_Unit>& result,
                  std::string& error);
    // Makes ready for Compute, with units that are known and fit.
    bool Prepare(std::span<const std::optional<TCSI_Unit>> units, TCSI_Unit& result, std::string& error);
    // Sample by sample: `inputs` are arrays of `count` values. Allocates nothing.
    void Compute(std::span<const double* const> inputs, double* result, std::size_t count);

    enum class Op : unsigned char {
        INPUT,
        CONSTANT,
        ADD,
        SUBTRACT,
        MULTIPLY,
        DIVIDE,
        POWER,
        NEGATE,
        LESS,
        LESS_EQUAL,
        GREATER,
        GREATER_EQUAL,
        EQUAL,
        NOT_EQUAL,
        ABS,
        SQRT,
        SQUARE,
        EXP,
        EXPM1,
        LOG,
        LOG2,
        LOG10,
        LOG1P,
        SIN,
        COS,
        TAN,
        ARCSIN,
        ARCCOS,
        ARCTAN,
        SINH,
        COSH,
        TANH,
        SIGN,
        FLOOR,
        CEIL,
        ROUND,
        MINIMUM,
        MAXIMUM,
        HYPOT,
        ARCTAN2,
        WHERE
    };
    static constexpr std::size_t MOST_ARGUMENTS = 3;

    // What a part of the expression does.
    struct Node {
        Op op = Op::CONSTANT;
        std::size_t position = 0;  // in the text, from 1
        double value = 0.0;        // of a constant
        std::size_t input = 0;
        int arguments[MOST_ARGUMENTS] = {-1, -1, -1};
        std::optional<TCSI_Unit> unit;     // of a constant; of others what FindUnit found
        TCSI_Unit wanted[MOST_ARGUMENTS];  // in which each argument is to be
        bool fitsAny = false;              // a 0 without a unit
    };

 private:
    friend class ExpressionParser;
    friend class UnitFinder;

    // What is done with a piece of the samples: places of values are inputs, then constants, then results.
    // While the steps are made, constants count from CONSTANTS_FROM up and results from -1 down.
    static constexpr int CONSTANTS_FROM = 1 << 20;
    struct Step {
        Op op = Op::ADD;
        int to = 0;
        int arguments = 0;
        int from[MOST_ARGUMENTS] = {0, 0, 0};
    };

    std::optional<double> ConstantOf(int node) const;
    int AddConstant(double value);
    int AddResult();
    void Release(int place);
    int Emit(int node);
    int EmitConverted(int place, const TCSI_Unit& from, const TCSI_Unit& to);

    std::string text;
    std::vector<Node> nodes;
    int root = -1;
    std::size_t inputCount = 0;
    std::vector<Step> steps;
    std::vector<double> constants;
    std::vector<double> buffers;  // of the constants, then of the results
    std::vector<const double*> places;
    int results = 0;
    std::vector<int> unused;  // results that are free again
    int last = 0;             // the place of the result
};
