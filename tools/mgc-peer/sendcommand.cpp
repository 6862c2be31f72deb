#include <cstdio>

#include "eventkinds.h"
#include "jsonwriter.h"
#include "messagedescription.h"
#include "peercommands.h"
#include "rfmsg/peerclient.h"
#include "rfmsg/xexception.h"

namespace PeerCommands {

int send(const Connection& connection, const std::vector<std::string>& files)
{
    // Every description is read first: a bad one sends nothing.
    std::vector<RFMsgExp::MessageContent> messages;
    try {
        for (const std::string& file : files)
            messages.push_back(MessageDescription::read(file));
    } catch (const MessageDescription::Error& error) {
        std::fprintf(stderr, "mgc-peer: %s\n", error.what());
        return 1;
    }
    try {
        RFMsgExp::PeerClient peer;
        peer.connect(connection.host, connection.port, connection.app);
        for (std::size_t i = 0; i < messages.size(); ++i) {
            peer.send(messages[i]);
            JsonWriter line;
            line.beginObject();
            line.key("event");
            line.string("sent");
            line.key("file");
            line.string(files[i]);
            line.key("kind");
            line.integer(messages[i].kind);
            line.key("kind_name");
            line.string(EventKinds::nameOf(messages[i].kind));
            line.key("number");
            line.integer(peer.number());
            line.endObject();
            std::printf("%s\n", line.text().c_str());
            std::fflush(stdout);
        }
        peer.finish();
    } catch (RFMsgExp::IXException* error) {
        std::fprintf(stderr, "mgc-peer: %s\n", error->GetInfo().c_str());
        error->Destroy();
        return 1;
    }
    return 0;
}

} // namespace PeerCommands
