#pragma once
// The messaging library's string: 8-bit text, may hold any bytes but NUL-terminated.
// Copies share their bytes, which never change: a message's text body is
// handed out without being copied.

#include <memory>
#include <string>

#include "rfmsg/rfmsgexport.h"

namespace RFMsgExp {

class msgString;
namespace Internal {
msgString sharedString(std::shared_ptr<const std::string> text);
}

class RFMSG_EXPORT msgString
{
public:
    msgString() = default;
    msgString(const char* text) : m_text(std::make_shared<const std::string>(text ? text : "")) {}
    msgString(std::string text) : m_text(std::make_shared<const std::string>(std::move(text))) {}

    const char* c_str() const { return str().c_str(); }
    std::size_t length() const { return str().size(); }
    const std::string& str() const
    {
        static const std::string empty;
        return m_text ? *m_text : empty;
    }

private:
    friend msgString Internal::sharedString(std::shared_ptr<const std::string> text);
    std::shared_ptr<const std::string> m_text;
};

namespace Internal {
// A string sharing `text`, which must not change while it is shared.
inline msgString sharedString(std::shared_ptr<const std::string> text)
{
    msgString shared;
    shared.m_text = std::move(text);
    return shared;
}
} // namespace Internal

} // namespace RFMsgExp
