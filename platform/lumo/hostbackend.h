#pragma once
// Host side of the SDK: what a running host provides behind the plug-in-facing
// calls (idle requests, script calls, design libraries). Plug-ins never use it.

#include <set>
#include <string>
#include <vector>

#include "lumo/brioscript.h"
#include "lumo/lumoexport.h"

class IdleRequestC;

class LUMO_SDK_EXPORT HostBackend
{
public:
    virtual ~HostBackend();

    // Any thread. Must return only after request.perform() has run on the
    // host's main thread, or return false at once without performing it.
    virtual bool postIdleRequest(IdleRequestC& request) = 0;
    virtual void openWritableLibraries(std::set<std::string>& libraries) = 0;
    virtual BRIOValue callFunction(const std::string& function,
                                   const std::vector<BRIOValue>& args) = 0;
};

namespace LumoHost {
// Installs the backend that serves the SDK calls; null uninstalls. The backend
// is not owned and must outlive its installation.
LUMO_SDK_EXPORT void installBackend(HostBackend* backend);
LUMO_SDK_EXPORT HostBackend* backend();
} // namespace LumoHost
