#include "jsonwriter.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace {

// Length of the valid UTF-8 sequence at `text[i]`, or 0.
std::size_t utf8Length(std::string_view text, std::size_t i)
{
    const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char lead = byte(i);
    std::size_t length = 0;
    unsigned minimum = 0;
    unsigned code = 0;
    if (lead >= 0xc2 && lead <= 0xdf) {
        length = 2;
        code = lead & 0x1f;
        minimum = 0x80;
    } else if (lead >= 0xe0 && lead <= 0xef) {
        length = 3;
        code = lead & 0x0f;
        minimum = 0x800;
    } else if (lead >= 0xf0 && lead <= 0xf4) {
        length = 4;
        code = lead & 0x07;
        minimum = 0x10000;
    } else {
        return 0;
    }
    if (i + length > text.size())
        return 0;
    for (std::size_t k = 1; k < length; ++k) {
        if ((byte(i + k) & 0xc0) != 0x80)
            return 0;
        code = (code << 6) | (byte(i + k) & 0x3f);
    }
    if (code < minimum || code > 0x10ffff || (code >= 0xd800 && code < 0xe000))
        return 0;
    return length;
}

} // namespace

void JsonWriter::separate()
{
    if (m_afterKey) {
        m_afterKey = false;
        return;
    }
    if (!m_filled.empty()) {
        if (m_filled.back())
            m_text += ',';
        m_filled.back() = true;
    }
}

void JsonWriter::beginObject()
{
    separate();
    m_text += '{';
    m_filled.push_back(false);
}

void JsonWriter::endObject()
{
    m_text += '}';
    m_filled.pop_back();
}

void JsonWriter::beginArray()
{
    separate();
    m_text += '[';
    m_filled.push_back(false);
}

void JsonWriter::endArray()
{
    m_text += ']';
    m_filled.pop_back();
}

void JsonWriter::key(std::string_view name)
{
    string(name);
    m_text += ':';
    m_afterKey = true;
}

void JsonWriter::string(std::string_view text)
{
    separate();
    m_text += '"';
    char escape[8];
    for (std::size_t i = 0; i < text.size();) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c == '"' || c == '\\') {
            m_text += '\\';
            m_text += static_cast<char>(c);
        } else if (c == '\n') {
            m_text += "\\n";
        } else if (c == '\r') {
            m_text += "\\r";
        } else if (c == '\t') {
            m_text += "\\t";
        } else if (c < 0x20 || c == 0x7f) {
            std::snprintf(escape, sizeof escape, "\\u%04x", c);
            m_text += escape;
        } else if (c >= 0x80) {
            const std::size_t length = utf8Length(text, i);
            if (length == 0) {
                std::snprintf(escape, sizeof escape, "\\u%04x", c);
                m_text += escape;
            } else {
                m_text.append(text.substr(i, length));
                i += length;
                continue;
            }
        } else {
            m_text += static_cast<char>(c);
        }
        ++i;
    }
    m_text += '"';
}

void JsonWriter::integer(std::int64_t value)
{
    separate();
    m_text += std::to_string(value);
}

void JsonWriter::number(double value)
{
    separate();
    if (!std::isfinite(value)) {
        m_text += "null"; // JSON has no infinities
        return;
    }
    // The shortest text that reads back as the same double, locale-free.
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    m_text.append(buffer, result.ptr);
}

void JsonWriter::boolean(bool value)
{
    separate();
    m_text += value ? "true" : "false";
}

void JsonWriter::null()
{
    separate();
    m_text += "null";
}
