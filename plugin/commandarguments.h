#pragma once
// Reading a script command's arguments through the host's BRIO interface.

#include "lumo/brio.h"

namespace CommandArguments {
// True when every argument at 0..count-1 is of the host's string type; stops
// at the first that is not.
bool allStrings(BRIOInterface& brio, int count);
// Fetches argument `index` as a string. `handle` stays null when the host
// refuses; the text is then null too. Valid until the handle is released.
const char* fetchString(BRIOInterface& brio, int index, BRIOValueHandle& handle);
// Releases a fetched handle (a null one is no handle and is skipped).
void release(BRIOInterface& brio, BRIOValueHandle handle);
} // namespace CommandArguments
