#pragma once
// Test seam of the messaging library: build and inspect messages, stand in
// for the network side of a bridge, and count library objects.

#include <cstddef>
#include <cstdint>
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
// From now on (until simulatePeers) GetConnected() gives no set at all, as a
// library may.
RFMSG_EXPORT void simulateNoPeerSet(XBridge& bridge);
// Every message OnSend was given while simulating, oldest first.
RFMSG_EXPORT std::vector<SentMessage> sentMessages(XBridge& bridge);
RFMSG_EXPORT void clearSentMessages(XBridge& bridge);
// While simulating, OnSend throws an IXException* with `reason` instead of
// recording, as a failed send does; an empty reason records again.
RFMSG_EXPORT void failSends(XBridge& bridge, std::string reason);

// Bounds of a bridge's transport, shortened by tests. Set before Init.
struct TransportLimits
{
    // Largest frame payload a peer may send.
    std::uint32_t frameLimit = 1u << 30;
    // Time a new connection has to announce itself.
    int handshakeTimeoutMs = 10000;
    // Received messages waiting for OnReceive (bytes: their decoded size)
    // before peers are no longer read.
    std::size_t queuedMessages = 64;
    std::size_t queuedBytes = 64u << 20;
    // Connections that have not announced themselves yet; the oldest of them
    // makes room for a new one.
    int maxUnannouncedConnections = 128;
    // Connections in all; a connection beyond is refused with CLOSE.
    int maxConnections = 256;
    // Fault reports handed to OnError in one second; the rest are summed up.
    int reportsPerSecond = 10;
    // Bytes waiting to be sent to one peer: over the hard limit it is closed
    // at once, over the soft limit once that has lasted softTimeoutMs.
    std::size_t sendQueueHardLimit = 256u << 20;
    std::size_t sendQueueSoftLimit = 64u << 20;
    int sendQueueSoftTimeoutMs = 30000;
    // How long accepting rests after accept() failed (out of descriptors, say).
    int acceptPauseMs = 100;
    // Largest HELLO payload.
    std::uint32_t announcementLimit = 64u << 10;
    // Memory for received, undelivered data of all connections together (0:
    // twice the frame limit); frames of up to smallFrameLimit bytes draw on
    // smallFrameReserve instead.
    std::size_t receiveBudget = 0;
    std::size_t smallFrameLimit = 1u << 20;
    std::size_t smallFrameReserve = 64u << 20;
    // Time a started frame may go without receiving a byte.
    int stallTimeoutMs = 30000;
};
RFMSG_EXPORT void setTransportLimits(XBridge& bridge, const TransportLimits& limits);

struct TransportStats
{
    std::size_t queued = 0;
    // The most messages that ever waited at once.
    std::size_t queuedHighWater = 0;
    // Connections not read because the queue is full.
    int pausedConnections = 0;
    // Open connections, announced or not.
    int openConnections = 0;
    // accept() calls that failed.
    long failedAccepts = 0;
    // Receive budget (not the small frames' reserve): reserved now, the most
    // ever, and connections whose next frame waits for room.
    std::size_t budgetReserved = 0;
    std::size_t budgetHighWater = 0;
    int waitingForBudget = 0;
};
RFMSG_EXPORT TransportStats transportStats(XBridge& bridge);

// Disconnects and waits until the delivery in progress has returned and the
// library's threads have ended. For destructors of classes derived from
// XBridge whose OnReceive or OnError use the derived class's members; Init
// starts them again.
RFMSG_EXPORT void stopDelivery(XBridge& bridge);

// Library objects alive now (messages, documents, lists, users, exceptions…)
// and handed out since the process started.
RFMSG_EXPORT long liveObjects();
RFMSG_EXPORT long createdObjects();

} // namespace RFMsgExp::Testing
