#pragma once
// Internal: cuts a byte stream into frames. Receives straight into its own
// buffer, which grows only with the bytes that actually arrived (never to what
// a length prefix claims) and shrinks back once a large frame is consumed.

#include <cstddef>
#include <cstdint>
#include <string>

#include "rfmsg/wireformat.h"

namespace RFMsgExp::Wire {

class FrameReader
{
public:
    enum class Status { NeedMore, Ready, Failed };

    struct Frame
    {
        FrameType type;
        const char* payload;
        std::size_t size;
    };

    explicit FrameReader(std::uint32_t limit = kDefaultFrameLimit);
    ~FrameReader();
    FrameReader(const FrameReader&) = delete;
    FrameReader& operator=(const FrameReader&) = delete;

    // Room for the next bytes from the socket (never empty); commit() what arrived.
    char* space();
    std::size_t spaceSize() const;
    void commit(std::size_t received);
    // Copies `size` bytes in (for tests and the fuzzer).
    void append(const char* data, std::size_t size);

    // Whether a complete frame is at the front. Failed is final: error() says why.
    Status poll();
    // The front frame; valid until pop() or the next space().
    Frame front() const;
    // Drops the front frame and gives back a buffer grown for it.
    void pop();

    // What was received instead of a frame, to follow "sent": "a frame of unknown type 9".
    const std::string& error() const { return m_error; }
    // True when the bytes of an unfinished frame are buffered.
    bool midFrame() const { return m_end > m_begin; }
    // "120 of 5008 bytes of a MESSAGE frame", "3 of the 8 header bytes".
    std::string midFrameDescription() const;
    std::size_t capacity() const { return m_capacity; }

private:
    std::size_t buffered() const { return m_end - m_begin; }
    bool parseHeader();
    void reserveForNext();
    void resize(std::size_t capacity);

    std::uint32_t m_limit;
    char* m_data = nullptr;
    std::size_t m_capacity = 0;
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
    // Size of the front frame (header included) once its header was read.
    std::size_t m_frameSize = 0;
    FrameType m_frameType = FrameType::Message;
    Status m_status = Status::NeedMore;
    std::string m_error;
};

} // namespace RFMsgExp::Wire
