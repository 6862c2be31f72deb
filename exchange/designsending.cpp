// Sending a schematic or layout, written by the host as IFF files, to the peer.

#include <cstring>

#include "exchange/messagetext.h"
#include "plugin/usermessages.h"
#include "server/eventkind.h"
#include "server/xserverlumo.h"

namespace {

constexpr char NoLayoutFile[] = "none";
constexpr char SchematicUnreadable[] = "Unable to open schematic IFF file to send to Mentor: ";

// An IFF message of kind 222 with its three naming properties, prepared right
// after the kind is set. The property list is kept for the message's life.
struct IffMessage
{
    RFMsgExp::msg_auto_ptr<RFMsgExp::IRFMessage> message;
    RFMsgExp::msg_auto_ptr<RFMsgExp::IRFPropertyList> properties;
};

IffMessage startIffMessage(const char* design, const char* region, const char* designPath)
{
    const RFMsgExp::msgString designText(design);
    const RFMsgExp::msgString regionText(region);
    const RFMsgExp::msgString designPathText(designPath);
    IffMessage iff;
    iff.message = RFMsgExp::IRFMessage::Create();
    iff.message->SetKind(EventKind::LibIFF);
    iff.message->Prepare();
    iff.properties = iff.message->GetProperties();
    iff.properties->SetProperty("RFDESIGN", designText);
    iff.properties->SetProperty("RFREGION", regionText);
    iff.properties->SetProperty("RFDESIGNPATH", designPathText);
    return iff;
}

void sendIff(XServerLUMO& server, IffMessage& iff, const std::string& body)
{
    iff.message->SetText(body);
    server.SendToPeers(*iff.message);
}

} // namespace

bool XServerLUMO::SendDesignIff(const char* schematicIffPath, const char* layoutIffPath,
                                const char* design, const char* region, const char* designPath)
{
    IffMessage iff = startIffMessage(design, region, designPath);
    if (!schematicIffPath)
        return false;
    // An unreadable file leaves only its standard-error line; what was read is sent.
    std::string body;
    ReadTextFile(body, schematicIffPath, false);
    if (layoutIffPath && std::strcmp(layoutIffPath, NoLayoutFile) != 0)
        ReadTextFile(body, layoutIffPath, false);
    sendIff(*this, iff, body);
    return true;
}

bool XServerLUMO::SendLayoutIff(const char* layoutIffPath, const char* schematicIffPath,
                                const char* design, const char* region, const char* designPath)
{
    IffMessage iff = startIffMessage(design, region, designPath);
    std::string body;
    if (!ReadTextFile(body, schematicIffPath, false)) {
        ReportError(SchematicUnreadable + std::string(schematicIffPath ? schematicIffPath : ""));
        return false;
    }
    if (!ReadTextFile(body, layoutIffPath, false)) {
        // Deliberately not shown, unlike the schematic's: the reader's
        // standard-error line is the only trace.
        return false;
    }
    sendIff(*this, iff, body);
    return true;
}
