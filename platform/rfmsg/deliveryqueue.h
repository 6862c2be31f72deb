#pragma once
// Internal: what the network role hands to the delivery role, in arrival
// order. Bounded: when full, the network role keeps the message and stops
// reading that peer until spaceFreed tells it there is room again.

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "rfmsg/message.h"
#include "rfmsg/receivebudget.h"

namespace RFMsgExp {

class BridgeConnection;

struct Delivery
{
    // Null for an error report.
    msg_auto_ptr<IRFMessage> message;
    // Where a reply goes; null for an error report.
    std::shared_ptr<BridgeConnection> from;
    std::string error;
    // What the decoded message takes, held from the receive budget until delivered.
    std::size_t bytes = 0;
    ReceiveBudget::Reservation reservation{};
};

class DeliveryQueue
{
public:
    explicit DeliveryQueue(std::function<void()> spaceFreed);

    void setBounds(std::size_t messages, std::size_t bytes);
    // Queues the message when there is room (an empty queue takes any one);
    // otherwise leaves `item` as it is and returns false.
    bool tryPush(Delivery& item);
    // Queues regardless of the bounds (error reports, a closed peer's last message).
    void push(Delivery item);
    // The oldest item, if any.
    std::optional<Delivery> tryPop();
    bool empty();
    // Drops everything queued.
    void clear();

    std::size_t size();
    std::size_t highWater();

private:
    std::function<void()> m_spaceFreed;
    std::mutex m_mutex;
    std::deque<Delivery> m_items;
    std::size_t m_maxMessages = 64;
    std::size_t m_maxBytes = 64u << 20;
    std::size_t m_bytes = 0;
    std::size_t m_highWater = 0;
    bool m_refused = false;
};

} // namespace RFMsgExp
