#include "rfmsg/wireformat.h"

namespace RFMsgExp::Wire {

const char* frameTypeName(unsigned char type)
{
    switch (static_cast<FrameType>(type)) {
    case FrameType::Hello:
        return "HELLO";
    case FrameType::Welcome:
        return "WELCOME";
    case FrameType::Message:
        return "MESSAGE";
    case FrameType::Close:
        return "CLOSE";
    }
    return nullptr;
}

} // namespace RFMsgExp::Wire
