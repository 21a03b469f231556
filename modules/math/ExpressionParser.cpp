#include "modules/math/ExpressionParser.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <numbers>

#include "sigweave/module/ModuleSignals.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/services/NearNames.h"
#include "sigweave/signal/UnitText.h"

namespace {

using tc::Bilingual;
using Op = Expression::Op;

constexpr int MOST_DEPTH = 100;

constexpr struct {
    const char* name;
    Op op;
    int arguments;
} FUNCTIONS[] = {
    {"abs", Op::ABS, 1},       {"sqrt", Op::SQRT, 1},       {"square", Op::SQUARE, 1},
    {"exp", Op::EXP, 1},       {"expm1", Op::EXPM1, 1},     {"log", Op::LOG, 1},
    {"log2", Op::LOG2, 1},     {"log10", Op::LOG10, 1},     {"log1p", Op::LOG1P, 1},
    {"sin", Op::SIN, 1},       {"cos", Op::COS, 1},         {"tan", Op::TAN, 1},
    {"arcsin", Op::ARCSIN, 1}, {"arccos", Op::ARCCOS, 1},   {"arctan", Op::ARCTAN, 1},
    {"sinh", Op::SINH, 1},     {"cosh", Op::COSH, 1},       {"tanh", Op::TANH, 1},
    {"sign", Op::SIGN, 1},     {"floor", Op::FLOOR, 1},     {"ceil", Op::CEIL, 1},
    {"round", Op::ROUND, 1},   {"minimum", Op::MINIMUM, 2}, {"maximum", Op::MAXIMUM, 2},
    {"hypot", Op::HYPOT, 2},   {"arctan2", Op::ARCTAN2, 2}, {"where", Op::WHERE, 3},
};

constexpr struct {
    const char* name;
    double value;
} CONSTANTS[] = {{"pi", std::numbers::pi}, {"e", std::numbers::e}};

// Longer ones first.
constexpr struct {
    const char* token;
    Op op;
} COMPARISONS[] = {{"<=", Op::LESS_EQUAL}, {">=", Op::GREATER_EQUAL}, {"==", Op::EQUAL},
                   {"!=", Op::NOT_EQUAL},  {"<", Op::LESS},           {">", Op::GREATER}};

bool IsDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

bool IsLetter(char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || byte == '_';
}

constexpr Bilingual OPERAND("a number, an input (a, b, c, d or x1, x2 ...), a function or '('",
                            "eine Zahl, ein Eingang (a, b, c, d oder x1, x2 ...), eine Funktion oder '('");

}  // namespace

bool ExpressionParser::Parse(std::string& error) {
    if (text.size() > Expression::MOST_CHARACTERS) {
        reason = Bilingual("expression: it has more than %1 characters; divide it among several modules",
                           "expression: mehr als %1 Zeichen; verteilen Sie ihn auf mehrere Module")
                     .With({std::to_string(Expression::MOST_CHARACTERS)});
    } else {
        expression.root = Comparison();
        SkipBlanks();
        if (reason.empty() && at < text.size())
            Expect(Bilingual("an operator or the end", "ein Operator oder das Ende").Text());
    }
    error = reason;
    return reason.empty();
}

int ExpressionParser::Comparison() {
    int left = Sum();
    SkipBlanks();
    const std::size_t begin = at;
    for (const auto& each : COMPARISONS)
        if (reason.empty() && Take(each.token)) return Add(each.op, begin, left, Sum());
    return left;
}

int ExpressionParser::Sum() {
    int left = Product();
    for (;;) {
        SkipBlanks();
        const std::size_t begin = at;
        if (!reason.empty() || (!Take("+") && !Take("-"))) return left;
        left = Add(text[begin] == '+' ? Op::ADD : Op::SUBTRACT, begin, left, Product());
    }
}

int ExpressionParser::Product() {
    int left = Signed();
    for (;;) {
        SkipBlanks();
        const std::size_t begin = at;
        if (!reason.empty() || (!Take("*") && !Take("/"))) return left;
        left = Add(text[begin] == '*' ? Op::MULTIPLY : Op::DIVIDE, begin, left, Signed());
    }
}

// Every way down leads through here, so here the depth is counted.
int ExpressionParser::Signed() {
    if (++depth > MOST_DEPTH)
        return Expect(Bilingual("no more than %1 brackets and signs within each other",
                                "höchstens %1 Klammern und Vorzeichen ineinander")
                          .With({std::to_string(MOST_DEPTH)}));
    SkipBlanks();
    const std::size_t begin = at;
    int made = -1;
    if (Take("-"))
        made = Add(Op::NEGATE, begin, Signed());
    else
        made = Take("+") ? Signed() : Power();
    --depth;
    return made;
}

int ExpressionParser::Power() {
    const int base = Operand();
    SkipBlanks();
    const std::size_t begin = at;
    if (!reason.empty() || !Take("**")) return base;
    return Add(Op::POWER, begin, base, Signed());
}

int ExpressionParser::Operand() {
    SkipBlanks();
    if (Take("(")) {
        const int inner = Comparison();
        return Take(")") ? inner : Expect("')'");
    }
    const char next = at < text.size() ? text[at] : '\0';
    if (IsDigit(next) || next == '.') return Number();
    return IsLetter(next) ? Name() : Expect(OPERAND.Text());
}

