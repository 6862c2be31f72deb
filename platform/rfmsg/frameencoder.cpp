#include "rfmsg/frameencoder.h"

#include <cstring>
#include <limits>

#include <stdexcept>

namespace RFMsgExp::Wire {
namespace {

// Shorter strings are copied: a piece per tiny string would cost more than the copy.
constexpr std::size_t kReferenceFrom = 4096;

} // namespace

FrameEncoder::FrameEncoder(FrameType type)
{
    // Most frames are small: one allocation for the lot.
    m_bytes.reserve(512);
    m_pieces.reserve(4);
    const char header[kHeaderSize] = {
        char(kMagic[0]), char(kMagic[1]), char(kFrameVersion), char(type), 0, 0, 0, 0};
    raw(header, sizeof header);
}

void FrameEncoder::raw(const void* data, std::size_t size)
{
    if (m_pieces.empty() || m_pieces.back().external)
        m_pieces.push_back({m_bytes.size(), 0, nullptr});
    m_bytes.append(static_cast<const char*>(data), size);
    m_pieces.back().size += size;
    m_size += size;
}

void FrameEncoder::head(unsigned major, std::uint64_t value)
{
    unsigned char bytes[9];
    std::size_t count = 1;
    const unsigned char type = static_cast<unsigned char>(major << 5);
    if (value < 24) {
        bytes[0] = type | static_cast<unsigned char>(value);
    } else {
        unsigned width = value <= 0xff ? 1 : value <= 0xffff ? 2 : value <= 0xffffffffu ? 4 : 8;
        bytes[0] = type | static_cast<unsigned char>(width == 1   ? 24
                                                     : width == 2 ? 25
                                                     : width == 4 ? 26
                                                                  : 27);
        for (unsigned i = 0; i < width; ++i)
            bytes[1 + i] = static_cast<unsigned char>(value >> (8 * (width - 1 - i)));
        count += width;
    }
    raw(bytes, count);
}

void FrameEncoder::beginMap(std::size_t entries)
{
    head(5, entries);
}

void FrameEncoder::beginArray(std::size_t items)
{
    head(4, items);
}

void FrameEncoder::text(std::string_view value)
{
    head(3, value.size());
    raw(value.data(), value.size());
}

void FrameEncoder::bytes(const std::string& value)
{
    head(2, value.size());
    if (value.size() < kReferenceFrom) {
        raw(value.data(), value.size());
        return;
    }
    m_pieces.push_back({0, value.size(), value.data()});
    m_size += value.size();
}

void FrameEncoder::integer(std::int64_t value)
{
    if (value >= 0)
        head(0, static_cast<std::uint64_t>(value));
    else
        head(1, static_cast<std::uint64_t>(-(value + 1)));
}

void FrameEncoder::number(double value)
{
    std::uint64_t bits;
    static_assert(sizeof bits == sizeof value);
    std::memcpy(&bits, &value, sizeof bits);
    unsigned char bytes[9];
    bytes[0] = (7 << 5) | 27;
    for (unsigned i = 0; i < 8; ++i)
        bytes[1 + i] = static_cast<unsigned char>(bits >> (8 * (7 - i)));
    raw(bytes, sizeof bytes);
}

void FrameEncoder::finishHeader() const
{
    const std::size_t payload = m_size - kHeaderSize;
    if (payload > std::numeric_limits<std::uint32_t>::max())
        throw std::length_error("a message of " + std::to_string(payload) +
                                " bytes does not fit in one frame (at most 4294967295 bytes)");
    for (unsigned i = 0; i < 4; ++i)
        m_bytes[4 + i] = static_cast<char>(payload >> (8 * (3 - i)));
}

std::size_t FrameEncoder::size() const
{
    finishHeader();
    return m_size;
}

std::vector<iovec> FrameEncoder::pieces() const
{
    finishHeader();
    std::vector<iovec> result;
    result.reserve(m_pieces.size());
    for (const Piece& piece : m_pieces) {
        const char* data = piece.external ? piece.external : m_bytes.data() + piece.offset;
        result.push_back({const_cast<char*>(data), piece.size});
    }
    return result;
}

std::string FrameEncoder::flatten() const
{
    finishHeader();
    std::string frame;
    frame.reserve(m_size);
    for (const Piece& piece : m_pieces)
        frame.append(piece.external ? piece.external : m_bytes.data() + piece.offset, piece.size);
    return frame;
}

std::string FrameEncoder::take() &&
{
    if (m_pieces.size() != 1)
        return flatten();
    finishHeader();
    return std::move(m_bytes);
}

} // namespace RFMsgExp::Wire
