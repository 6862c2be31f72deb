// Idle requests: performed on the serving thread, in order, and never leaving
// a poster waiting once the host is gone.

#include <atomic>
#include <chrono>
#include <functional>
#include <numeric>
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

// Runs `post` on a thread of its own while this thread serves `queue`; false
// when it did not finish within ten seconds (the poster is then released).
bool postWhileServing(IdleRequestQueue& queue, const std::function<void()>& post)
{
    std::atomic<bool> done{false};
    std::thread poster([&] {
        post();
        done = true;
    });
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!done && std::chrono::steady_clock::now() < deadline)
        queue.waitAndPerform(5ms);
    const bool finished = done;
    if (!finished)
        queue.shutdown();
    poster.join();
    return finished;
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

TEST(IdleRequestQueue, PostsOfOneThreadWaitUntilPerformedOnTheServingThreadInOrder)
{
    IdleRequestQueue queue;
    std::vector<int> order;
    std::vector<std::thread::id> threads;
    ASSERT_TRUE(postWhileServing(queue, [&] {
        for (int id = 0; id < 20; ++id) {
            RecordingRequest request(id, &order);
            EXPECT_TRUE(queue.postAndWait(request));
            threads.push_back(request.performedOn); // performed before the post returned
        }
    }));
    std::vector<int> expected(20);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(order, expected);
    EXPECT_EQ(threads, std::vector<std::thread::id>(20, std::this_thread::get_id()));
}

TEST(IdleRequest, GoesThroughTheInstalledBackendAndIsRefusedUnperformedWithoutOne)
{
    QueueBackend backend;
    LumoHost::installBackend(&backend);
    RecordingRequest request(1);
    bool result = false;
    const bool served =
        postWhileServing(backend.queue, [&] { result = request.postAndWaitUntilPerformed(); });
    LumoHost::installBackend(nullptr);
    ASSERT_TRUE(served);
    EXPECT_TRUE(result);
    EXPECT_EQ(request.performedOn, std::this_thread::get_id());
    RecordingRequest refused(2);
    EXPECT_FALSE(refused.postAndWaitUntilPerformed());
    EXPECT_EQ(refused.performedOn, std::thread::id());
}

} // namespace
