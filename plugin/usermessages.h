#pragma once
// What the plug-in tells the user, through the host, from any thread; and the
// small text and file routines that the exchange shares.

#include <string>

// "Tessel Error: " line in the host's information window, and the same as a log line.
// The message is put in as it stands: callers escape quotes they may hold.
void ReportError(std::string message);
// "Tessel Info: " line in the host's information window, and the same as a log line.
void ReportInfo(std::string message);
// A "Tessel:" line on the host script engine's standard error.
void WriteLog(std::string message);

// A backslash before every double quote.
std::string EscapeQuotes(const std::string& text);
// Every backslash replaced by a forward slash; the length does not change.
std::string ToForwardSlashes(const std::string& text);

// Appends the file's lines to `text`, each followed by one line feed, and one
// more line feed at the end of the file (an empty file gives a single one).
// False, with a line on the process's standard error, when the file cannot be
// opened; `text` is then unchanged. Deletes the file afterwards when asked.
bool ReadTextFile(std::string& text, const char* path, bool removeAfter);
// Writes `text` as the whole content of the file. Always true, also when the
// file could not be opened.
bool WriteTextFile(const std::string& text, const std::string& path);
