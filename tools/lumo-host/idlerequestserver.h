#pragma once
// The host backend behind the SDK: idle requests posted from any thread are
// performed on the main thread by the Qt event loop (also by a nested one,
// such as a modal dialog's), script calls by name, the open libraries.

#include <QObject>

#include <string>
#include <vector>

#include "lumo/hostbackend.h"
#include "lumo/idlerequestqueue.h"

class FunctionRouter;
class HostInterface;

class IdleRequestServer : public QObject, public HostBackend
{
    Q_OBJECT
public:
    // Lives on the main thread.
    IdleRequestServer(HostInterface& interface, FunctionRouter& functions,
                      std::vector<std::string> libraries);
    ~IdleRequestServer() override;

    // Refuses later posts and releases every waiting poster. Main thread.
    void shutdown();

    // Any thread: blocks until the main loop has performed the request.
    bool postIdleRequest(IdleRequestC& request) override;
    void openWritableLibraries(std::set<std::string>& libraries) override;
    // Main thread; the null value elsewhere or when the call fails.
    BRIOValue callFunction(const std::string& function,
                           const std::vector<BRIOValue>& args) override;

private:
    void performPending();

    HostInterface& m_interface;
    FunctionRouter& m_functions;
    std::vector<std::string> m_libraries;
    IdleRequestQueue m_queue;
};
