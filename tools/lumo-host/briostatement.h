#pragma once
// Syntax tree of the BRIO subset that the stand-in host understands.

#include <string>
#include <vector>

#include "lumo/brioscript.h"

struct BRIOExpression
{
    enum class Kind { Literal, Variable, Call, List };

    Kind kind = Kind::Literal;
    BRIOValue literal;                 // Literal
    std::string name;                  // Variable, Call
    std::vector<BRIOExpression> items; // Call arguments, List elements
    int line = 1;
    int column = 1;
};

struct BRIOStatement
{
    std::string target; // assigned variable; empty for a bare expression
    BRIOExpression expression;
    std::string text; // the statement's exact source text, up to and with its ';'
    int line = 1;     // where the statement starts
};
