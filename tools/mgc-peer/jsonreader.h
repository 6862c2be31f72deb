#pragma once
// Reads JSON text (RFC 8259) into JsonValue. Errors say where: line and column.

#include <stdexcept>
#include <string>

#include "jsonvalue.h"

class JsonReader
{
public:
    class Error : public std::runtime_error
    {
    public:
        Error(int line, int column, const std::string& what);
        int line;
        int column;
    };

    // The one value of `text`; throws Error.
    static JsonValue parse(const std::string& text);

private:
    explicit JsonReader(const std::string& text) : m_text(text) {}

    JsonValue value(int depth);
    JsonValue object(int depth);
    JsonValue array(int depth);
    std::string string();
    JsonValue number();
    void literal(const char* word);
    void skipSpace();
    void expect(char wanted, const char* where);
    unsigned hex4();
    [[noreturn]] void fail(const std::string& what) const;
    JsonValue located() const;
    bool atEnd() const { return m_position >= m_text.size(); }
    char peek() const { return atEnd() ? '\0' : m_text[m_position]; }
    void advance();

    const std::string& m_text;
    std::size_t m_position = 0;
    int m_line = 1;
    int m_column = 1;
};
