#pragma once

#include <string>

// The name the plug-in prints for a message's event kind; "unknown event type"
// for a value outside the protocol's table.
std::string EventKindName(int kind);
