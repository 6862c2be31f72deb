#pragma once
// The host's own terminal output. While the interactive prompt waits for
// input, lines printed meanwhile (idle requests run then) go above the prompt
// and the line being typed is redrawn below them. Main thread only.

#include <string>

namespace Terminal {
// `text` as it is, on standard output or standard error.
void writeOut(const std::string& text);
void writeError(const std::string& text);
// Each line of `text` behind `prefix`, on standard output ("[info] ...").
void printLines(const std::string& prefix, const std::string& text);
// A "lumo-host: ..." line on standard error.
void printMessage(const std::string& message);

// Set by the interactive input while readline shows its prompt.
void setPromptActive(bool active);
} // namespace Terminal
