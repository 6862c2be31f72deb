#include <algorithm>
#include <chrono>
#include <cstdio>
#include <limits>

#include <QDir>

#include "jsonwriter.h"
#include "messagereport.h"
#include "peercommands.h"
#include "rfmsg/peerclient.h"
#include "rfmsg/xexception.h"

namespace PeerCommands {

int listen(const Connection& connection, int count, double timeoutSeconds,
           const std::string& saveFolder)
{
    using Clock = std::chrono::steady_clock;
    if (!saveFolder.empty() && !QDir().mkpath(QString::fromStdString(saveFolder))) {
        std::fprintf(stderr, "mgc-peer: cannot create the folder %s for received texts\n",
                     saveFolder.c_str());
        return 1;
    }
    RFMsgExp::PeerClient peer;
    int received = 0;
    bool connected = false;
    std::string ending;
    try {
        peer.connect(connection.host, connection.port, connection.app);
        connected = true;
        JsonWriter line;
        line.beginObject();
        line.key("event");
        line.string("connected");
        line.key("app");
        line.string(connection.app);
        line.key("number");
        line.integer(peer.number());
        line.endObject();
        std::printf("%s\n", line.text().c_str());
        std::fflush(stdout);

        // Capped at some 30 years, well inside the clock's range.
        const auto deadline =
            Clock::now() +
            std::chrono::milliseconds(static_cast<long long>(std::min(timeoutSeconds, 1e9) * 1000));
        while (count == 0 || received < count) {
            int wait = -1;
            if (timeoutSeconds >= 0) {
                // receive() takes an int of milliseconds: a longer wait goes in turns.
                wait = static_cast<int>(std::clamp<long long>(
                    std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now())
                        .count(),
                    0, std::numeric_limits<int>::max()));
            }
            const std::optional<RFMsgExp::MessageContent> message = peer.receive(wait);
            if (!message) {
                ending = "the time ran out";
                break;
            }
            ++received;
            std::printf("%s\n", MessageReport::line(*message, received, saveFolder).c_str());
            std::fflush(stdout);
        }
    } catch (RFMsgExp::IXException* error) {
        ending = error->GetInfo().str();
        error->Destroy();
        if (!connected) {
            std::fprintf(stderr, "mgc-peer: %s\n", ending.c_str());
            return 1;
        }
    } catch (const MessageReport::Error& error) {
        std::fprintf(stderr, "mgc-peer: %s\n", error.what());
        return 1;
    }
    // In order, so that messages still on their way do not reset the connection.
    try {
        peer.finish(5000);
    } catch (RFMsgExp::IXException* error) {
        error->Destroy();
    }
    if (count > 0 && received < count) {
        std::fprintf(stderr, "mgc-peer: %d of %d messages arrived before %s\n", received, count,
                     ending.c_str());
        return 1;
    }
    if (!ending.empty() && ending != "the time ran out")
        std::fprintf(stderr, "mgc-peer: %s\n", ending.c_str());
    return 0;
}

} // namespace PeerCommands
