#include "journal.h"

#include <cerrno>
#include <cstring>

#include "journalrecord.h"

Journal::~Journal()
{
    if (m_file)
        std::fclose(m_file);
}

bool Journal::open(const std::string& path, std::string* error)
{
    std::FILE* file = std::fopen(path.c_str(), "w");
    if (!file) {
        if (error)
            *error = "cannot write the journal " + path + ": " + std::strerror(errno);
        return false;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_file)
        std::fclose(m_file);
    m_file = file;
    return true;
}

void Journal::write(const JournalRecord& record)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_file)
        return;
    const std::string line = record.text() + "\n";
    std::fwrite(line.data(), 1, line.size(), m_file);
    std::fflush(m_file);
}
