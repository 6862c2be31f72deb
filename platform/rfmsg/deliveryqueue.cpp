#include "rfmsg/deliveryqueue.h"

#include <algorithm>

#include "rfmsg/bridgeconnection.h"

namespace RFMsgExp {

DeliveryQueue::DeliveryQueue(std::function<void()> spaceFreed) : m_spaceFreed(std::move(spaceFreed))
{
}

void DeliveryQueue::setBounds(std::size_t messages, std::size_t bytes)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_maxMessages = std::max<std::size_t>(messages, 1);
    m_maxBytes = bytes;
}

bool DeliveryQueue::tryPush(Delivery& item)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const bool room =
        m_items.empty() || (m_items.size() < m_maxMessages && m_bytes + item.bytes <= m_maxBytes);
    if (!room) {
        m_refused = true;
        return false;
    }
    m_bytes += item.bytes;
    m_items.push_back(std::move(item));
    m_highWater = std::max(m_highWater, m_items.size());
    return true;
}

void DeliveryQueue::push(Delivery item)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_bytes += item.bytes;
    m_items.push_back(std::move(item));
    m_highWater = std::max(m_highWater, m_items.size());
}

std::optional<Delivery> DeliveryQueue::tryPop()
{
    std::optional<Delivery> item;
    bool wake = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_items.empty())
            return item;
        item.emplace(std::move(m_items.front()));
        m_items.pop_front();
        m_bytes -= item->bytes;
        wake = std::exchange(m_refused, false);
    }
    if (wake)
        m_spaceFreed();
    return item;
}

bool DeliveryQueue::empty()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_items.empty();
}

void DeliveryQueue::clear()
{
    std::deque<Delivery> dropped;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        dropped.swap(m_items);
        m_bytes = 0;
        m_refused = false;
    }
    // Messages are destroyed here, outside the lock.
}

std::size_t DeliveryQueue::size()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_items.size();
}

std::size_t DeliveryQueue::highWater()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_highWater;
}

} // namespace RFMsgExp
