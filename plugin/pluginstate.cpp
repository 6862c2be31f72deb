#include "plugin/pluginstate.h"

namespace PluginState {
namespace {
// Function-local statics: no constructors run when the host loads the library.
BRIOInterface*& brioSlot()
{
    static BRIOInterface* brio = nullptr;
    return brio;
}
XServerLUMO*& serverSlot()
{
    static XServerLUMO* server = nullptr;
    return server;
}
} // namespace

BRIOInterface* brio()
{
    return brioSlot();
}
void setBrio(BRIOInterface* brio)
{
    brioSlot() = brio;
}
XServerLUMO* server()
{
    return serverSlot();
}
void setServer(XServerLUMO* server)
{
    serverSlot() = server;
}
} // namespace PluginState
