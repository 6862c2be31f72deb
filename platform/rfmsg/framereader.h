#pragma once
// Internal: cuts a byte stream into frames. Headers and small frames are
// received into a fixed read buffer; a larger frame, once started, straight
// into a buffer of its declared size, which the decoder may take over.
//
// A frame is started when its header has arrived: at once, or, for a reader
// that waits for its owner, when the owner calls start() (the bridge first
// reserves the frame's memory). Until then nothing of its payload is
// allocated and the owner should not read on.

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

    explicit FrameReader(std::uint32_t limit = kDefaultFrameLimit, bool waitsForStart = false);
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
    // NeedMore also while a frame waits for start().
    Status poll();
    // A frame whose header arrived waits for start(): its type and payload size.
    bool awaitingStart() const { return m_frameSize != 0 && !m_started; }
    Frame announced() const { return {m_frameType, nullptr, m_frameSize - kHeaderSize}; }
    // Allocates the waiting frame's buffer (throws std::bad_alloc).
    void start();
    // From start() to pop().
    bool started() const { return m_started; }
    // The front frame; valid until pop() or the next space().
    Frame front() const;
    // Whether the front frame has a buffer of its own, which takePayload() hands over.
    bool ownsPayload() const { return m_largeFrame; }
    std::string takePayload();
    // Drops the front frame and its buffer.
    void pop();
    // Gives every buffer back; the reader is not used again.
    void discard();

    // What was received instead of a frame, to follow "sent": "a frame of unknown type 9".
    const std::string& error() const { return m_error; }
    // True when the bytes of an unfinished frame are buffered.
    bool midFrame() const { return m_largeFrame || m_end > m_begin; }
    // "120 of 5008 bytes of a MESSAGE frame", "3 of the 8 header bytes".
    std::string midFrameDescription() const;
    std::size_t capacity() const
    {
        return m_capacity + (m_payload.empty() ? 0 : m_payload.capacity());
    }

private:
    std::size_t buffered() const { return m_end - m_begin; }
    // Bytes go to the large frame's own buffer (else to the read buffer).
    bool receivingPayload() const { return m_largeFrame && m_payloadFilled < m_payload.size(); }
    bool parseHeader();
    void reserveForNext();

    std::uint32_t m_limit;
    bool m_waitsForStart;
    char* m_data = nullptr;
    std::size_t m_capacity = 0;
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
    // Size of the front frame (header included) once its header was read.
    std::size_t m_frameSize = 0;
    FrameType m_frameType = FrameType::Message;
    bool m_started = false;
    // The front frame is received into m_payload (its header is consumed).
    bool m_largeFrame = false;
    std::string m_payload;
    std::size_t m_payloadFilled = 0;
    Status m_status = Status::NeedMore;
    std::string m_error;
};

// "a MESSAGE frame of 70000 bytes, over the limit of 65536 bytes"
std::string overLimitText(FrameType type, std::size_t size, std::size_t limit);

} // namespace RFMsgExp::Wire
