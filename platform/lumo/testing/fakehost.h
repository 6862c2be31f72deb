#pragma once
// A host backend for unit tests. The test's own thread plays the host's main
// thread: it serves idle requests by pumping while other threads post them.

#include <chrono>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "lumo/hostbackend.h"
#include "lumo/idlerequestqueue.h"

class FakeHost : public HostBackend
{
public:
    struct Call
    {
        std::string function;
        std::vector<BRIOValue> args;
    };

    // Installs itself as the SDK's backend; uninstalls on destruction.
    FakeHost();
    ~FakeHost() override;

    void setLibraries(std::set<std::string> libraries);
    std::vector<Call> calls() const;

    // Performs idle requests until `done` holds or the timeout passes; true when done.
    bool pumpUntil(const std::function<bool()>& done,
                   std::chrono::milliseconds timeout = std::chrono::seconds(10));
    // Releases every waiter and refuses later posts.
    void shutdown() { m_queue.shutdown(); }
    int performed() const { return m_performed; }

    bool postIdleRequest(IdleRequestC& request) override;
    void openWritableLibraries(std::set<std::string>& libraries) override;
    BRIOValue callFunction(const std::string& function,
                           const std::vector<BRIOValue>& args) override;

private:
    IdleRequestQueue m_queue;
    mutable std::mutex m_mutex;
    std::set<std::string> m_libraries;
    std::vector<Call> m_calls;
    int m_performed = 0;
};
