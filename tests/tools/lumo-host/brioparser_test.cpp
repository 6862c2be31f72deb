#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "brioparser.h"

namespace {

// A literal as its kind and value ("i:1", "r:1.5", "s:a", "NULL"), a
// variable as "v:name", a call or list as "name(item item)".
std::string describe(const BRIOExpression& expression)
{
    const BRIOValue& value = expression.literal;
    if (expression.kind == BRIOExpression::Kind::Variable)
        return "v:" + expression.name;
    if (expression.kind == BRIOExpression::Kind::Literal && value.kind() == BRIOValue::Kind::Real) {
        char real[32];
        std::snprintf(real, sizeof real, "r:%g", value.toReal());
        return real;
    }
    if (expression.kind == BRIOExpression::Kind::Literal)
        return value.isNull()                             ? "NULL"
               : value.kind() == BRIOValue::Kind::Integer ? "i:" + std::to_string(value.toInt())
                                                          : "s:" + value.toString();
    std::string text = expression.kind == BRIOExpression::Kind::Call ? expression.name : "list";
    for (std::size_t i = 0; i < expression.items.size(); ++i)
        text += (i ? " " : "(") + describe(expression.items[i]);
    return text + (expression.items.empty() ? "()" : ")");
}

// Statements as "line|target=expression", separated by " ; ".
std::string describe(const std::vector<BRIOStatement>& statements)
{
    std::string text;
    for (const BRIOStatement& statement : statements)
        text += (text.empty() ? "" : " ; ") + std::to_string(statement.line) + "|" +
                (statement.target.empty() ? "" : statement.target + "=") +
                describe(statement.expression);
    return text;
}

struct ValidCase
{
    const char* name;
    std::string text;
    std::string expected;
};

TEST(BRIOParser, ParsesEveryFormOfTheSubset)
{
    const std::vector<ValidCase> cases = {
        {"blanks around the parts", "  x = f ( 1 , \"a\" ) ;", "1|x=f(i:1 s:a)"},
        {"raw line feed kept in a string", "fprintf(stderr,\"Tessel:Info: x\n\");",
         "1|fprintf(v:stderr s:Tessel:Info: x\n)"},
        {"escapes in double quotes", R"(f("a\"b\\c\nd");)", "1|f(s:a\"b\\c\nd)"},
        {"doubled single quotes are literal", R"(f(''C:\ws\"x'');)", "1|f(s:C:\\ws\\\"x)"},
        {"empty strings", "f(\"\", '''');", "1|f(s: s:)"},
        {"integers, signs and the 32-bit limits", "f(0, -3, +4, 2147483647, -2147483648);",
         "1|f(i:0 i:-3 i:4 i:2147483647 i:-2147483648)"},
        {"reals as %g writes them", "f(1.5, -0.25, 1e+06, 2.5e-03, 12.25, .5, 3.);",
         "1|f(r:1.5 r:-0.25 r:1e+06 r:0.0025 r:12.25 r:0.5 r:3)"},
        {"NULL and an empty list", "f(NULL, list());", "1|f(NULL list())"},
        {"nested lists", "f(list(list(\"P1\",0,1.5,1,0),list(\"P2\",12.25,1.5,2,0)));",
         "1|f(list(list(s:P1 i:0 r:1.5 i:1 i:0) list(s:P2 r:12.25 r:1.5 i:2 i:0)))"},
        {"empty first list element stands for nothing",
         "mgclink_show_connected_servers(\"pc1\",5000,\"390.001\", "
         "\"2.1\",list(,list(\"DXD\",3)));",
         "1|mgclink_show_connected_servers(s:pc1 i:5000 s:390.001 s:2.1 list(list(s:DXD i:3)))"},
        {"bare variable and bare literal", "x; 5;", "1|v:x ; 1|i:5"},
        {"statements on several lines", "a=1;\n\nb(\n2\n);\n", "1|a=i:1 ; 3|b(i:2)"},
        {"line feeds inside a string count as lines", "f(\"a\nb\");\ng();", "1|f(s:a\nb) ; 3|g()"},
        {"identifier that starts like a keyword", "listing=NULLS;", "1|listing=v:NULLS"},
        {"only blanks", " \n\t ", ""},
    };
    for (const ValidCase& row : cases) {
        SCOPED_TRACE(row.name);
        const BRIOParser::Result result = BRIOParser::parse(row.text);
        ASSERT_FALSE(result.error.has_value()) << result.error->message;
        EXPECT_EQ(describe(result.statements), row.expected);
    }
}

TEST(BRIOParser, KeepsTheExactTextOfEachStatementAndCountsLinesFromTheFirstGiven)
{
    const BRIOParser::Result result = BRIOParser::parse("  a=f(\"x\n\") ;\n  de_info(''y'');  ", 7);
    ASSERT_EQ(result.statements.size(), 2u);
    EXPECT_EQ(result.statements[0].text, "a=f(\"x\n\") ;");
    EXPECT_EQ(result.statements[1].text, "de_info(''y'');");
    EXPECT_EQ(result.statements[1].line, 9);
    const auto error = BRIOParser::parse("\nf(1;", 7).error;
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->line, 8);
}

struct ErrorCase
{
    const char* name;
    std::string text;
    std::string message; // a part of the error message
    int line;
    int column;
    bool atEnd;
};

TEST(BRIOParser, RejectsWhatIsNotInTheSubset)
{
    const std::vector<ErrorCase> cases = {
        {"missing semicolon at the end", "f()", "expected ';'", 1, 4, true},
        {"unterminated double-quoted string", "f(\"abc", "unterminated string", 1, 3, true},
        {"unterminated doubled single quotes", "f(''abc);", "missing closing ''", 1, 3, true},
        {"single quotes", "f('a');", "''text''", 1, 3, false},
        {"unknown escape", "x=1;\nf(\"a\\tb\");", "unknown escape \\t", 2, 6, false},
        {"empty first argument of a call", "f(,1);", "expected an expression, found ','", 1, 3,
         false},
        {"empty list element after the first", "f(list(1,,2));", "found ','", 1, 10, false},
        {"list of one empty element", "f(list(,));", "found ')'", 1, 9, false},
        {"open argument list", "f(1", "expected ',' or ')'", 1, 4, true},
        {"argument list closed by a semicolon", "f(1;", "found ';'", 1, 4, false},
        {"integer past 32 bits", "f(2147483648);", "does not fit in 32 bits", 1, 3, false},
        {"letters after a number", "f(12abc);", "malformed number 12abc", 1, 3, false},
        {"assignment to NULL", "NULL=1;", "cannot assign to the reserved word NULL", 1, 1, false},
        {"list without parentheses", "x=list;", "expected '(' after list", 1, 7, false},
        {"stray character after a statement", "f(1) # comment\n;",
         "expected ';' after the statement, found '#'", 1, 6, false},
        {"nothing after an assignment", "x=", "expected an expression", 1, 3, true},
    };
    for (const ErrorCase& row : cases) {
        SCOPED_TRACE(row.name);
        const BRIOParser::Result result = BRIOParser::parse(row.text);
        ASSERT_TRUE(result.error.has_value());
        EXPECT_NE(result.error->message.find(row.message), std::string::npos)
            << result.error->message;
        EXPECT_EQ(result.error->line, row.line);
        EXPECT_EQ(result.error->column, row.column);
        EXPECT_EQ(result.error->atEnd, row.atEnd);
        EXPECT_TRUE(result.statements.empty());
    }
}

} // namespace
