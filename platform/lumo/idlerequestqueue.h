#pragma once
// Host side: a queue of idle requests that other threads post and the main
// thread performs. Both the stand-in host and test hosts serve requests with it.

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

#include "lumo/lumoexport.h"

class IdleRequestC;

class LUMO_SDK_EXPORT IdleRequestQueue
{
public:
    // `wake` is called on the posting thread after each post, so that a main
    // loop sleeping elsewhere (a Qt event loop) can come and perform.
    explicit IdleRequestQueue(std::function<void()> wake = {});
    ~IdleRequestQueue();

    // Any thread: blocks until the request was performed. False when its
    // perform() threw, and, unperformed, once shut down (also for a waiter
    // still queued when shutdown() came).
    bool postAndWait(IdleRequestC& request);

    // Main thread: performs every request queued now, in posting order; never
    // throws.
    int performPending();
    // Main thread: waits up to `timeout` for a request, then performs all queued.
    int waitAndPerform(std::chrono::milliseconds timeout);

    // Refuses new posts and releases every waiter still queued.
    void shutdown();
    bool isShutDown() const;

private:
    struct Entry;
    std::function<void()> m_wake;
    mutable std::mutex m_mutex;
    std::condition_variable m_posted;
    std::condition_variable m_done;
    std::deque<Entry*> m_queue;
    bool m_shutDown = false;
};
