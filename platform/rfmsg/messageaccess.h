#pragma once
// Internal: the transport's way into the message model without copies.

#include "rfmsg/message.h"
#include "rfmsg/messagecontent.h"

namespace RFMsgExp::Internal {

// A new library message that takes `content` over.
msg_auto_ptr<IRFMessage> adoptContent(MessageContent&& content);
// What a library message holds, valid while the message lives and is not changed.
const MessageContent& contentView(IRFMessage& message);

} // namespace RFMsgExp::Internal
