#pragma once
// lumo-host (tests/support/hostrun.h) with the real plug-in and its bridge
// running, and mgc-peer processes talking to it; EXAMPLES_DIR is examples/.

#include <QJsonObject>

#include "hostrun.h"

namespace E2E {

// A host with the open libraries Local_Components_lib (left out of the choice
// by the default options, so rflib is the target) and rflib, the workspace
// {dir}/workspace unless `withWorkspace` is false, `more`, and standard input
// as the last source; mgcconnect_initialize(0, 0) has run.
struct BridgedHost : HostProcess
{
    explicit BridgedHost(const QStringList& more = {}, bool withWorkspace = true);
    // Runs one command statement, waits for the command's record, returns it.
    QJsonObject command(const QString& statement);
    // The peer list of a new connection listing, as the plug-in wrote it.
    QString listedPeers();

    int port = 0; // the bridge's, from the connection listing
};

// mgc-peer --port PORT --app APP ARGUMENTS..., its JSON lines on standard
// output; a listener is waited for until the bridge has accepted it.
struct Peer : HostProcess
{
    Peer(int port, const QString& app, const QStringList& arguments = {"listen"});
};

// Sends the messages described in examples/ from a peer; false (a test
// failure) unless it ended well.
bool send(int port, const QString& app, const QStringList& examples);

} // namespace E2E
