#pragma once
// Internal: writes one frame, header and CBOR payload. Large strings are not
// copied but referenced, so a 200 MB text goes to the socket straight from the
// caller's memory; the referenced strings must outlive the encoder's use.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <sys/uio.h>

#include "rfmsg/wireformat.h"

namespace RFMsgExp::Wire {

class FrameEncoder
{
public:
    explicit FrameEncoder(FrameType type);

    void beginMap(std::size_t entries);
    void beginArray(std::size_t items);
    // A map key or any other text meant for people: a CBOR text string.
    void text(std::string_view value);
    // Message content: a CBOR byte string (it may hold any 8-bit bytes).
    void bytes(const std::string& value);
    void integer(std::int64_t value);
    void number(double value);

    // Total frame size, header included. Throws std::length_error when the
    // payload does not fit a frame's 32-bit length (so do pieces() and flatten()).
    std::size_t size() const;
    // The frame as pieces for writev(); valid while the encoder lives.
    std::vector<iovec> pieces() const;
    // The frame in one buffer.
    std::string flatten() const;
    // The same, taking the encoder's own buffer where nothing is referenced.
    std::string take() &&;

private:
    struct Piece
    {
        std::size_t offset; // into m_bytes, when external is null
        std::size_t size;
        const char* external;
    };
    void head(unsigned major, std::uint64_t value);
    void raw(const void* data, std::size_t size);
    void finishHeader() const;

    mutable std::string m_bytes;
    std::vector<Piece> m_pieces;
    std::size_t m_size = 0;
};

} // namespace RFMsgExp::Wire
