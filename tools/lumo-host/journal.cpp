#include "journal.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "journalrecord.h"

Journal::~Journal()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

bool Journal::open(const std::string& path, std::string* error)
{
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) {
        if (error)
            *error = "cannot write the journal " + path + ": " + std::strerror(errno);
        return false;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    const int previous = m_fd.exchange(fd);
    if (previous >= 0)
        ::close(previous);
    return true;
}

void Journal::write(const JournalRecord& record)
{
    if (!isOpen())
        return;
    std::string line = record.text();
    line += '\n';
    std::lock_guard<std::mutex> lock(m_mutex);
    // No buffer of our own: a line is in the file once write() returned.
    const char* data = line.data();
    std::size_t left = line.size();
    while (left > 0) {
        const ssize_t written = ::write(m_fd, data, left);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return; // a full disk loses the line, as it would any other output
        data += written;
        left -= static_cast<std::size_t>(written);
    }
}
