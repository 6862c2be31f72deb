#pragma once

class XServerLUMO;
namespace RFMsgExp {
class IRFMessage;
}

namespace Exchange {
// Kind 213: saves the first region's EGS data in the workspace, has the host
// import it, then adds each port to the EM view. Messaging thread.
void ReceiveEmData(XServerLUMO& server, RFMsgExp::IRFMessage& message);
} // namespace Exchange
