#include "jsonreader.h"

#include <charconv>
#include <cmath>

namespace {

// Deeper documents are not message descriptions; stop before the stack suffers.
constexpr int kMaxDepth = 200;

void appendUtf8(std::string& out, unsigned code)
{
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xc0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3f));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xe0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3f));
        out += static_cast<char>(0x80 | (code & 0x3f));
    } else {
        out += static_cast<char>(0xf0 | (code >> 18));
        out += static_cast<char>(0x80 | ((code >> 12) & 0x3f));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3f));
        out += static_cast<char>(0x80 | (code & 0x3f));
    }
}

std::string shown(char c)
{
    if (c == '\0')
        return "the end of the text";
    if (static_cast<unsigned char>(c) < 0x20)
        return "a control character";
    return std::string("'") + c + "'";
}

} // namespace

JsonReader::Error::Error(int errorLine, int errorColumn, const std::string& what)
    : std::runtime_error(std::to_string(errorLine) + ":" + std::to_string(errorColumn) + ": " +
                         what),
      line(errorLine), column(errorColumn)
{
}

JsonValue JsonReader::parse(const std::string& text)
{
    JsonReader reader(text);
    // A byte order mark is allowed at the start.
    if (text.compare(0, 3, "\xef\xbb\xbf") == 0)
        reader.m_position = 3;
    reader.skipSpace();
    JsonValue result = reader.value(0);
    reader.skipSpace();
    if (!reader.atEnd())
        reader.fail("unexpected " + shown(reader.peek()) + " after the JSON value");
    return result;
}

void JsonReader::fail(const std::string& what) const
{
    throw Error(m_line, m_column, what);
}

JsonValue JsonReader::located() const
{
    JsonValue value;
    value.line = m_line;
    value.column = m_column;
    return value;
}

void JsonReader::advance()
{
    if (m_text[m_position] == '\n') {
        ++m_line;
        m_column = 1;
    } else if ((static_cast<unsigned char>(m_text[m_position]) & 0xc0) != 0x80) {
        ++m_column; // columns count characters, not UTF-8 bytes
    }
    ++m_position;
}

void JsonReader::skipSpace()
{
    while (!atEnd() && (peek() == ' ' || peek() == '\t' || peek() == '\n' || peek() == '\r'))
        advance();
}

void JsonReader::expect(char wanted, const char* where)
{
    skipSpace();
    if (peek() != wanted)
        fail(std::string("expected '") + wanted + "' " + where + ", found " + shown(peek()));
    advance();
}

JsonValue JsonReader::value(int depth)
{
    if (depth > kMaxDepth)
        fail("nested more than " + std::to_string(kMaxDepth) + " levels deep");
    skipSpace();
    switch (peek()) {
    case '{':
        return object(depth);
    case '[':
        return array(depth);
    case '"': {
        JsonValue result = located();
        result.type = JsonValue::Type::String;
        result.text = string();
        return result;
    }
    case 't': {
        JsonValue result = located();
        literal("true");
        result.type = JsonValue::Type::Boolean;
        result.boolean = true;
        return result;
    }
    case 'f': {
        JsonValue result = located();
        literal("false");
        result.type = JsonValue::Type::Boolean;
        return result;
    }
    case 'n': {
        JsonValue result = located();
        literal("null");
        return result;
    }
    default:
        if (peek() == '-' || (peek() >= '0' && peek() <= '9'))
            return number();
        fail("expected a value, found " + shown(peek()));
    }
}

JsonValue JsonReader::object(int depth)
{
    JsonValue result = located();
    result.type = JsonValue::Type::Object;
    advance();
    skipSpace();
    if (peek() == '}') {
        advance();
        return result;
    }
    for (;;) {
        skipSpace();
        if (peek() != '"')
            fail("expected a member name in double quotes, found " + shown(peek()));
        const int line = m_line;
        const int column = m_column;
        std::string key = string();
        for (const auto& member : result.members)
            if (member.first == key)
                throw Error(line, column, "the member \"" + key + "\" appears twice");
        expect(':', "after a member name");
        result.members.emplace_back(std::move(key), value(depth + 1));
        skipSpace();
        if (peek() == ',') {
            advance();
            continue;
        }
        expect('}', "or ',' after a member");
        return result;
    }
}

