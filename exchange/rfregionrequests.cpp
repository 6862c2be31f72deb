// Requests about one RF region, sent to the peer as kind-224 messages.

#include "server/eventkind.h"
#include "server/xserverlumo.h"

bool XServerLUMO::SendNetlistRequest(const char* first, const char* region, const char* third,
                                     const char* fourth)
{
    const RFMsgExp::msgString firstText(first);
    const RFMsgExp::msgString regionText(region);
    const RFMsgExp::msgString thirdText(third);
    const RFMsgExp::msgString fourthText(fourth);

    RFMsgExp::msg_auto_ptr<RFMsgExp::IRFMessage> message = RFMsgExp::IRFMessage::Create();
    message->SetKind(EventKind::UserDefined);
    RFMsgExp::msg_auto_ptr<RFMsgExp::IRFPropertyList> properties = message->GetProperties();
    properties->SetProperty("NETLIST_RFREGION", regionText);
    // Prepared after the property, unlike the IFF messages.
    message->Prepare();
    SendToPeers(*message);
    return true;
}

bool XServerLUMO::SendHighlightRequest(const void* /*first*/, const void* /*second*/,
                                       const void* /*third*/, const char* region)
{
    RFMsgExp::msg_auto_ptr<RFMsgExp::IRFMessage> message = RFMsgExp::IRFMessage::Create();
    const RFMsgExp::msgString regionText(region);
    message->SetKind(EventKind::UserDefined);
    RFMsgExp::msg_auto_ptr<RFMsgExp::IRFPropertyList> properties = message->GetProperties();
    // The peer matches this spelling letter for letter.
    properties->SetProperty("HIGLIGHT_RFREGION", regionText);
    SendToPeers(*message);
    return true;
}

bool XServerLUMO::SendInstanceRequest()
{
    return false;
}
