// Receipt and dispatch of incoming messages.

#include "exchange/emdatareceipt.h"
#include "exchange/iffreceipt.h"
#include "exchange/netlistreceipt.h"
#include "plugin/usermessages.h"
#include "server/eventkind.h"
#include "server/eventkindname.h"
#include "server/xserverlumo.h"

namespace {

void ReportIgnoredKind(RFMsgExp::IRFMessage& message)
{
    WriteLog("Message type " + EventKindName(message.GetKind()) + " is ignored");
}

void LogHandlerException() noexcept
{
    // Nothing may travel back into the messaging library, not even from here.
    try {
        WriteLog("Exception detected in OnReceive()");
    } catch (...) {
    }
}

} // namespace

RFMsgExp::msg_auto_ptr<RFMsgExp::IRFMessage>
XServerLUMO::OnReceive(RFMsgExp::msg_auto_ptr<RFMsgExp::IRFMessage> message)
{
    RFMsgExp::msg_auto_ptr<RFMsgExp::IRFMessage> reply;
    try {
        if (message) {
            switch (message->GetKind()) {
            case EventKind::NetList:
                Exchange::ReceiveNetlist(*this, *message);
                break;
            case EventKind::FathomData:
                Exchange::ReceiveEmData(*this, *message);
                break;
            case EventKind::LibIFF:
                Exchange::ReceiveIff(*this, *message);
                break;
            default:
                ReportIgnoredKind(*message);
                break;
            }
        }
    } catch (RFMsgExp::IXException* error) {
        LogHandlerException();
        error->Destroy();
    } catch (...) {
        LogHandlerException();
    }
    message.reset();
    return reply;
}
