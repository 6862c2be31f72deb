#pragma once
// Parser of the BRIO subset: statements ending in ';', assignment, calls,
// "..." and ''...'' strings, integers, reals, NULL and list(...).

#include <optional>
#include <string>
#include <vector>

#include "briostatement.h"

class BRIOParser
{
public:
    struct Error
    {
        std::string message;
        int line = 1;
        int column = 1;
        // The text ended before the statement did: more input could complete it.
        bool atEnd = false;
    };

    struct Result
    {
        std::vector<BRIOStatement> statements;
        std::optional<Error> error;
    };

    // Parses every statement of `text`; on an error, no statement is returned.
    // `firstLine` numbers the text's first line (for text read piecewise).
    static Result parse(const std::string& text, int firstLine = 1);

private:
    BRIOParser(const std::string& text, int firstLine);

    void parseStatement(std::vector<BRIOStatement>& statements);
    BRIOExpression parseExpression();
    BRIOExpression parseNumber();
    BRIOExpression parseDoubleQuoted();
    BRIOExpression parseDoubledSingleQuoted();
    std::vector<BRIOExpression> parseArguments(bool emptyFirstAllowed);
    std::string parseIdentifier();

    void skipSpace();
    bool atEnd() const { return m_position >= m_text.size(); }
    char peek(std::size_t ahead = 0) const;
    void advance();
    [[noreturn]] void fail(const std::string& message) const;
    [[noreturn]] void failAt(const std::string& message, int line, int column) const;
    [[noreturn]] void failAtEnd(const std::string& message) const;
    // The text ended inside what starts at line:column (a string).
    [[noreturn]] void failAtEndFrom(const std::string& message, int line, int column) const;
    BRIOExpression startExpression(BRIOExpression::Kind kind) const;

    const std::string& m_text;
    std::size_t m_position = 0;
    int m_line;
    int m_column = 1;
};
