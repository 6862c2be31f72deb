#pragma once
// The three things mgc-peer does. Each returns the process's exit status and
// reports failures on standard error as "mgc-peer: <what and why>".

#include <string>
#include <vector>

namespace PeerCommands {

struct Connection
{
    std::string host = "127.0.0.1";
    int port = 0;
    std::string app = "DXD";
};

// Sends each described message in order; 0 once all are with the bridge.
int send(const Connection& connection, const std::vector<std::string>& files);
// Prints a line when connected, then one per message received. Ends after
// `count` messages (0: no limit), after `timeoutSeconds` (negative: none) or
// when the bridge closes; non-zero when fewer than `count` arrived.
int listen(const Connection& connection, int count, double timeoutSeconds,
           const std::string& saveFolder);
// Sends `count` generated netlist or IFF messages of about `bytes` each and
// prints the rate once the bridge has read them all.
int bench(const Connection& connection, const std::string& what, int count, std::size_t bytes);

} // namespace PeerCommands
