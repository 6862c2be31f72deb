#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>
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

// Statements as "line|target=expression", separated by " ; "; an error as
// "!line:column message", with "$" after the column when at the end.
std::string describe(const BRIOParser::Result& result)
{
    if (result.error)
        return "!" + std::to_string(result.error->line) + ":" +
               std::to_string(result.error->column) + (result.error->atEnd ? "$ " : " ") +
               result.error->message;
    std::string text;
    for (const BRIOStatement& statement : result.statements)
        text += (text.empty() ? "" : " ; ") + std::to_string(statement.line) + "|" +
                (statement.target.empty() ? "" : statement.target + "=") +
                describe(statement.expression);
    return text;
}

TEST(BRIOParser, ParsesTheSubsetAndRejectsTheRestWithLineAndColumn)
{
    // For an error, the start of its description.
    const std::vector<std::pair<std::string, std::string>> cases = {
        {" x = f ( 1 , \"a\" ) ;", "1|x=f(i:1 s:a)"},
        {R"(f("a\"b\\c\nd", "", '''');)", "1|f(s:a\"b\\c\nd s: s:)"},
        {R"(f(''C:\ws\"x'');)", "1|f(s:C:\\ws\\\"x)"},
        {"f(0, -3, +4, 2147483647, -2147483648);", "1|f(i:0 i:-3 i:4 i:2147483647 i:-2147483648)"},
        {"f(1.5, -0.25, 1e+06, 2.5e-03, 12.25, .5, 3.);",
         "1|f(r:1.5 r:-0.25 r:1e+06 r:0.0025 r:12.25 r:0.5 r:3)"},
        // An empty first list element stands for nothing.
        {"f(NULL, list(), list(,list(\"P\",1.5)));", "1|f(NULL list() list(list(s:P r:1.5)))"},
        {"x; 5; listing=NULLS;", "1|v:x ; 1|i:5 ; 1|listing=v:NULLS"},
        {"a=1;\n\nb(\n\"x\ny\");\ng();", "1|a=i:1 ; 3|b(s:x\ny) ; 6|g()"},
        {" \n\t ", ""},
        {"f()", "!1:4$ expected ';'"},
        {"f(\"abc", "!1:3$ unterminated string"},
        {"f(''abc);", "!1:3$ unterminated string: missing closing ''"},
        {"f('a');", "!1:3 a single quote starts nothing"},
        {"x=1;\nf(\"a\\tb\");", "!2:6 unknown escape \\t"},
        {"f(,1);", "!1:3 expected an expression, found ','"},
        {"f(list(1,,2));", "!1:10 expected an expression, found ','"},
        {"f(1", "!1:4$ expected ',' or ')'"},
        {"f(1;", "!1:4 expected ',' or ')' in the argument list, found ';'"},
        {"f(2147483648);", "!1:3 integer 2147483648 does not fit in 32 bits"},
        {"f(12abc);", "!1:3 malformed number 12abc"},
        {"NULL=1;", "!1:1 cannot assign to the reserved word NULL"},
        {"x=list;", "!1:7 expected '(' after list"},
        {"f(1) # comment\n;", "!1:6 expected ';' after the statement, found '#'"},
        {"x=", "!1:3$ expected an expression"},
    };
    for (const auto& [text, expected] : cases) {
        SCOPED_TRACE(text);
        const std::string got = describe(BRIOParser::parse(text));
        EXPECT_EQ(got[0] == '!' ? got.substr(0, expected.size()) : got, expected);
    }
}

} // namespace
