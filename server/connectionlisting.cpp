// The connection listing shown through the host's mgclink_show_connected_servers.

#include "lumo/brio.h"
#include "lumo/strings.h"
#include "plugin/brioconstants.h"
#include "plugin/pluginstate.h"
#include "server/xserverlumo.h"

void XServerLUMO::ShowConnections()
{
    RFMsgExp::msg_auto_ptr<RFMsgExp::IXSetUsers> users = GetConnected();

    std::string statement = "mgclink_show_connected_servers(\"";
    statement += GetMachineName().c_str();
    statement += "\",";
    statement += from_int(GetPort());
    statement += ",";
    statement += "\"";
    statement += m_version;
    statement += "\", ";
    statement += "\"";
    statement += GetVersion().c_str();
    statement += "\",";

    if (users->Count() == 0) {
        statement += "NULL";
    } else {
        statement += "list(";
        for (int index = 0; index < users->Count(); ++index) {
            std::string name = users->GetItem(index)->GetAppName().c_str();
            const int number = users->GetItem(index)->GetNumber();
            // The host function is fed a comma before every entry, the first
            // included: the index never equals the count inside the loop.
            if (index != users->Count())
                statement += ",";
            statement += "list(\"" + name + "\"," + from_int(number) + ")";
        }
        statement += ")";
    }
    statement += ");";

    // Only the main thread may run script text; elsewhere the listing is dropped.
    if (isMainThread()) {
        if (BRIOInterface* brio = PluginState::brio())
            brio->evaluate_text(BrioConstants::DefaultVocabulary, statement.c_str());
    }
}
