#pragma once

#include <string>

#include "rfmsg/msgstring.h"

namespace Exchange {
// A library string as a narrow string, taken at once.
inline std::string text(const RFMsgExp::msgString& value)
{
    return value.c_str();
}
} // namespace Exchange

#include <stdexcept>

#include "rfmsg/message.h"

namespace Exchange {
// The message's document. A message without one cannot be handled: the throw
// ends the handler and is logged by the receiver.
inline RFMsgExp::msg_auto_ptr<RFMsgExp::IRFDocument> requireDocument(RFMsgExp::IRFMessage& message)
{
    RFMsgExp::msg_auto_ptr<RFMsgExp::IRFDocument> document = message.GetDocument();
    if (!document)
        throw std::runtime_error("message without a document");
    return document;
}
} // namespace Exchange
