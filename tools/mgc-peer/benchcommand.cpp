#include <chrono>
#include <cstdio>

#include "eventkinds.h"
#include "jsonwriter.h"
#include "peercommands.h"
#include "rfmsg/peerclient.h"
#include "rfmsg/xexception.h"

namespace PeerCommands {
namespace {

// Repeats `unit` until the text is `bytes` long.
std::string repeated(const std::string& head, const std::string& unit, std::size_t bytes)
{
    std::string text = head;
    while (text.size() < bytes)
        text += unit;
    text.resize(bytes);
    return text;
}

RFMsgExp::MessageContent generated(const std::string& what, std::size_t bytes)
{
    RFMsgExp::MessageContent content;
    RFMsgExp::DocumentContent document;
    document.label = "bench_top";
    document.name = "bench_top.sch";
    document.path = "/work/bench";
    RFMsgExp::RegionContent region;
    region.name = "lna";
    region.ports = {{"P1", 1, 0, "RFIN", "input", 50.0, 0.0, 0.0},
                    {"P2", 1, 0, "RFOUT", "output", 50.0, 1200.0, 0.0}};
    if (what == "netlist") {
        content.kind = 212;
        region.netlist =
            repeated("( RFIN RFOUT VDD GND )\n",
                     "R1 ( N1 N2 ) resistor r=50\nC1 ( N2 GND ) capacitor c=1.2p\n", bytes);
    } else {
        content.kind = 222;
        content.text =
            repeated("IFF 1.0\nDESIGN bench_top\n",
                     "RECT LAYER=M1 X1=0 Y1=0 X2=120.5 Y2=8\nPATH LAYER=M2 W=4 0,0 250,0\n", bytes);
    }
    document.regions.push_back(region);
    content.document = document;
    content.properties = {{"RFDESIGN", "bench_top"}, {"RFREGION", "lna"}};
    return content;
}

} // namespace

int bench(const Connection& connection, const std::string& what, int count, std::size_t bytes)
{
    RFMsgExp::MessageContent content = generated(what, bytes);
    try {
        RFMsgExp::PeerClient peer;
        peer.connect(connection.host, connection.port, connection.app);
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < count; ++i)
            peer.send(content);
        // Done when the bridge has read it all, not when it sits in our buffers.
        peer.finish();
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        JsonWriter line;
        line.beginObject();
        line.key("event");
        line.string("bench");
        line.key("kind");
        line.integer(content.kind);
        line.key("kind_name");
        line.string(EventKinds::nameOf(content.kind));
        line.key("count");
        line.integer(count);
        line.key("bytes");
        line.integer(static_cast<std::int64_t>(bytes));
        line.key("seconds");
        line.number(seconds);
        line.key("messages_per_second");
        line.number(seconds > 0 ? count / seconds : 0.0);
        line.key("megabytes_per_second");
        line.number(seconds > 0 ? double(count) * double(bytes) / 1e6 / seconds : 0.0);
        line.endObject();
        std::printf("%s\n", line.text().c_str());
    } catch (RFMsgExp::IXException* error) {
        std::fprintf(stderr, "mgc-peer: %s\n", error->GetInfo().c_str());
        error->Destroy();
        return 1;
    }
    return 0;
}

} // namespace PeerCommands
