#pragma once
// Internal: constants of the wire protocol (docs/wire-protocol.md).

#include <cstddef>
#include <cstdint>

namespace RFMsgExp::Wire {

// Every frame starts with "RF", the frame format version, the frame type and
// the payload length (32-bit big-endian); the payload is one CBOR item.
constexpr unsigned char kMagic[2] = {'R', 'F'};
constexpr unsigned char kFrameVersion = 1;
constexpr std::size_t kHeaderSize = 8;
// Version of the conversation (announcement, messages) carried in HELLO/WELCOME.
constexpr int kProtocolVersion = 1;
constexpr std::uint32_t kDefaultFrameLimit = 1u << 30;
// The library's version, as XBridge::GetVersion() and WELCOME give it.
constexpr const char* kLibraryVersion = "1.0";

enum class FrameType : unsigned char { Hello = 1, Welcome = 2, Message = 3, Close = 4 };

// "HELLO", "WELCOME", …; nullptr for a value that is not a frame type.
const char* frameTypeName(unsigned char type);

} // namespace RFMsgExp::Wire
