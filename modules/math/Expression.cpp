#include "modules/math/Expression.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>

#include "modules/math/Arithmetic.h"
#include "modules/math/ExpressionParser.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"

using tc::Bilingual;
using Op = Expression::Op;

namespace {

// The samples that are computed at once, so that what is between the steps stays near the processor.
constexpr std::size_t PIECE = 512;

// What the units of the arguments must be, and that of the result.
enum class Rule { PRODUCT, QUOTIENT, POWER, SAME, COMPARED, KEPT, NUMBERS, ROOT, SQUARED, CHOSEN };

Rule RuleOf(Op op) {
    switch (op) {
        case Op::MULTIPLY:
            return Rule::PRODUCT;
        case Op::DIVIDE:
            return Rule::QUOTIENT;
        case Op::POWER:
            return Rule::POWER;
        case Op::ADD:
        case Op::SUBTRACT:
        case Op::MINIMUM:
        case Op::MAXIMUM:
        case Op::HYPOT:
            return Rule::SAME;
        case Op::LESS:
        case Op::LESS_EQUAL:
        case Op::GREATER:
        case Op::GREATER_EQUAL:
        case Op::EQUAL:
        case Op::NOT_EQUAL:
        case Op::ARCTAN2:
        case Op::SIGN:
            return Rule::COMPARED;
        case Op::NEGATE:
        case Op::ABS:
        case Op::FLOOR:
        case Op::CEIL:
        case Op::ROUND:
            return Rule::KEPT;
        case Op::SQRT:
            return Rule::ROOT;
        case Op::SQUARE:
            return Rule::SQUARED;
        case Op::WHERE:
            return Rule::CHOSEN;
        default:
            return Rule::NUMBERS;
    }
}

bool HasDimension(const TCSI_Unit& unit) {
    for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i)
        if (unit.GetExponent(i) != 0) return true;
    return false;
}

double Sign(double x) {
    return x > 0.0 ? 1.0 : x < 0.0 ? -1.0 : x;
}

double Least(double x, double y) {
    return x < y || std::isnan(x) ? x : y;
}

double Greatest(double x, double y) {
    return x > y || std::isnan(x) ? x : y;
}

template <class Function>
void Each(const double* a, double* to, std::size_t count, Function function) {
    for (std::size_t i = 0; i < count; ++i) to[i] = function(a[i]);
}

template <class Function>
void Each(const double* a, const double* b, double* to, std::size_t count, Function function) {
    for (std::size_t i = 0; i < count; ++i) to[i] = function(a[i], b[i]);
}

void ComputeUnary(Op op, const double* a, double* to, std::size_t count) {
    const auto each = [&](auto function) { Each(a, to, count, function); };
#define TC_FUNCTION(OP, NAME) \
    case Op::OP:              \
        return each([](double x) { return NAME(x); })
    switch (op) {
        case Op::NEGATE:
            return each([](double x) { return -x; });
        case Op::SQUARE:
            return each([](double x) { return x * x; });
            TC_FUNCTION(ABS, std::fabs);
            TC_FUNCTION(SQRT, std::sqrt);
            TC_FUNCTION(EXP, std::exp);
            TC_FUNCTION(EXPM1, std::expm1);
            TC_FUNCTION(LOG, std::log);
            TC_FUNCTION(LOG2, std::log2);
            TC_FUNCTION(LOG10, std::log10);
            TC_FUNCTION(LOG1P, std::log1p);
            TC_FUNCTION(SIN, std::sin);
            TC_FUNCTION(COS, std::cos);
            TC_FUNCTION(TAN, std::tan);
            TC_FUNCTION(ARCSIN, std::asin);
            TC_FUNCTION(ARCCOS, std::acos);
            TC_FUNCTION(ARCTAN, std::atan);
            TC_FUNCTION(SINH, std::sinh);
            TC_FUNCTION(COSH, std::cosh);
            TC_FUNCTION(TANH, std::tanh);
            TC_FUNCTION(SIGN, Sign);
            TC_FUNCTION(FLOOR, std::floor);
            TC_FUNCTION(CEIL, std::ceil);
            TC_FUNCTION(ROUND, std::nearbyint);
        default:
            return;
    }
#undef TC_FUNCTION
}

