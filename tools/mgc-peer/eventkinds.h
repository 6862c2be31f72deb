#pragma once
// The event kinds of messages, with their names.

#include <optional>
#include <string>

namespace EventKinds {

// The kind's name, or "unknown event type".
std::string nameOf(int kind);
// A kind given as a number ("212") or a name ("eDoc_LUMONetList", any letter case).
std::optional<int> parse(const std::string& text);

} // namespace EventKinds
