#pragma once

class XServerLUMO;
namespace RFMsgExp {
class IRFMessage;
}

namespace Exchange {
// Kind 222: saves the IFF text in the workspace and has the host import it into
// the target library. Messaging thread.
void ReceiveIff(XServerLUMO& server, RFMsgExp::IRFMessage& message);
} // namespace Exchange
