#include "rfmsg/framereader.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace RFMsgExp::Wire {
namespace {

// The read buffer: many small frames per recv(); larger frames get their own.
constexpr std::size_t kReadBufferSize = 64 * 1024;

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

std::string overLimitText(FrameType type, std::size_t size, std::size_t limit)
{
    return std::string("a ") + frameTypeName(static_cast<unsigned char>(type)) + " frame of " +
           std::to_string(size) + " bytes, over the limit of " + std::to_string(limit) + " bytes";
}

FrameReader::FrameReader(std::uint32_t limit, bool waitsForStart)
    : m_limit(limit), m_waitsForStart(waitsForStart)
{
}

FrameReader::~FrameReader()
{
    std::free(m_data);
}

char* FrameReader::space()
{
    if (receivingPayload())
        return m_payload.data() + m_payloadFilled;
    reserveForNext();
    return m_data + m_end;
}

std::size_t FrameReader::spaceSize() const
{
    if (receivingPayload())
        return m_payload.size() - m_payloadFilled;
    return m_capacity - m_end;
}

void FrameReader::reserveForNext()
{
    if (!m_data) {
        m_data = static_cast<char*>(std::malloc(kReadBufferSize));
        if (!m_data)
            throw std::bad_alloc();
        m_capacity = kReadBufferSize;
    }
    if (m_begin == m_end)
        m_begin = m_end = 0;
    if (m_end < m_capacity)
        return;
    // Full with the start of a frame that fits the buffer (a header always does).
    if (m_begin > 0) {
        std::memmove(m_data, m_data + m_begin, buffered());
        m_end -= m_begin;
        m_begin = 0;
        return;
    }
    // Full with complete frames not yet taken: only append() gets here.
    void* data = std::realloc(m_data, m_capacity * 2);
    if (!data)
        throw std::bad_alloc();
    m_data = static_cast<char*>(data);
    m_capacity *= 2;
}

void FrameReader::commit(std::size_t received)
{
    if (receivingPayload())
        m_payloadFilled += std::min(received, spaceSize());
    else
        m_end += std::min(received, spaceSize());
}

void FrameReader::append(const char* data, std::size_t size)
{
    while (size > 0) {
        if (awaitingStart())
            start();
        char* target = space();
        const std::size_t count = std::min(size, spaceSize());
        std::memcpy(target, data, count);
        commit(count);
        data += count;
        size -= count;
        // Header bytes are looked at as they come, so that a frame is started
        // before its payload is copied in.
        if (m_frameSize == 0 && !m_largeFrame && poll() == Status::Failed)
            return;
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
        m_error = overLimitText(static_cast<FrameType>(header[3]), length, m_limit);
        return false;
    }
    m_frameType = static_cast<FrameType>(header[3]);
    m_frameSize = kHeaderSize + length;
    return true;
}

void FrameReader::start()
{
    if (!awaitingStart())
        return;
    if (m_frameSize > kReadBufferSize) {
        // What already arrived of the payload moves over; the rest is received in place.
        m_payload.resize(m_frameSize - kHeaderSize);
        const std::size_t early = std::min(buffered() - kHeaderSize, m_payload.size());
        std::memcpy(m_payload.data(), m_data + m_begin + kHeaderSize, early);
        m_payloadFilled = early;
        m_begin += kHeaderSize + early;
        m_largeFrame = true;
    }
    m_started = true;
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
    if (!m_started) {
        if (m_waitsForStart)
            return Status::NeedMore;
        start();
    }
    if (m_largeFrame)
        return m_payloadFilled == m_payload.size() ? Status::Ready : Status::NeedMore;
    return buffered() >= m_frameSize ? Status::Ready : Status::NeedMore;
}

FrameReader::Frame FrameReader::front() const
{
    if (m_largeFrame)
        return {m_frameType, m_payload.data(), m_payload.size()};
    return {m_frameType, m_data + m_begin + kHeaderSize, m_frameSize - kHeaderSize};
}

std::string FrameReader::takePayload()
{
    std::string payload;
    payload.swap(m_payload);
    return payload;
}

void FrameReader::pop()
{
    if (m_largeFrame) {
        std::string().swap(m_payload);
        m_payloadFilled = 0;
        m_largeFrame = false;
    } else {
        m_begin += m_frameSize;
    }
    m_frameSize = 0;
    m_started = false;
}

void FrameReader::discard()
{
    std::string().swap(m_payload);
    std::free(m_data);
    m_data = nullptr;
    m_capacity = m_begin = m_end = m_payloadFilled = m_frameSize = 0;
    m_largeFrame = false;
    m_started = false;
}

std::string FrameReader::midFrameDescription() const
{
    if (m_frameSize == 0)
        return std::to_string(buffered()) + " of the " + std::to_string(kHeaderSize) +
               " header bytes of a frame";
    const std::size_t received = m_largeFrame ? kHeaderSize + m_payloadFilled : buffered();
    return std::to_string(received) + " of " + std::to_string(m_frameSize) + " bytes of a " +
           frameTypeName(static_cast<unsigned char>(m_frameType)) + " frame";
}

} // namespace RFMsgExp::Wire
