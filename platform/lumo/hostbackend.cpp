#include "lumo/hostbackend.h"

#include <atomic>

namespace {
std::atomic<HostBackend*>& installedBackend()
{
    static std::atomic<HostBackend*> backend{nullptr};
    return backend;
}
} // namespace

HostBackend::~HostBackend() = default;

namespace LumoHost {
void installBackend(HostBackend* backend)
{
    installedBackend().store(backend);
}
HostBackend* backend()
{
    return installedBackend().load();
}
} // namespace LumoHost
