// libFuzzer target: arbitrary bytes as they could arrive on a connection, cut
// into frames and decoded as the bridge and the peer client do. Besides not
// crashing, leaking or over-allocating (the decoder's own limit on what a
// message may take is well within -malloc_limit_mb), a message that decodes
// must encode and decode again to the same content.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "rfmsg/framereader.h"
#include "rfmsg/wirecodec.h"

using namespace RFMsgExp;

namespace {

bool sameContent(const MessageContent& a, const MessageContent& b)
{
    if (a.kind != b.kind || a.properties != b.properties || a.text != b.text ||
        a.document.has_value() != b.document.has_value())
        return false;
    if (!a.document)
        return true;
    const DocumentContent& x = *a.document;
    const DocumentContent& y = *b.document;
    if (x.label != y.label || x.name != y.name || x.path != y.path ||
        x.regions.size() != y.regions.size() || x.portTypes.size() != y.portTypes.size())
        return false;
    for (std::size_t r = 0; r < x.regions.size(); ++r) {
        const RegionContent& p = x.regions[r];
        const RegionContent& q = y.regions[r];
        if (p.name != q.name || p.netlist != q.netlist || p.egs != q.egs ||
            p.ports.size() != q.ports.size())
            return false;
        for (std::size_t i = 0; i < p.ports.size(); ++i) {
            const PortContent& m = p.ports[i];
            const PortContent& n = q.ports[i];
            // Compared bit for bit: NaN must survive as NaN.
            const auto same = [](double u, double v) { return u == v || (u != u && v != v); };
            if (m.name != n.name || m.enabled != n.enabled || m.type != n.type ||
                m.label != n.label || m.note != n.note || !same(m.value, n.value) ||
                !same(m.x, n.x) || !same(m.y, n.y))
                return false;
        }
    }
    for (std::size_t t = 0; t < x.portTypes.size(); ++t)
        if (x.portTypes[t].id != y.portTypes[t].id || x.portTypes[t].flag != y.portTypes[t].flag ||
            x.portTypes[t].name != y.portTypes[t].name)
            return false;
    return true;
}

void decodeFrame(Wire::FrameReader& reader)
{
    const Wire::FrameReader::Frame frame = reader.front();
    try {
        switch (frame.type) {
        case Wire::FrameType::Hello:
            Wire::decodeHello(frame.payload, frame.size);
            break;
        case Wire::FrameType::Welcome:
            Wire::decodeWelcome(frame.payload, frame.size);
            break;
        case Wire::FrameType::Close:
            Wire::decodeClose(frame.payload, frame.size);
            break;
        case Wire::FrameType::Message: {
            // A frame received into its own buffer is decoded in it, as the bridge does.
            const MessageContent content = reader.ownsPayload()
                                               ? Wire::decodeMessage(reader.takePayload())
                                               : Wire::decodeMessage(frame.payload, frame.size);
            const std::string again = Wire::encodeMessage(content).flatten();
            const MessageContent back = Wire::decodeMessage(again.data() + Wire::kHeaderSize,
                                                            again.size() - Wire::kHeaderSize);
            if (!sameContent(content, back))
                std::abort();
            break;
        }
        }
    } catch (const Wire::DecodeError&) {
        // A malformed payload is reported, which is all that is asked.
    }
}

} // namespace

// A small limit, so that claimed lengths beyond it are exercised too.
constexpr std::uint32_t kLimit = 1u << 20;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    // The first byte says where the stream is split, as reads split it.
    const std::size_t split = size > 1 ? data[0] % size : 0;
    const char* bytes = reinterpret_cast<const char*>(data) + 1;
    const std::size_t length = size - 1;
    Wire::FrameReader reader(kLimit);
    const std::size_t pieces[2] = {std::min(split, length), length - std::min(split, length)};
    std::size_t offset = 0;
    for (std::size_t piece : pieces) {
        reader.append(bytes + offset, piece);
        offset += piece;
        for (;;) {
            const Wire::FrameReader::Status status = reader.poll();
            if (status == Wire::FrameReader::Status::Failed)
                return 0;
            if (status == Wire::FrameReader::Status::NeedMore)
                break;
            decodeFrame(reader);
            reader.pop();
        }
        // Never more room than what arrived asks for (twice, as it grows),
        // besides the declared size of the one frame being received.
        if (reader.capacity() > 2 * (length + 1) + (64u << 10) + kLimit)
            std::abort();
    }
    return 0;
}
