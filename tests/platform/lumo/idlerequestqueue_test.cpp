// Idle requests: performed on the serving thread, in order, and never leaving
// a poster waiting once the host is gone.

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "lumo/hostbackend.h"
#include "lumo/idlerequest.h"
#include "lumo/idlerequestqueue.h"

namespace {

using namespace std::chrono_literals;

class RecordingRequest : public IdleRequestC
{
public:
    explicit RecordingRequest(int id, std::vector<int>* order = nullptr) : m_id(id), m_order(order)
    {
    }
    void perform() override
    {
        performedOn = std::this_thread::get_id();
        if (m_order)
            m_order->push_back(m_id);
    }
    std::thread::id performedOn;

private:
    int m_id;
    std::vector<int>* m_order;
};

class QueueBackend : public HostBackend
{
public:
    IdleRequestQueue queue;
    bool postIdleRequest(IdleRequestC& request) override { return queue.postAndWait(request); }
    void openWritableLibraries(std::set<std::string>&) override {}
    BRIOValue callFunction(const std::string&, const std::vector<BRIOValue>&) override
    {
        return {};
    }
};

// Serves `queue` on this thread until `done`; false after ten seconds.
bool serveUntil(IdleRequestQueue& queue, const std::atomic<bool>& done)
{
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!done) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        queue.waitAndPerform(5ms);
    }
    return true;
}

TEST(IdleRequestQueue, PostWaitsUntilPerformedOnTheServingThread)
{
    IdleRequestQueue queue;
    RecordingRequest request(1);
    std::atomic<bool> done{false};
    bool result = false;
    std::thread poster([&] {
        result = queue.postAndWait(request);
        done = true;
    });
    const bool served = serveUntil(queue, done);
    if (!served)
        queue.shutdown();
    poster.join();
    ASSERT_TRUE(served);
    EXPECT_TRUE(result);
    EXPECT_EQ(request.performedOn, std::this_thread::get_id());
}

TEST(IdleRequestQueue, ShutdownReleasesAWaiterThatWouldOtherwiseWaitForever)
{
    IdleRequestQueue queue;
    RecordingRequest request(1);
    std::atomic<bool> posted{false};
    bool result = true;
    std::thread poster([&] {
        posted = true;
        result = queue.postAndWait(request); // nobody serves
    });
    while (!posted)
        std::this_thread::yield();
    queue.shutdown();
    poster.join();
    EXPECT_FALSE(result);
    EXPECT_EQ(request.performedOn, std::thread::id()) << "a released request is not performed";
    RecordingRequest late(2);
    EXPECT_FALSE(queue.postAndWait(late));
}

TEST(IdleRequestQueue, RequestsOfOneThreadArePerformedInPostingOrder)
{
    IdleRequestQueue queue;
    std::vector<int> order;
    std::atomic<bool> done{false};
    std::thread poster([&] {
        for (int id = 0; id < 100; ++id) {
            RecordingRequest request(id, &order);
            queue.postAndWait(request);
        }
        done = true;
    });
    const bool served = serveUntil(queue, done);
    if (!served)
        queue.shutdown();
    poster.join();
    ASSERT_TRUE(served);
    ASSERT_EQ(order.size(), 100u);
    for (int id = 0; id < 100; ++id)
        EXPECT_EQ(order[static_cast<std::size_t>(id)], id);
}

TEST(IdleRequest, WithoutABackendItIsRefusedUnperformed)
{
    LumoHost::installBackend(nullptr);
    RecordingRequest request(1);
    EXPECT_FALSE(request.postAndWaitUntilPerformed());
    EXPECT_EQ(request.performedOn, std::thread::id());
}

TEST(IdleRequest, GoesThroughTheInstalledBackend)
{
    QueueBackend backend;
    LumoHost::installBackend(&backend);
    RecordingRequest request(1);
    std::atomic<bool> done{false};
    bool result = false;
    std::thread poster([&] {
        result = request.postAndWaitUntilPerformed();
        done = true;
    });
    const bool served = serveUntil(backend.queue, done);
    if (!served)
        backend.queue.shutdown();
    poster.join();
    LumoHost::installBackend(nullptr);
    ASSERT_TRUE(served);
    EXPECT_TRUE(result);
    EXPECT_EQ(request.performedOn, std::this_thread::get_id());
}

} // namespace