int ExpressionParser::Number() {
    const std::size_t begin = at;
    double value = 0.0;
    const char* const first = text.data() + at;
    const auto [end, failed] = std::from_chars(first, text.data() + text.size(), value);
    if (failed != std::errc()) return Expect(Bilingual("a number", "eine Zahl").Text());
    at += static_cast<std::size_t>(end - first);
    const int made = Add(Op::CONSTANT, begin, -1);
    Expression::Node& node = expression.nodes[static_cast<std::size_t>(made)];
    node.value = value;
    node.unit = TCSI_Unit();
    ReadUnitOf(node);
    return reason.empty() ? made : -1;
}

// Of a number, in brackets behind it.
void ExpressionParser::ReadUnitOf(Expression::Node& node) {
    SkipBlanks();
    node.fitsAny = node.value == 0.0;
    const std::size_t begin = at;
    if (!Take("[")) return;
    const std::size_t end = text.find(']', at);
    tc::UnitMeaning meaning;
    CString why;
    if (end == text.npos || !tc::ReadUnit(text.substr(at, end - at), meaning, why) || meaning.offset != 0.0) {
        ExpectAt(begin,
                 Bilingual("a unit in brackets, as [mV]", "eine Einheit in Klammern, wie [mV]").Text());
        return;
    }
    at = end + 1;
    node.fitsAny = false;
    node.unit = meaning.unit;
    node.unit->SetFactor(meaning.Factor());
}

int ExpressionParser::Name() {
    const std::size_t begin = at;
    while (at < text.size() && (IsLetter(text[at]) || IsDigit(text[at]))) ++at;
    const std::string name = text.substr(begin, at - begin);
    SkipBlanks();
    if (at < text.size() && text[at] == '(') return Call(name, begin);
    for (const auto& each : CONSTANTS)
        if (name == each.name) {
            const int made = Add(Op::CONSTANT, begin, -1);
            expression.nodes[static_cast<std::size_t>(made)].value = each.value;
            expression.nodes[static_cast<std::size_t>(made)].unit = TCSI_Unit();
            return made;
        }
    unsigned number = 0;
    if (name.size() == 1 && name[0] >= 'a' && name[0] <= 'd')
        number = static_cast<unsigned>(name[0] - 'a') + 1;
    if (name.size() > 1 && name[0] == 'x') {
        const auto [end, failed] = std::from_chars(name.data() + 1, name.data() + name.size(), number);
        if (failed != std::errc() || end != name.data() + name.size() || number > 65536) number = 0;
    }
    if (number == 0) return ExpectAt(begin, OPERAND.Text());
    const int made = Add(Op::INPUT, begin, -1);
    expression.nodes[static_cast<std::size_t>(made)].input = number - 1;
    return made;
}

int ExpressionParser::Call(const std::string& name, std::size_t begin) {
    CStringArray names;
    for (const auto& each : FUNCTIONS) {
        names.push_back(each.name);
        if (name != each.name) continue;
        Take("(");
        int arguments[Expression::MOST_ARGUMENTS] = {-1, -1, -1};
        for (int i = 0; i < each.arguments && reason.empty(); ++i) {
            arguments[i] = Comparison();
            SkipBlanks();
            const char* const after = i + 1 < each.arguments ? "," : ")";
            if (!Take(after))
                Expect(Bilingual("%1, for %2 takes %3 values", "%1, denn %2 nimmt %3 Werte")
                           .With({std::string("'") + after + "'", name, std::to_string(each.arguments)}));
        }
        return Add(each.op, begin, arguments[0], arguments[1], arguments[2]);
    }
    return ExpectAt(begin,
                    Bilingual("a function; %1", "eine Funktion; %1").With({tc::SuggestNames(name, names)}));
}

int ExpressionParser::Add(Op op, std::size_t position, int first, int second, int third) {
    if (!reason.empty()) return -1;
    Expression::Node node;
    node.op = op;
    node.position = position + 1;
    node.arguments[0] = first;
    node.arguments[1] = second;
    node.arguments[2] = third;
    expression.nodes.push_back(node);
    return static_cast<int>(expression.nodes.size()) - 1;
}

void ExpressionParser::SkipBlanks() {
    while (at < text.size() && (text[at] == ' ' || text[at] == '\t')) ++at;
}

// A star that is the first of two is none.
bool ExpressionParser::Take(const char* token) {
    const std::size_t length = std::strlen(token);
    if (text.compare(at, length, token) != 0) return false;
    if (std::strcmp(token, "*") == 0 && text.compare(at, 2, "**") == 0) return false;
    at += length;
    return true;
}

int ExpressionParser::Expect(const std::string& expected) {
    return ExpectAt(at, expected);
}

int ExpressionParser::ExpectAt(std::size_t where, const std::string& expected) {
    if (reason.empty())
        reason =
            tc::NotValid("expression", text, expected,
                         Bilingual("at position %1", "an Position %1").With({std::to_string(where + 1)}));
    return -1;
}
