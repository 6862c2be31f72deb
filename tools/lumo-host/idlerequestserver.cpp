#include "idlerequestserver.h"

#include <exception>
#include <string>

#include "functionrouter.h"
#include "hostinterface.h"
#include "lumo/idlerequest.h"
#include "terminal.h"

namespace {

// Performs the posted request with the interface knowing that an idle
// request is running, so that its statements are journalled "via idle".
class MarkedRequest : public IdleRequestC
{
public:
    MarkedRequest(IdleRequestC& request, HostInterface& interface)
        : m_request(request), m_interface(interface)
    {
    }

    // A request that throws is ended and said on the terminal, then passed on
    // so that its poster learns of the failure.
    void perform() override
    {
        m_interface.beginIdleRequest();
        try {
            m_request.perform();
        } catch (const std::exception& error) {
            m_interface.endIdleRequest();
            Terminal::printMessage(std::string("idle request failed: ") + error.what());
            throw;
        } catch (...) {
            m_interface.endIdleRequest();
            Terminal::printMessage("idle request failed: unknown exception");
            throw;
        }
        m_interface.endIdleRequest();
    }

private:
    IdleRequestC& m_request;
    HostInterface& m_interface;
};

} // namespace

IdleRequestServer::IdleRequestServer(HostInterface& interface, FunctionRouter& functions,
                                     std::vector<std::string> libraries)
    : m_interface(interface), m_functions(functions), m_libraries(std::move(libraries)),
      // A queued call reaches whichever event loop runs on the main thread.
      m_queue([this] {
          QMetaObject::invokeMethod(
              this, [this] { performPending(); }, Qt::QueuedConnection);
      })
{
}

IdleRequestServer::~IdleRequestServer()
{
    m_queue.shutdown();
}

void IdleRequestServer::shutdown()
{
    m_queue.shutdown();
}

bool IdleRequestServer::postIdleRequest(IdleRequestC& request)
{
    if (m_interface.isMainThread()) {
        // Waiting here would wait for ourselves: perform at once.
        MarkedRequest marked(request, m_interface);
        try {
            marked.perform();
        } catch (...) {
            return false;
        }
        return true;
    }
    MarkedRequest marked(request, m_interface);
    return m_queue.postAndWait(marked);
}

void IdleRequestServer::openWritableLibraries(std::set<std::string>& libraries)
{
    libraries.insert(m_libraries.begin(), m_libraries.end());
}

BRIOValue IdleRequestServer::callFunction(const std::string& function,
                                          const std::vector<BRIOValue>& args)
{
    if (!m_interface.isMainThread())
        return BRIOValue();
    if (!m_functions.hasFunction(function)) {
        Terminal::printMessage("script call of unknown function " + function);
        return BRIOValue();
    }
    ScriptEngine::CallResult result = m_functions.callFunction(function, args);
    if (!result.ok) {
        Terminal::printMessage(function + ": " + result.reason);
        return BRIOValue();
    }
    return result.value;
}

void IdleRequestServer::performPending()
{
    m_queue.performPending();
}
