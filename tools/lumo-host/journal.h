#pragma once
// The host's journal: one JSON object per line, flushed per line, in the
// order in which the records were written. Disabled until opened.

#include <cstdio>
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
    bool isOpen() const { return m_file != nullptr; }

    // Any thread.
    void write(const JournalRecord& record);

private:
    std::mutex m_mutex;
    std::FILE* m_file = nullptr;
};
