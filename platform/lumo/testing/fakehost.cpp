#include "fakehost.h"

#include "lumo/idlerequest.h"

FakeHost::FakeHost()
{
    LumoHost::installBackend(this);
}

FakeHost::~FakeHost()
{
    m_queue.shutdown();
    if (LumoHost::backend() == this)
        LumoHost::installBackend(nullptr);
}

void FakeHost::setLibraries(std::set<std::string> libraries)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_libraries = std::move(libraries);
}

std::vector<FakeHost::Call> FakeHost::calls() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_calls;
}

bool FakeHost::pumpUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        m_performed += m_queue.waitAndPerform(std::chrono::milliseconds(5));
    }
    return true;
}

bool FakeHost::postIdleRequest(IdleRequestC& request)
{
    return m_queue.postAndWait(request);
}

void FakeHost::openWritableLibraries(std::set<std::string>& libraries)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    libraries.insert(m_libraries.begin(), m_libraries.end());
}

BRIOValue FakeHost::callFunction(const std::string& function, const std::vector<BRIOValue>& args)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_calls.push_back({function, args});
    return BRIOValue();
}
