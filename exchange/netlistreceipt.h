#pragma once

#include <string>

class XServerLUMO;
namespace RFMsgExp {
class IRFMessage;
class IRFRegion;
} // namespace RFMsgExp

namespace Exchange {
// Kind 212: writes the first RF region's netlist to a ".net" file in the host's
// netlists directory, then has the host create the design. Messaging thread.
void ReceiveNetlist(XServerLUMO& server, RFMsgExp::IRFMessage& message);
// Has the host create the design of one region, with its ports.
void CreateDesign(XServerLUMO& server, RFMsgExp::IRFRegion& region, std::string netlistText,
                  std::string designCellName, std::string designName, std::string designPath,
                  std::string regionName);
} // namespace Exchange
