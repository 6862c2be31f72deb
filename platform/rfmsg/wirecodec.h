#pragma once
// Internal: the payloads of the four frame types (docs/wire-protocol.md).
// Encoders return a FrameEncoder that may reference the given strings; decoders
// throw DecodeError saying which field is wrong and how.

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "rfmsg/frameencoder.h"
#include "rfmsg/messagecontent.h"

namespace RFMsgExp::Wire {

class DecodeError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

struct Hello
{
    std::string app;
    int protocol = kProtocolVersion;
};

struct Welcome
{
    int number = 0;
    int protocol = kProtocolVersion;
    std::string library;
    std::string machine;
    std::uint32_t frameLimit = kDefaultFrameLimit;
};

FrameEncoder encodeHello(const Hello& hello);
FrameEncoder encodeWelcome(const Welcome& welcome);
FrameEncoder encodeClose(const std::string& reason);
// References the content's large strings: keep `content` alive while sending.
FrameEncoder encodeMessage(const MessageContent& content);

Hello decodeHello(const char* payload, std::size_t size);
Welcome decodeWelcome(const char* payload, std::size_t size);
std::string decodeClose(const char* payload, std::size_t size);
// `decodedBytes`, when given, receives what the content takes in memory.
// A payload whose decoded form would take more than 8 times its size plus
// 1 MiB is refused while it is decoded.
MessageContent decodeMessage(const char* payload, std::size_t size,
                             std::size_t* decodedBytes = nullptr);
// The same, taking the payload's buffer over: a text body that is most of the
// payload stays in that buffer and becomes the message's text.
MessageContent decodeMessage(std::string&& payload, std::size_t* decodedBytes = nullptr);

} // namespace RFMsgExp::Wire