JsonValue JsonReader::array(int depth)
{
    JsonValue result = located();
    result.type = JsonValue::Type::Array;
    advance();
    skipSpace();
    if (peek() == ']') {
        advance();
        return result;
    }
    for (;;) {
        result.items.push_back(value(depth + 1));
        skipSpace();
        if (peek() == ',') {
            advance();
            continue;
        }
        expect(']', "or ',' after an array item");
        return result;
    }
}

unsigned JsonReader::hex4()
{
    unsigned code = 0;
    for (int i = 0; i < 4; ++i) {
        const char c = peek();
        unsigned digit;
        if (c >= '0' && c <= '9')
            digit = static_cast<unsigned>(c - '0');
        else if (c >= 'a' && c <= 'f')
            digit = static_cast<unsigned>(c - 'a' + 10);
        else if (c >= 'A' && c <= 'F')
            digit = static_cast<unsigned>(c - 'A' + 10);
        else
            fail("expected four hexadecimal digits after \\u");
        code = code * 16 + digit;
        advance();
    }
    return code;
}

std::string JsonReader::string()
{
    advance(); // the opening quote
    std::string out;
    for (;;) {
        if (atEnd())
            fail("the string is not closed");
        const char c = peek();
        if (c == '"') {
            advance();
            return out;
        }
        if (static_cast<unsigned char>(c) < 0x20)
            fail("a control character in a string must be escaped (a line feed as \\n)");
        if (c != '\\') {
            out += c;
            advance();
            continue;
        }
        advance();
        const char escape = peek();
        switch (escape) {
        case '"':
        case '\\':
        case '/':
            out += escape;
            break;
        case 'b':
            out += '\b';
            break;
        case 'f':
            out += '\f';
            break;
        case 'n':
            out += '\n';
            break;
        case 'r':
            out += '\r';
            break;
        case 't':
            out += '\t';
            break;
        case 'u': {
            advance();
            unsigned code = hex4();
            if (code >= 0xd800 && code < 0xdc00) {
                if (peek() != '\\')
                    fail("a high surrogate \\u escape must be followed by a low one");
                advance();
                if (peek() != 'u')
                    fail("a high surrogate \\u escape must be followed by a low one");
                advance();
                const unsigned low = hex4();
                if (low < 0xdc00 || low >= 0xe000)
                    fail("a high surrogate \\u escape must be followed by a low one");
                code = 0x10000 + ((code - 0xd800) << 10) + (low - 0xdc00);
            } else if (code >= 0xdc00 && code < 0xe000) {
                fail("a low surrogate \\u escape without a high one");
            }
            appendUtf8(out, code);
            continue;
        }
        default:
            fail("unknown escape \\" + std::string(1, escape == '\0' ? ' ' : escape));
        }
        advance();
    }
}

JsonValue JsonReader::number()
{
    JsonValue result = located();
    result.type = JsonValue::Type::Number;
    const std::size_t start = m_position;
    bool fraction = false;
    if (peek() == '-')
        advance();
    if (peek() == '0') {
        advance();
    } else if (peek() >= '1' && peek() <= '9') {
        while (peek() >= '0' && peek() <= '9')
            advance();
    } else {
        fail("expected a digit, found " + shown(peek()));
    }
    if (peek() == '.') {
        fraction = true;
        advance();
        if (!(peek() >= '0' && peek() <= '9'))
            fail("expected a digit after the decimal point, found " + shown(peek()));
        while (peek() >= '0' && peek() <= '9')
            advance();
    }
    if (peek() == 'e' || peek() == 'E') {
        fraction = true;
        advance();
        if (peek() == '+' || peek() == '-')
            advance();
        if (!(peek() >= '0' && peek() <= '9'))
            fail("expected a digit in the exponent, found " + shown(peek()));
        while (peek() >= '0' && peek() <= '9')
            advance();
    }
    // from_chars ignores the locale (strtod would take a decimal comma in some).
    const char* first = m_text.data() + start;
    const char* last = m_text.data() + m_position;
    const auto parsed = std::from_chars(first, last, result.number);
    if (parsed.ec == std::errc::result_out_of_range)
        result.number = first[0] == '-' ? -HUGE_VAL : HUGE_VAL;
    if (!fraction) {
        std::int64_t integer = 0;
        if (std::from_chars(first, last, integer).ec == std::errc()) {
            result.integral = true;
            result.integer = integer;
        }
    }
    return result;
}

void JsonReader::literal(const char* word)
{
    for (const char* c = word; *c; ++c) {
        if (peek() != *c)
            fail(std::string("expected ") + word + ", found " + shown(peek()));
        advance();
    }
}
