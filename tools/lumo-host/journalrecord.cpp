#include "journalrecord.h"

#include <charconv>
#include <cmath>

#include "lumo/brioscript.h"

namespace {

// Length of the valid UTF-8 sequence at `at`, or 0 when the byte starts none.
std::size_t utf8SequenceLength(const std::string& text, std::size_t at)
{
    const auto byte = static_cast<unsigned char>(text[at]);
    std::size_t length = 0;
    unsigned int minimum = 0;
    unsigned int code = 0;
    if (byte < 0x80)
        return 1;
    if ((byte & 0xE0) == 0xC0) {
        length = 2;
        minimum = 0x80;
        code = byte & 0x1F;
    } else if ((byte & 0xF0) == 0xE0) {
        length = 3;
        minimum = 0x800;
        code = byte & 0x0F;
    } else if ((byte & 0xF8) == 0xF0) {
        length = 4;
        minimum = 0x10000;
        code = byte & 0x07;
    } else {
        return 0;
    }
    if (at + length > text.size())
        return 0;
    for (std::size_t i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(text[at + i]);
        if ((next & 0xC0) != 0x80)
            return 0;
        code = (code << 6) | (next & 0x3F);
    }
    if (code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
        return 0;
    return length;
}

std::string hexEscape(unsigned char byte)
{
    static const char digits[] = "0123456789abcdef";
    return std::string("\\u00") + digits[byte >> 4] + digits[byte & 15];
}

} // namespace

JournalRecord::JournalRecord(const char* event) : m_text("{\"event\":" + quote(event)) {}

JournalRecord& JournalRecord::add(const char* key, const std::string& text)
{
    return addRaw(key, quote(text));
}

JournalRecord& JournalRecord::add(const char* key, const char* text)
{
    return addRaw(key, text ? quote(text) : std::string("null"));
}

JournalRecord& JournalRecord::add(const char* key, int value)
{
    return addRaw(key, std::to_string(value));
}

JournalRecord& JournalRecord::add(const char* key, bool flag)
{
    return addRaw(key, flag ? "true" : "false");
}

JournalRecord& JournalRecord::add(const char* key, const BRIOValue& value)
{
    return addRaw(key, json(value));
}

JournalRecord& JournalRecord::add(const char* key, const std::vector<BRIOValue>& values)
{
    return addRaw(key, json(BRIOValue::list(values)));
}

JournalRecord& JournalRecord::add(const char* key, const std::vector<std::string>& texts)
{
    std::string array = "[";
    for (std::size_t i = 0; i < texts.size(); ++i) {
        if (i > 0)
            array += ',';
        array += quote(texts[i]);
    }
    return addRaw(key, array + "]");
}

JournalRecord& JournalRecord::addNull(const char* key)
{
    return addRaw(key, "null");
}

JournalRecord& JournalRecord::addRaw(const char* key, const std::string& json)
{
    m_text += ',';
    m_text += quote(key);
    m_text += ':';
    m_text += json;
    return *this;
}

std::string JournalRecord::quote(const std::string& text)
{
    std::string out = "\"";
    for (std::size_t at = 0; at < text.size();) {
        const auto byte = static_cast<unsigned char>(text[at]);
        const std::size_t length = utf8SequenceLength(text, at);
        if (length == 0) {
            out += hexEscape(byte);
            ++at;
            continue;
        }
        if (length > 1) {
            out.append(text, at, length);
            at += length;
            continue;
        }
        switch (byte) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (byte < 0x20 || byte == 0x7F)
                out += hexEscape(byte);
            else
                out += static_cast<char>(byte);
        }
        ++at;
    }
    return out + "\"";
}

std::string JournalRecord::number(double value)
{
    if (!std::isfinite(value))
        return "null";
    char buffer[64];
    const auto written = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, written.ptr);
}

std::string JournalRecord::json(const BRIOValue& value)
{
    switch (value.kind()) {
    case BRIOValue::Kind::Null:
        return "null";
    case BRIOValue::Kind::Integer:
        return std::to_string(value.toInt());
    case BRIOValue::Kind::Real:
        return number(value.toReal());
    case BRIOValue::Kind::String:
        return quote(value.toString());
    case BRIOValue::Kind::List: {
        std::string array = "[";
        bool first = true;
        for (const BRIOValue& item : value.items()) {
            if (!first)
                array += ',';
            first = false;
            array += json(item);
        }
        return array + "]";
    }
    }
    return "null";
}
