// Idle requests: performed on the serving thread, in order, and never leaving
// a poster waiting once the host is gone.

#include <atomic>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "fakehost.h"
#include "lumo/idlerequest.h"
#include "lumo/idlerequestqueue.h"

namespace {

class Request : public IdleRequestC
{
public:
    explicit Request(std::function<void()> work) : m_work(std::move(work)) {}
    void perform() override { m_work(); }

private:
    std::function<void()> m_work;
};

TEST(IdleRequest, PostsWaitUntilPerformedOnTheServingThreadInOrderAndAThrowFailsOnlyItsPost)
{
    const std::thread::id serving = std::this_thread::get_id();
    std::vector<int> performed;
    std::vector<bool> results;
    std::atomic<bool> done{false};
    FakeHost host;
    std::thread poster([&] {
        for (const int id : {0, 1, -2, 3}) {
            Request request([&, id] {
                performed.push_back(id);
                EXPECT_EQ(std::this_thread::get_id(), serving);
                if (id < 0)
                    throw id;
            });
            results.push_back(request.postAndWaitUntilPerformed());
            EXPECT_EQ(performed.size(), results.size()) << "returned before it was performed";
        }
        done = true;
    });
    const bool served = host.pumpUntil([&] { return done.load(); });
    host.shutdown();
    poster.join();
    ASSERT_TRUE(served);
    EXPECT_EQ(performed, (std::vector<int>{0, 1, -2, 3}));
    EXPECT_EQ(results, (std::vector<bool>{true, true, false, true}));
}

TEST(IdleRequestQueue, ShutdownReleasesAQueuedWaiterUnperformedAndRefusesLaterPosts)
{
    int performed = 0;
    Request request([&] { ++performed; });
    // The wake call comes once the request is queued.
    IdleRequestQueue queue([&] { queue.shutdown(); });
    EXPECT_FALSE(queue.postAndWait(request));
    EXPECT_FALSE(queue.postAndWait(request));
    EXPECT_FALSE(request.postAndWaitUntilPerformed()) << "no host is installed";
    EXPECT_EQ(performed, 0) << "a refused request was performed";
}

} // namespace
