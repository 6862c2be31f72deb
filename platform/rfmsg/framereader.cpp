#include "rfmsg/framereader.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace RFMsgExp::Wire {
namespace {

// Enough for many small frames per recv(); large frames grow the buffer.
constexpr std::size_t kInitialCapacity = 64 * 1024;

std::string hexBytes(const char* data, std::size_t size)
{
    std::string text;
    char byte[4];
    for (std::size_t i = 0; i < size; ++i) {
        std::snprintf(byte, sizeof byte, i ? " %02x" : "%02x", static_cast<unsigned char>(data[i]));
        text += byte;
    }
    return text;
}

} // namespace

FrameReader::FrameReader(std::uint32_t limit) : m_limit(limit) {}

FrameReader::~FrameReader()
{
    std::free(m_data);
}

void FrameReader::resize(std::size_t capacity)
{
    // realloc moves large blocks by remapping pages instead of copying them.
    void* data = std::realloc(m_data, capacity);
    if (!data)
        throw std::bad_alloc();
    m_data = static_cast<char*>(data);
    m_capacity = capacity;
}

char* FrameReader::space()
{
    reserveForNext();
    return m_data + m_end;
}

std::size_t FrameReader::spaceSize() const
{
    return m_capacity - m_end;
}

void FrameReader::reserveForNext()
{
    if (!m_data)
        resize(kInitialCapacity);
    if (m_begin == m_end)
        m_begin = m_end = 0;
    if (m_end < m_capacity)
        return;
    if (m_begin > 0) {
        std::memmove(m_data, m_data + m_begin, buffered());
        m_end -= m_begin;
        m_begin = 0;
        return;
    }
    // Full with the start of one frame: grow with what arrived, at most to the
    // frame's size (a header, always smaller than the buffer, is never the case).
    std::size_t capacity = m_capacity * 2;
    if (m_frameSize > m_capacity)
        capacity = std::min(capacity, m_frameSize);
    resize(capacity);
}

void FrameReader::commit(std::size_t received)
{
    m_end += std::min(received, spaceSize());
}

void FrameReader::append(const char* data, std::size_t size)
{
    while (size > 0) {
        char* target = space();
        const std::size_t count = std::min(size, spaceSize());
        std::memcpy(target, data, count);
        commit(count);
        data += count;
        size -= count;
    }
}

bool FrameReader::parseHeader()
{
    const unsigned char* header = reinterpret_cast<const unsigned char*>(m_data + m_begin);
    const std::size_t available = std::min(buffered(), kHeaderSize);
    // Reject foreign bytes as soon as they show, not only once a header is complete.
    const std::size_t magicBytes = std::min(available, sizeof kMagic);
    if (std::memcmp(header, kMagic, magicBytes) != 0) {
        m_error = "data that is not a frame of this protocol (it starts with the bytes " +
                  hexBytes(m_data + m_begin, available) + ")";
        return false;
    }
    if (available > 2 && header[2] != kFrameVersion) {
        m_error = "a frame of format version " + std::to_string(header[2]) +
                  ", which is not supported (this side speaks version " +
                  std::to_string(kFrameVersion) + ")";
        return false;
    }
    if (available > 3 && !frameTypeName(header[3])) {
        m_error = "a frame of unknown type " + std::to_string(header[3]);
        return false;
    }
    if (available < kHeaderSize)
        return true;
    const std::uint32_t length = (std::uint32_t(header[4]) << 24) |
                                 (std::uint32_t(header[5]) << 16) |
                                 (std::uint32_t(header[6]) << 8) | std::uint32_t(header[7]);
    if (length > m_limit) {
        m_error = std::string("a ") + frameTypeName(header[3]) + " frame of " +
                  std::to_string(length) + " bytes, over the limit of " + std::to_string(m_limit) +
                  " bytes";
        return false;
    }
    m_frameType = static_cast<FrameType>(header[3]);
    m_frameSize = kHeaderSize + length;
    return true;
}

FrameReader::Status FrameReader::poll()
{
    if (m_status == Status::Failed)
        return m_status;
    if (m_frameSize == 0) {
        if (buffered() == 0)
            return Status::NeedMore;
        if (!parseHeader()) {
            m_status = Status::Failed;
            return m_status;
        }
        if (m_frameSize == 0)
            return Status::NeedMore;
    }
    return buffered() >= m_frameSize ? Status::Ready : Status::NeedMore;
}

FrameReader::Frame FrameReader::front() const
{
    return {m_frameType, m_data + m_begin + kHeaderSize, m_frameSize - kHeaderSize};
}

void FrameReader::pop()
{
    m_begin += m_frameSize;
    m_frameSize = 0;
    if (m_capacity > kInitialCapacity && buffered() <= kInitialCapacity) {
        std::memmove(m_data, m_data + m_begin, buffered());
        m_end -= m_begin;
        m_begin = 0;
        resize(kInitialCapacity);
    }
}

std::string FrameReader::midFrameDescription() const
{
    if (m_frameSize == 0)
        return std::to_string(buffered()) + " of the " + std::to_string(kHeaderSize) +
               " header bytes of a frame";
    return std::to_string(buffered()) + " of " + std::to_string(m_frameSize) + " bytes of a " +
           frameTypeName(static_cast<unsigned char>(m_frameType)) + " frame";
}

} // namespace RFMsgExp::Wire
