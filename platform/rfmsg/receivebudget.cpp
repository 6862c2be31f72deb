#include "rfmsg/receivebudget.h"

#include <algorithm>
#include <utility>

namespace RFMsgExp {

ReceiveBudget::ReceiveBudget(std::function<void()> spaceFreed) : m_spaceFreed(std::move(spaceFreed))
{
}

void ReceiveBudget::configure(std::size_t budget, std::size_t smallFrameLimit,
                              std::size_t smallFrameReserve)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_large.limit = budget;
    m_small.limit = smallFrameReserve;
    m_smallFrameLimit = smallFrameLimit;
}

bool ReceiveBudget::isSmall(std::size_t size)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return size <= m_smallFrameLimit;
}

bool ReceiveBudget::tryReserve(std::size_t size, Reservation& reservation)
{
    reservation.release();
    std::lock_guard<std::mutex> lock(m_mutex);
    const bool small = size <= m_smallFrameLimit;
    Pool& from = pool(small);
    if (from.used != 0 && (from.used > from.limit || size > from.limit - from.used)) {
        m_refused = true;
        return false;
    }
    from.used += size;
    from.highWater = std::max(from.highWater, from.used);
    reservation.m_budget = this;
    reservation.m_small = small;
    reservation.m_size = size;
    return true;
}

void ReceiveBudget::change(bool small, std::size_t from, std::size_t to)
{
    bool wake = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        Pool& changed = pool(small);
        changed.used = changed.used - from + to;
        changed.highWater = std::max(changed.highWater, changed.used);
        if (to < from)
            wake = std::exchange(m_refused, false);
    }
    if (wake)
        m_spaceFreed();
}

std::size_t ReceiveBudget::reserved()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_large.used;
}

std::size_t ReceiveBudget::highWater()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_large.highWater;
}

ReceiveBudget::Reservation::Reservation(Reservation&& other) noexcept
    : m_budget(std::exchange(other.m_budget, nullptr)), m_small(other.m_small),
      m_size(std::exchange(other.m_size, 0))
{
}

ReceiveBudget::Reservation& ReceiveBudget::Reservation::operator=(Reservation&& other) noexcept
{
    if (this != &other) {
        release();
        m_budget = std::exchange(other.m_budget, nullptr);
        m_small = other.m_small;
        m_size = std::exchange(other.m_size, 0);
    }
    return *this;
}

void ReceiveBudget::Reservation::resize(std::size_t size)
{
    if (m_budget)
        m_budget->change(m_small, m_size, size);
    m_size = size;
}

void ReceiveBudget::Reservation::release()
{
    if (m_budget)
        m_budget->change(m_small, m_size, 0);
    m_budget = nullptr;
    m_size = 0;
}

} // namespace RFMsgExp
