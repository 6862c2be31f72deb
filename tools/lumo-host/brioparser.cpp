#include "brioparser.h"

#include <cctype>
#include <charconv>
#include <limits>

namespace {

// Thrown inside the parser only; parse() turns it into the result's error.
struct ParseFailure
{
    BRIOParser::Error error;
};

bool isIdentifierStart(char c)
{
    return std::isalpha(static_cast<unsigned char>(c)) || c == '_';
}

bool isIdentifierChar(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

std::string describe(char c)
{
    if (c == '\n')
        return "a line feed";
    if (std::isprint(static_cast<unsigned char>(c)))
        return std::string("'") + c + "'";
    static const char digits[] = "0123456789abcdef";
    const auto byte = static_cast<unsigned char>(c);
    return std::string("byte 0x") + digits[byte >> 4] + digits[byte & 15];
}

} // namespace

BRIOParser::BRIOParser(const std::string& text, int firstLine) : m_text(text), m_line(firstLine) {}

BRIOParser::Result BRIOParser::parse(const std::string& text, int firstLine)
{
    BRIOParser parser(text, firstLine);
    Result result;
    try {
        parser.skipSpace();
        while (!parser.atEnd()) {
            parser.parseStatement(result.statements);
            parser.skipSpace();
        }
    } catch (const ParseFailure& failure) {
        result.statements.clear();
        result.error = failure.error;
    }
    return result;
}

void BRIOParser::parseStatement(std::vector<BRIOStatement>& statements)
{
    BRIOStatement statement;
    const std::size_t start = m_position;
    statement.line = m_line;

    // An identifier followed by '=' is an assignment; otherwise start over as an expression.
    if (isIdentifierStart(peek())) {
        const std::size_t position = m_position;
        const int line = m_line;
        const int column = m_column;
        const std::string name = parseIdentifier();
        skipSpace();
        if (peek() == '=') {
            if (name == "list" || name == "NULL")
                failAt("cannot assign to the reserved word " + name, line, column);
            advance();
            statement.target = name;
        } else {
            m_position = position;
            m_line = line;
            m_column = column;
        }
    }
    skipSpace();
    statement.expression = parseExpression();
    skipSpace();
    if (atEnd())
        failAtEnd("expected ';' at the end of the statement");
    if (peek() != ';')
        fail("expected ';' after the statement, found " + describe(peek()));
    advance();
    statement.text = m_text.substr(start, m_position - start);
    statements.push_back(std::move(statement));
}

BRIOExpression BRIOParser::parseExpression()
{
    if (atEnd())
        failAtEnd("expected an expression");
    const char c = peek();
    if (c == '"')
        return parseDoubleQuoted();
    if (c == '\'')
        return parseDoubledSingleQuoted();
    if (isDigit(c) || ((c == '-' || c == '+' || c == '.') && (isDigit(peek(1)) || peek(1) == '.')))
        return parseNumber();
    if (!isIdentifierStart(c))
        fail("expected an expression, found " + describe(c));

    BRIOExpression expression = startExpression(BRIOExpression::Kind::Variable);
    expression.name = parseIdentifier();
    if (expression.name == "NULL") {
        expression.kind = BRIOExpression::Kind::Literal;
        expression.name.clear();
        return expression;
    }
    skipSpace();
    if (peek() != '(') {
        if (expression.name == "list")
            fail("expected '(' after list");
        return expression;
    }
    const bool isList = expression.name == "list";
    expression.kind = isList ? BRIOExpression::Kind::List : BRIOExpression::Kind::Call;
    if (isList)
        expression.name.clear();
    expression.items = parseArguments(isList);
    return expression;
}

std::vector<BRIOExpression> BRIOParser::parseArguments(bool emptyFirstAllowed)
{
    advance(); // '('
    std::vector<BRIOExpression> items;
    // Most calls and lists the plug-in sends have up to eight items.
    items.reserve(8);
    skipSpace();
    if (peek() == ')') {
        advance();
        return items;
    }
    // list(,x): the empty first element stands for nothing.
    if (emptyFirstAllowed && peek() == ',') {
        advance();
        skipSpace();
    }
    for (;;) {
        skipSpace();
        items.push_back(parseExpression());
        skipSpace();
        if (atEnd())
            failAtEnd("expected ',' or ')' in the argument list");
        if (peek() == ')') {
            advance();
            return items;
        }
        if (peek() != ',')
            fail("expected ',' or ')' in the argument list, found " + describe(peek()));
        advance();
    }
}

BRIOExpression BRIOParser::parseNumber()
{
    BRIOExpression expression = startExpression(BRIOExpression::Kind::Literal);
    const std::size_t start = m_position;
    bool integral = true;
    if (peek() == '-' || peek() == '+')
        advance();
    bool digits = false;
    while (isDigit(peek())) {
        advance();
        digits = true;
    }
    if (peek() == '.') {
        integral = false;
        advance();
        while (isDigit(peek())) {
            advance();
            digits = true;
        }
    }
    if (!digits)
        failAt("malformed number", expression.line, expression.column);
    if ((peek() == 'e' || peek() == 'E') &&
        (isDigit(peek(1)) || ((peek(1) == '-' || peek(1) == '+') && isDigit(peek(2))))) {
        integral = false;
        advance();
        if (peek() == '-' || peek() == '+')
            advance();
        while (isDigit(peek()))
            advance();
    }
    if (isIdentifierChar(peek()) || peek() == '.') {
        while (isIdentifierChar(peek()) || peek() == '.')
            advance();
        failAt("malformed number " + m_text.substr(start, m_position - start), expression.line,
               expression.column);
    }

    // from_chars knows no leading '+' and ignores the locale, which Qt sets from the environment.
    std::size_t first = start;
    if (m_text[first] == '+')
        ++first;
    const char* begin = m_text.data() + first;
    const char* end = m_text.data() + m_position;
    const auto spelled = [&] { return m_text.substr(start, m_position - start); };
    if (integral) {
        long long value = 0;
        const auto parsed = std::from_chars(begin, end, value);
        if (parsed.ec != std::errc() || value < std::numeric_limits<int>::min() ||
            value > std::numeric_limits<int>::max())
            failAt("integer " + spelled() + " does not fit in 32 bits", expression.line,
                   expression.column);
        expression.literal = BRIOValue(static_cast<int>(value));
    } else {
        double value = 0.0;
        const auto parsed = std::from_chars(begin, end, value);
        if (parsed.ec != std::errc())
            failAt("real " + spelled() + " is out of range", expression.line, expression.column);
        expression.literal = BRIOValue(value);
    }
    return expression;
}

BRIOExpression BRIOParser::parseDoubleQuoted()
{
    BRIOExpression expression = startExpression(BRIOExpression::Kind::Literal);
    advance(); // opening quote
    std::string value;
    for (;;) {
        if (atEnd())
            failAtEndFrom("unterminated string: missing closing \"", expression.line,
                          expression.column);
        const char c = peek();
        if (c == '"') {
            advance();
            break;
        }
        if (c == '\\') {
            advance();
            if (atEnd())
                failAtEndFrom("unterminated string: missing closing \"", expression.line,
                              expression.column);
            const char escaped = peek();
            if (escaped == 'n')
                value += '\n';
            else if (escaped == '"' || escaped == '\\')
                value += escaped;
            else
                fail(std::string("unknown escape \\") + escaped +
                     " in a string (known: \\\" \\\\ \\n)");
            advance();
            continue;
        }
        value += c; // raw line feeds included
        advance();
    }
    expression.literal = BRIOValue(std::move(value));
    return expression;
}

BRIOExpression BRIOParser::parseDoubledSingleQuoted()
{
    BRIOExpression expression = startExpression(BRIOExpression::Kind::Literal);
    if (peek(1) != '\'')
        fail("a single quote starts nothing: literal strings are written ''text''");
    advance();
    advance();
    // Taken literally up to the next doubled single quote; no escapes.
    const std::size_t close = m_text.find("''", m_position);
    if (close == std::string::npos)
        failAtEndFrom("unterminated string: missing closing ''", expression.line,
                      expression.column);
    std::string value = m_text.substr(m_position, close - m_position);
    while (m_position < close + 2)
        advance();
    expression.literal = BRIOValue(std::move(value));
    return expression;
}

std::string BRIOParser::parseIdentifier()
{
    const std::size_t start = m_position;
    while (!atEnd() && isIdentifierChar(peek()))
        advance();
    return m_text.substr(start, m_position - start);
}

void BRIOParser::skipSpace()
{
    while (!atEnd() && (peek() == ' ' || peek() == '\t' || peek() == '\r' || peek() == '\n'))
        advance();
}

char BRIOParser::peek(std::size_t ahead) const
{
    const std::size_t at = m_position + ahead;
    return at < m_text.size() ? m_text[at] : '\0';
}

void BRIOParser::advance()
{
    if (atEnd())
        return;
    if (m_text[m_position] == '\n') {
        ++m_line;
        m_column = 1;
    } else {
        ++m_column;
    }
    ++m_position;
}

void BRIOParser::fail(const std::string& message) const
{
    throw ParseFailure{{message, m_line, m_column, false}};
}

void BRIOParser::failAt(const std::string& message, int line, int column) const
{
    throw ParseFailure{{message, line, column, false}};
}

void BRIOParser::failAtEnd(const std::string& message) const
{
    throw ParseFailure{{message, m_line, m_column, true}};
}

BRIOExpression BRIOParser::startExpression(BRIOExpression::Kind kind) const
{
    BRIOExpression expression;
    expression.kind = kind;
    expression.line = m_line;
    expression.column = m_column;
    return expression;
}

void BRIOParser::failAtEndFrom(const std::string& message, int line, int column) const
{
    throw ParseFailure{{message, line, column, true}};
}
