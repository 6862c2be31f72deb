#pragma once
// The netlist message both netlist benchmarks send: one region "lna" with a
// 4 KB netlist and 10 enabled ports, so in-process and end-to-end figures
// measure the same work.

#include <cstddef>
#include <string>

#include "rfmsg/messagecontent.h"

namespace BenchMessages {

constexpr int PortCount = 10;
constexpr std::size_t NetlistBytes = 4096;

inline RFMsgExp::MessageContent netlistMessage()
{
    RFMsgExp::RegionContent region;
    region.name = "lna";
    for (int line = 0; region.netlist.size() < NetlistBytes; ++line)
        region.netlist += "R" + std::to_string(line) + " ( n" + std::to_string(line) + " n" +
                          std::to_string(line + 1) + " ) 50\n";
    region.netlist.resize(NetlistBytes);
    for (int index = 0; index < PortCount; ++index) {
        RFMsgExp::PortContent port;
        port.name = "port" + std::to_string(index);
        port.enabled = 1;
        port.label = "P" + std::to_string(index + 1);
        port.type = index % 3;
        port.value = 50;
        port.x = 12.25 * index;
        port.y = -1.5 * index;
        region.ports.push_back(port);
    }
    RFMsgExp::MessageContent content;
    content.kind = 212;
    content.document.emplace();
    content.document->label = "amp";
    content.document->name = "amp_top.sch";
    content.document->path = "C:\\designs\\amp";
    content.document->regions.push_back(region);
    return content;
}

} // namespace BenchMessages