void ComputeBinary(Op op, const double* a, const double* b, double* to, std::size_t count) {
    const auto each = [&](auto function) { Each(a, b, to, count, function); };
    const auto truth = [&](auto holds) { each([&](double x, double y) { return holds(x, y) ? 1.0 : 0.0; }); };
    switch (op) {
        case Op::ADD:
            return each(std::plus<>());
        case Op::SUBTRACT:
            return each(std::minus<>());
        case Op::MULTIPLY:
            return each(std::multiplies<>());
        case Op::DIVIDE:
            return each(std::divides<>());
        case Op::POWER:
            return each([](double x, double y) { return std::pow(x, y); });
        case Op::MINIMUM:
            return each(Least);
        case Op::MAXIMUM:
            return each(Greatest);
        case Op::HYPOT:
            return each([](double x, double y) { return std::hypot(x, y); });
        case Op::ARCTAN2:
            return each([](double x, double y) { return std::atan2(x, y); });
        case Op::LESS:
            return truth(std::less<>());
        case Op::LESS_EQUAL:
            return truth(std::less_equal<>());
        case Op::GREATER:
            return truth(std::greater<>());
        case Op::GREATER_EQUAL:
            return truth(std::greater_equal<>());
        case Op::EQUAL:
            return truth(std::equal_to<>());
        case Op::NOT_EQUAL:
            return truth(std::not_equal_to<>());
        default:
            return;
    }
}

}  // namespace

// Goes through the nodes, whose arguments always come before them.
class UnitFinder {
 public:
    using Node = Expression::Node;

    UnitFinder(Expression& whole, std::span<const std::optional<TCSI_Unit>> known)
        : expression(whole), units(known) {}

    bool Find(std::string& error) {
        for (Node& node : expression.nodes) {
            if (node.op != Op::CONSTANT) Find(node);
            if (!reason.empty()) break;
        }
        error = reason;
        return reason.empty();
    }

 private:
    void Find(Node& node) {
        if (node.op == Op::INPUT) {
            node.unit = node.input < units.size() ? units[node.input] : std::nullopt;
            return;
        }
        node.unit.reset();
        for (std::size_t i = 0; i < Expression::MOST_ARGUMENTS; ++i)
            if (node.arguments[i] >= 0 && Argument(node, i).unit) node.wanted[i] = *Argument(node, i).unit;
        const Rule rule = RuleOf(node.op);
        if (rule == Rule::SAME || rule == Rule::COMPARED || rule == Rule::CHOSEN || rule == Rule::KEPT) {
            FindCommon(node, rule == Rule::CHOSEN ? 1 : 0);
            node.fitsAny = rule == Rule::KEPT && Argument(node, 0).fitsAny;
            if (rule == Rule::COMPARED) node.unit = TCSI_Unit();
        } else if (rule == Rule::NUMBERS) {
            for (std::size_t i = 0; i < Expression::MOST_ARGUMENTS; ++i) NeedNumber(node, i);
            node.unit = TCSI_Unit();
        } else if (rule == Rule::POWER || rule == Rule::ROOT || rule == Rule::SQUARED) {
            FindPower(node, rule);
        } else if (Argument(node, 0).unit && Argument(node, 1).unit) {
            node.unit = Argument(node, 0).unit;
            if (!tc::ScaleUnit(*node.unit, *Argument(node, 1).unit, rule == Rule::PRODUCT ? 1 : -1))
                Refuse(node,
                       Bilingual("a result that a unit can hold", "ein Ergebnis, das eine Einheit fasst")
                           .Text());
        }
    }

    // The arguments from one on have one dimension; the first that says which has the unit.
    void FindCommon(Node& node, std::size_t from) {
        for (std::size_t i = from; i < Expression::MOST_ARGUMENTS && node.arguments[i] >= 0; ++i) {
            const Node& argument = Argument(node, i);
            if (!argument.unit && !node.unit) return;  // not known yet, and then the result is not either
            if (!argument.unit || argument.fitsAny) continue;
            if (!node.unit) node.unit = argument.unit;
            if (!tc::IsConvertible(*argument.unit, *node.unit))
                return Refuse(node, Bilingual("values of one dimension, not %1 and %2",
                                              "Werte einer Dimension, nicht %1 und %2")
                                        .With({tc::UnitText(*node.unit), tc::UnitText(*argument.unit)}));
        }
        if (!node.unit) node.unit = Argument(node, from).unit;
        for (std::size_t i = from; i < Expression::MOST_ARGUMENTS && node.arguments[i] >= 0; ++i)
            node.wanted[i] = Argument(node, i).fitsAny ? *Argument(node, i).unit : *node.unit;
    }

    void NeedNumber(Node& node, std::size_t index) {
        if (node.arguments[index] < 0) return;
        node.wanted[index] = TCSI_Unit();
        const Node& argument = Argument(node, index);
        if (argument.unit && !tc::IsConvertible(*argument.unit, TCSI_Unit()))
            Refuse(node, Bilingual("a number without a unit, not %1; divide by 1[%1]",
                                   "eine Zahl ohne Einheit, nicht %1; teilen Sie durch 1[%1]")
                             .With({tc::UnitText(*argument.unit)}));
    }

