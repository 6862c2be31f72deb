#pragma once
// The messaging library's string: 8-bit text, may hold any bytes but NUL-terminated.

#include <string>

#include "rfmsg/rfmsgexport.h"

namespace RFMsgExp {

class RFMSG_EXPORT msgString
{
public:
    msgString() = default;
    msgString(const char* text) : m_text(text ? text : "") {}
    msgString(std::string text) : m_text(std::move(text)) {}

    const char* c_str() const { return m_text.c_str(); }
    std::size_t length() const { return m_text.size(); }
    const std::string& str() const { return m_text; }

private:
    std::string m_text;
};

} // namespace RFMsgExp
