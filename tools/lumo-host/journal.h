#pragma once
// The host's journal: one JSON object per line, each line handed to the
// system in one write() as it is recorded (so it is in the file at once), in
// the order in which the records were written. Disabled until opened.

#include <atomic>
#include <mutex>
#include <string>

class JournalRecord;

class Journal
{
public:
    Journal() = default;
    ~Journal();
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    // Creates or truncates the file; false and a reason naming the path otherwise.
    bool open(const std::string& path, std::string* error);
    // Callers on busy paths skip building records nobody will read.
    bool isOpen() const { return m_fd.load() >= 0; }

    // Any thread.
    void write(const JournalRecord& record);

private:
    std::mutex m_mutex;
    std::atomic<int> m_fd{-1};
};
