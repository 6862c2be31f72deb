#include "lumo/idlerequest.h"

#include "lumo/hostbackend.h"

IdleRequestC::IdleRequestC() = default;
IdleRequestC::~IdleRequestC() = default;

bool IdleRequestC::postAndWaitUntilPerformed()
{
    HostBackend* host = LumoHost::backend();
    return host != nullptr && host->postIdleRequest(*this);
}
