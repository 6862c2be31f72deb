// The plug-in's two exported entry points.

#include "lumo/brio.h"
#include "lumo/pluginregistry.h"
#include "plugin/brioconstants.h"
#include "plugin/commands.h"
#include "plugin/pluginstate.h"
#include "server/xserverlumo.h"

#define KIVA_EXPORT __attribute__((visibility("default")))

namespace {
constexpr int LibraryVersion = 100;
constexpr int LowestInterfaceVersion = 1002;
constexpr int HighestInterfaceVersion = 1999;
constexpr char NoInterface[] = "Tessel plugin failed to load the BRIO interface";
constexpr char IncompatibleInterface[] = "Tessel plugin found an incompatible BRIO interface";
} // namespace

extern "C" KIVA_EXPORT int GetLibraryVersion()
{
    return LibraryVersion;
}

extern "C" KIVA_EXPORT int RegisterLibraryContents(PluginRegistry* registry)
{
    if (!registry)
        return 0;
    try {
        auto* brio =
            static_cast<BRIOInterface*>(registry->find_interface(BrioConstants::InterfaceName));
        PluginState::setBrio(brio);
        if (!brio)
            return registry->report_load_error(NoInterface);
        // Compared directly: subtracting first would overflow for versions
        // near the smallest int.
        const int version = brio->interface_version();
        if (version < LowestInterfaceVersion || version > HighestInterfaceVersion)
            return registry->report_load_error(IncompatibleInterface);
        if (!PluginState::server())
            PluginState::setServer(new XServerLUMO());
        const bool accepted = brio->register_library(0, 0, 0, 1, Commands::CommandLibraryBlock());
        PluginState::server()->setCommandsRegistered(accepted);
    } catch (...) {
        // Nothing thrown may cross into the host.
    }
    return 0;
}
