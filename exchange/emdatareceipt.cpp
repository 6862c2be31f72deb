#include "exchange/emdatareceipt.h"

#include <cstdio>
#include <map>

#include "exchange/messagetext.h"
#include "lumo/strings.h"
#include "options/optionnames.h"
#include "plugin/brioconstants.h"
#include "plugin/usermessages.h"
#include "server/xserverlumo.h"

namespace Exchange {
namespace {

constexpr char EgsFileName[] = "genFathom_a";

// Port type id to name, for the entries whose flag is 0.
std::map<int, std::string> portTypeNames(RFMsgExp::IRFDocument& document)
{
    std::map<int, std::string> names;
    RFMsgExp::msg_auto_ptr<RFMsgExp::IRFPortTypeList> types = document.GetPortTypes();
    for (int index = 0; index < types->Count(); ++index) {
        RFMsgExp::msg_auto_ptr<RFMsgExp::IRFPortType> type = types->GetItem(index);
        if (type->GetFlag() == 0)
            names[type->GetId()] = text(type->GetTypeName());
    }
    return names;
}

} // namespace

void ReceiveEmData(XServerLUMO& server, RFMsgExp::IRFMessage& message)
{
    std::string directory = ToForwardSlashes(server.GetWorkspacePath());
    if (directory.empty())
        return;
    // A path without any slash (a bare drive letter) gets a backslash.
    directory += directory.find('/') != std::string::npos ? "/" : "\\";

    RFMsgExp::msg_auto_ptr<RFMsgExp::IRFDocument> document = requireDocument(message);
    RFMsgExp::msg_auto_ptr<RFMsgExp::IRFRegionList> regions = document->GetRegions();
    if (regions->Count() == 0)
        return;
    RFMsgExp::msg_auto_ptr<RFMsgExp::IRFRegion> region = regions->GetItem(0);
    const std::string regionName = text(region->GetName());
    const std::string egsText = text(message.GetEgsText(regionName.c_str()));

    const std::string egsFile = directory + EgsFileName;
    WriteTextFile(egsText, egsFile);

    const std::string designLabel = text(document->GetDesignLabel());
    const std::string designPath = text(document->GetDesignPath());
    const std::string library = server.GetOptions()
                                    .general()
                                    .get_option_value(Tessel::OptionName::TargetLib)
                                    .toLocal8Bit()
                                    .toStdString();

    const std::string import = "mgclink_import_egs_file(''" + library + "'',''" + egsFile +
                               "'', NULL, ''" + designLabel + "'',''" + regionName + "'',''" +
                               designPath + "'');";
    std::fprintf(stderr, "brio command: %s\n", import.c_str());
    server.RunBrioCommand(import.c_str(), BrioConstants::DefaultVocabulary);

    RFMsgExp::msg_auto_ptr<RFMsgExp::IRFPortList> ports = region->GetPorts();
    if (ports->Count() == 0)
        return;
    const std::map<int, std::string> typeNames = portTypeNames(*document);
    int portNumber = 1;
    for (int index = 0; index < ports->Count(); ++index) {
        RFMsgExp::msg_auto_ptr<RFMsgExp::IRFPort> port = ports->GetItem(index);
        const std::string name = text(port->GetName());
        // An unknown type ends the handler here (std::out_of_range); the ports
        // before it have been added.
        const std::string typeName = typeNames.at(port->GetType());
        port->GetLabel(); // read, as the peer expects, but not shown
        RFMsgExp::msg_auto_ptr<RFMsgExp::IRFPosition> position = port->GetPosition();
        const std::string x = from_double(position->GetX(), 'g', 6);
        const std::string y = from_double(position->GetY(), 'g', 6);
        const std::string value = from_double(port->GetValue(), 'g', 6);

        const std::string command = "mgclink_add_port_to_fathom_view(\"" + name + "\"," +
                                    from_int(portNumber) + ",\"" + typeName + "\"," + x + "," + y +
                                    "," + value + ");";
        server.RunBrioCommand(command.c_str(), BrioConstants::DefaultVocabulary);
        ++portNumber;
    }
}

} // namespace Exchange
