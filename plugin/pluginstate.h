#pragma once
// Process-wide state, written on the host's main thread at registration and
// only read afterwards.

class BRIOInterface;
class XServerLUMO;

namespace PluginState {
// The host's script interface obtained at registration; null before.
BRIOInterface* brio();
void setBrio(BRIOInterface* brio);
// The one connection server; created at the first registration, never deleted.
XServerLUMO* server();
void setServer(XServerLUMO* server);
} // namespace PluginState
