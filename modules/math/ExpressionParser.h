#pragma once

#include <string>

#include "modules/math/Expression.h"

// Reads the text of an expression into its nodes.
class ExpressionParser {
 public:
    ExpressionParser(const std::string& whole, Expression& made) : text(whole), expression(made) {}
    // False with the error.
    bool Parse(std::string& error);

 private:
    using Op = Expression::Op;

    int Comparison();
    int Sum();
    int Product();
    int Signed();
    int Power();
    int Operand();
    int Number();
    int Name();
    int Call(const std::string& name, std::size_t begin);
    void ReadUnitOf(Expression::Node& node);
    int Add(Op op, std::size_t position, int first, int second = -1, int third = -1);
    void SkipBlanks();
    bool Take(const char* token);
    int Expect(const std::string& expected);
    int ExpectAt(std::size_t at, const std::string& expected);

    const std::string& text;
    Expression& expression;
    std::size_t at = 0;
    int depth = 0;
    std::string reason;  // the first
};
