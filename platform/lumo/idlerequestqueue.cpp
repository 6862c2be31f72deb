#include "lumo/idlerequestqueue.h"

#include <utility>

#include "lumo/idlerequest.h"

struct IdleRequestQueue::Entry
{
    IdleRequestC* request;
    bool finished = false;
    bool performed = false;
};

IdleRequestQueue::IdleRequestQueue(std::function<void()> wake) : m_wake(std::move(wake)) {}

IdleRequestQueue::~IdleRequestQueue()
{
    shutdown();
}

bool IdleRequestQueue::postAndWait(IdleRequestC& request)
{
    Entry entry{&request};
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_shutDown)
            return false;
        m_queue.push_back(&entry);
    }
    m_posted.notify_all();
    if (m_wake)
        m_wake();
    std::unique_lock<std::mutex> lock(m_mutex);
    m_done.wait(lock, [&] { return entry.finished; });
    return entry.performed;
}

int IdleRequestQueue::performPending()
{
    std::deque<Entry*> batch;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        batch.swap(m_queue);
    }
    for (Entry* entry : batch) {
        // perform() runs without the lock: it may itself take long or post nothing.
        // A request that throws is failed to its poster; the rest of the batch
        // and the main loop go on.
        bool performed = false;
        try {
            entry->request->perform();
            performed = true;
        } catch (...) {
        }
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            entry->performed = performed;
            entry->finished = true;
        }
        m_done.notify_all();
    }
    return static_cast<int>(batch.size());
}

int IdleRequestQueue::waitAndPerform(std::chrono::milliseconds timeout)
{
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_posted.wait_for(lock, timeout, [&] { return !m_queue.empty() || m_shutDown; });
    }
    return performPending();
}

void IdleRequestQueue::shutdown()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_shutDown = true;
        for (Entry* entry : m_queue)
            entry->finished = true;
        m_queue.clear();
    }
    m_posted.notify_all();
    m_done.notify_all();
}

bool IdleRequestQueue::isShutDown() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_shutDown;
}
