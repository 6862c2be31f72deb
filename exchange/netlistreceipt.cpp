#include "exchange/netlistreceipt.h"

#include "exchange/messagetext.h"
#include "lumo/strings.h"
#include "plugin/brioconstants.h"
#include "plugin/usermessages.h"
#include "rfmsg/message.h"
#include "server/xserverlumo.h"

namespace Exchange {
namespace {

constexpr char NoWorkspace[] = "LUMO project must be opened before receiving Mentor design netlist";
constexpr char CommandFailed[] = "Execute BRIO command failed: ";

// A design cell name names a file in the netlists folder: one that could name
// the folder itself, its parent or another folder is refused.
bool isPlainFileName(const std::string& name)
{
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of("/\\") == std::string::npos;
}

// The whole error as it may stand inside a host string: a backslash before
// every backslash and double quote, so that no name can end the string.
std::string refusedNameError(const std::string& designName, const std::string& designCellName)
{
    const std::string message = "Netlist of design \"" + designName +
                                "\" refused: its file name \"" + designCellName +
                                ".net\" is not a plain name in the netlists folder";
    std::string escaped;
    for (char c : message) {
        if (c == '\\' || c == '"')
            escaped += '\\';
        escaped += c;
    }
    return escaped;
}

// The number of blanks between the netlist's first "(" and first ")", as the
// host has always been given it: from two places after the "(" up to, not
// including, the character before the ")". When the ")" stands less than
// three places after the "(", everything to the end is counted. A "(" that is
// the last character, with a ")" somewhere, throws (std::out_of_range).
int portCountFromNetlist(const std::string& netlist)
{
    const std::size_t open = netlist.find('(');
    const std::size_t close = netlist.find(')');
    if (open == std::string::npos || close == std::string::npos)
        return 0;
    const std::size_t from = open + 2;
    const std::size_t length = close - open - 3; // wraps to "to the end" when close < open + 3
    const std::string inside = netlist.substr(from, length);
    int blanks = 0;
    for (char c : inside)
        if (c == ' ')
            ++blanks;
    return blanks;
}

} // namespace

void ReceiveNetlist(XServerLUMO& server, RFMsgExp::IRFMessage& message)
{
    const std::string workspacePath = ToForwardSlashes(server.GetWorkspacePath());
    if (workspacePath.empty()) {
        ReportError(NoWorkspace);
        return;
    }
    const std::string netlistsPath = server.GetNetlistsPath();

    RFMsgExp::msg_auto_ptr<RFMsgExp::IRFDocument> document = requireDocument(message);
    // The peer is asked for every field in this order; the label is not used.
    document->GetDesignLabel();
    const std::string designName = text(document->GetDesignName());
    const std::string designPath = ToForwardSlashes(text(document->GetDesignPath()));

    RFMsgExp::msg_auto_ptr<RFMsgExp::IRFRegionList> regions = document->GetRegions();
    if (regions->Count() == 0)
        return;
    // Only the first region is handled.
    RFMsgExp::msg_auto_ptr<RFMsgExp::IRFRegion> region = regions->GetItem(0);
    const std::string regionName = text(region->GetName());

    const std::string stem =
        designName.size() < 4 ? designName : designName.substr(0, designName.size() - 4);
    const std::string designCellName = stem + "_" + regionName;
    if (!isPlainFileName(designCellName)) {
        ReportError(refusedNameError(designName, designCellName));
        return;
    }

    const std::string netlistText = text(message.GetNetlistText(regionName.c_str()));
    WriteTextFile(netlistText, netlistsPath + "/" + designCellName + ".net");

    CreateDesign(server, *region, netlistText, designCellName, designName, designPath, regionName);
}

void CreateDesign(XServerLUMO& server, RFMsgExp::IRFRegion& region, std::string netlistText,
                  std::string designCellName, std::string designName, std::string designPath,
                  std::string regionName)
{
    RFMsgExp::msg_auto_ptr<RFMsgExp::IRFPortList> ports = region.GetPorts();
    const int count = ports->Count();

    std::string portList;
    int portCount = 0;
    if (count == 0) {
        portList = "NULL";
        portCount = portCountFromNetlist(netlistText);
    } else {
        portList = "list(";
        std::string separator;
        int portNumber = 1;
        for (int index = 0; index < count; ++index) {
            // Every field is read in this order, also those that never enter
            // the command (name, note, value, the second enabled flag); those
            // are not formatted, which is most of a message's own cost.
            RFMsgExp::msg_auto_ptr<RFMsgExp::IRFPort> port = ports->GetItem(index);
            port->GetName();
            if (port->GetEnabled() == 0)
                continue;
            const int type = port->GetType();
            const std::string label = text(port->GetLabel());
            port->GetNote();
            port->GetValue();
            RFMsgExp::msg_auto_ptr<RFMsgExp::IRFPosition> position = port->GetPosition();
            const std::string x = from_double(position->GetX(), 'g', 6);
            const std::string y = from_double(position->GetY(), 'g', 6);
            port->GetEnabled();

            ++portCount;
            portList += separator;
            portList += "list(\"" + label + "\"," + x + "," + y + "," + from_int(portNumber) + "," +
                        from_int(type) + ")";
            separator = ",";
            ++portNumber;
        }
        portList += ")";
    }

    const std::string command = "mgclink_create_design(\"\", \"" + designCellName + "\", \"" +
                                designName + "\", \"" + designPath + "\", \"" + regionName +
                                "\", " + from_int(portCount) + ", " + portList + ", 0);";
    if (!server.RunBrioCommand(command.c_str(), BrioConstants::DefaultVocabulary))
        WriteLog(CommandFailed + command);
}

} // namespace Exchange