    void FindPower(Node& node, Rule rule) {
        const Node& base = Argument(node, 0);
        if (rule == Rule::POWER) NeedNumber(node, 1);
        if (!base.unit || !reason.empty()) return;
        TCSI_Unit plain = *base.unit;
        plain.SetFactor(1.0);
        node.wanted[0] = plain;
        node.unit = plain;
        if (!HasDimension(plain)) return;
        const std::optional<double> power = rule == Rule::ROOT ? 0.5
                                            : rule == Rule::SQUARED
                                                ? 2.0
                                                : expression.ConstantOf(node.arguments[1]);
        if (!power)
            return Refuse(node,
                          Bilingual("a constant power for values in %1", "eine feste Potenz für Werte in %1")
                              .With({tc::UnitText(plain)}));
        for (int i = 0; i < TCSI_Unit::BASE_UNIT_COUNT; ++i) {
            const double exponent = plain.GetExponent(i) * *power;
            if (exponent != std::floor(exponent) ||
                !(std::fabs(exponent) <= std::numeric_limits<std::int8_t>::max()))
                return Refuse(
                    node,
                    Bilingual("a power that leaves whole powers of the base units, for values in %1",
                              "eine Potenz, die ganze Potenzen der Basiseinheiten lässt, für Werte in %1")
                        .With({tc::UnitText(plain)}));
            node.unit->SetExponent(i, static_cast<int>(exponent));
        }
    }

    void Refuse(const Node& node, const std::string& expected) {
        if (reason.empty())
            reason = tc::NotValid(
                "expression", expression.text, expected,
                Bilingual("at position %1", "an Position %1").With({std::to_string(node.position)}));
    }

    const Node& Argument(const Node& node, std::size_t index) const {
        return expression.nodes[static_cast<std::size_t>(node.arguments[index])];
    }

    Expression& expression;
    std::span<const std::optional<TCSI_Unit>> units;
    std::string reason;
};

bool Expression::Parse(const std::string& given, std::string& error) {
    *this = Expression();
    text = given;
    if (ExpressionParser(text, *this).Parse(error)) return true;
    nodes.clear();
    return false;
}

bool Expression::Uses(std::size_t input) const {
    return std::ranges::any_of(nodes,
                               [&](const Node& node) { return node.op == Op::INPUT && node.input == input; });
}

std::size_t Expression::InputsNeeded() const {
    std::size_t needed = 0;
    for (const Node& node : nodes)
        if (node.op == Op::INPUT) needed = std::max(needed, node.input + 1);
    return needed;
}

bool Expression::CheckInputs(std::size_t count, std::string& error) const {
    const auto beyond = std::ranges::find_if(
        nodes, [&](const Node& node) { return node.op == Op::INPUT && node.input >= count; });
    if (beyond == nodes.end()) return true;
    error = tc::NotValid(
        "expression", text,
        Bilingual("one of the wired inputs, which are %1", "einer der verbundenen Eingänge, %1 an der Zahl")
            .With({std::to_string(count)}),
        Bilingual("at position %1", "an Position %1").With({std::to_string(beyond->position)}));
    return false;
}

bool Expression::FindUnit(std::span<const std::optional<TCSI_Unit>> units, std::optional<TCSI_Unit>& result,
                          std::string& error) {
    if (!UnitFinder(*this, units).Find(error)) return false;
    result = nodes[static_cast<std::size_t>(root)].unit;
    return true;
}

bool Expression::Prepare(std::span<const std::optional<TCSI_Unit>> units, TCSI_Unit& result,
                         std::string& error) {
    std::optional<TCSI_Unit> unit;
    if (!FindUnit(units, unit, error)) return false;
    result = unit.value_or(TCSI_Unit());
    inputCount = units.size();
    steps.clear();
    constants.clear();
    unused.clear();
    results = 0;
    last = Emit(root);
    const std::size_t count = constants.size() + static_cast<std::size_t>(results);
    buffers.assign(count * PIECE, 0.0);
    places.assign(inputCount + count, nullptr);
    for (std::size_t i = 0; i < count; ++i) places[inputCount + i] = buffers.data() + i * PIECE;
    for (std::size_t i = 0; i < constants.size(); ++i)
        std::fill_n(buffers.data() + i * PIECE, PIECE, constants[i]);
    const auto inPlace = [&](int& place) {
        if (place >= CONSTANTS_FROM) place += static_cast<int>(inputCount) - CONSTANTS_FROM;
        if (place < 0) place = static_cast<int>(inputCount + constants.size()) - 1 - place;
    };
    for (Step& step : steps) {
        inPlace(step.to);
        for (int& from : step.from) inPlace(from);
    }
    inPlace(last);
    return true;
}

