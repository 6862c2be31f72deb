#pragma once
// Writes one compact JSON value, members in the order they are given.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class JsonWriter
{
public:
    void beginObject();
    void endObject();
    void beginArray();
    void endArray();
    // The next member's name; the value follows.
    void key(std::string_view name);
    // Any 8-bit text: bytes that are not UTF-8 are written as \u00XX (read as Latin-1).
    void string(std::string_view text);
    void integer(std::int64_t value);
    void number(double value);
    void boolean(bool value);
    void null();

    const std::string& text() const { return m_text; }

private:
    void separate();

    std::string m_text;
    // Per open container: whether a value was written in it yet.
    std::vector<bool> m_filled;
    bool m_afterKey = false;
};
