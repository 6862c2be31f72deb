#pragma once
// Test seam of the messaging library: build and inspect messages, stand in
// for the network side of a bridge, and count library objects.

#include <string>
#include <vector>

#include "rfmsg/messagecontent.h"
#include "rfmsg/rfmsgexport.h"
#include "rfmsg/xbridge.h"

namespace RFMsgExp::Testing {

struct Peer
{
    std::string appName;
    int number = 0;
};

struct SentMessage
{
    MessageContent content;
    std::string target;
};

// A new library message holding `content`.
RFMSG_EXPORT msg_auto_ptr<IRFMessage> makeMessage(const MessageContent& content);
// What a library message holds now.
RFMSG_EXPORT MessageContent contentOf(IRFMessage& message);

// From now on GetConnected() of this bridge lists `peers` instead of its real
// connections, and OnSend records instead of sending.
RFMSG_EXPORT void simulatePeers(XBridge& bridge, std::vector<Peer> peers);
// Every message OnSend was given while simulating, oldest first.
RFMSG_EXPORT std::vector<SentMessage> sentMessages(XBridge& bridge);
RFMSG_EXPORT void clearSentMessages(XBridge& bridge);

// Library objects alive now (messages, documents, lists, users, exceptions…)
// and handed out since the process started.
RFMSG_EXPORT long liveObjects();
RFMSG_EXPORT long createdObjects();

} // namespace RFMsgExp::Testing