void Expression::Compute(std::span<const double* const> inputs, double* result, std::size_t count) {
    for (std::size_t done = 0; done < count; done += PIECE) {
        const std::size_t piece = std::min(PIECE, count - done);
        for (std::size_t i = 0; i < inputCount; ++i) places[i] = inputs[i] + done;
        for (const Step& step : steps) {
            const double* const a = places[static_cast<std::size_t>(step.from[0])];
            const double* const b = places[static_cast<std::size_t>(step.from[1])];
            const double* const c = places[static_cast<std::size_t>(step.from[2])];
            double* const to = buffers.data() + (static_cast<std::size_t>(step.to) - inputCount) * PIECE;
            if (step.op == Op::WHERE)
                for (std::size_t i = 0; i < piece; ++i) to[i] = a[i] != 0.0 ? b[i] : c[i];
            else if (step.arguments == 2)
                ComputeBinary(step.op, a, b, to, piece);
            else
                ComputeUnary(step.op, a, to, piece);
        }
        std::copy_n(places[static_cast<std::size_t>(last)], piece, result + done);
    }
}

// Of numbers alone, without units.
std::optional<double> Expression::ConstantOf(int index) const {
    const Node& node = nodes[static_cast<std::size_t>(index)];
    if (node.op == Op::CONSTANT) return *node.unit == TCSI_Unit() ? std::optional(node.value) : std::nullopt;
    if (node.op != Op::NEGATE && (node.op < Op::ADD || node.op > Op::POWER)) return std::nullopt;
    const std::optional<double> left = ConstantOf(node.arguments[0]);
    const std::optional<double> right = node.op == Op::NEGATE ? left : ConstantOf(node.arguments[1]);
    if (!left || !right) return std::nullopt;
    double value = 0.0;
    if (node.op == Op::NEGATE)
        ComputeUnary(node.op, &*left, &value, 1);
    else
        ComputeBinary(node.op, &*left, &*right, &value, 1);
    return value;
}

int Expression::AddConstant(double value) {
    constants.push_back(value);
    return CONSTANTS_FROM + static_cast<int>(constants.size()) - 1;
}

// One that is not needed any more, if there is one.
int Expression::AddResult() {
    if (unused.empty()) return -1 - results++;
    const int place = unused.back();
    unused.pop_back();
    return place;
}

void Expression::Release(int place) {
    if (place < 0) unused.push_back(place);
}

int Expression::Emit(int index) {
    if (const std::optional<double> constant = ConstantOf(index)) return AddConstant(*constant);
    const Node& node = nodes[static_cast<std::size_t>(index)];
    if (node.op == Op::INPUT) return static_cast<int>(node.input);
    if (node.op == Op::CONSTANT) return AddConstant(node.value);
    Step step;
    step.op = node.op;
    for (std::size_t i = 0; i < MOST_ARGUMENTS && node.arguments[i] >= 0; ++i) {
        const TCSI_Unit& from = *nodes[static_cast<std::size_t>(node.arguments[i])].unit;
        step.from[i] = EmitConverted(Emit(node.arguments[i]), from, node.wanted[i]);
        step.arguments = static_cast<int>(i) + 1;
    }
    for (int i = 0; i < step.arguments; ++i) Release(step.from[i]);
    // As NumPy does: that of minus infinity is not a number then.
    const std::optional<double> power = node.op == Op::POWER ? ConstantOf(node.arguments[1]) : std::nullopt;
    if (power == 0.5 || power == 2.0) {
        step.op = power == 0.5 ? Op::SQRT : Op::SQUARE;
        step.arguments = 1;
    }
    step.to = AddResult();
    steps.push_back(step);
    return step.to;
}

// Divides by whole factors, as tc::Convert does.
int Expression::EmitConverted(int place, const TCSI_Unit& from, const TCSI_Unit& to) {
    if (from.GetFactor() == to.GetFactor()) return place;
    const double down = to.GetFactor() / from.GetFactor();
    Step step;
    step.op = down > 1.0 ? Op::DIVIDE : Op::MULTIPLY;
    step.arguments = 2;
    step.from[0] = place;
    step.from[1] = AddConstant(down > 1.0 ? down : from.GetFactor() / to.GetFactor());
    Release(place);
    step.to = AddResult();
    steps.push_back(step);
    return step.to;
}
