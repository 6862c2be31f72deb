#pragma once
// lumo-host (tests/support/hostrun.h) with the real plug-in and its bridge
// running, mgc-peer processes talking to it, and the files of examples/.

#include <QJsonObject>
#include <QStringList>

#include <vector>

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

// mgc-peer --port PORT --app APP ARGUMENTS...; a listener is waited for
// until the bridge has accepted it.
struct Peer : HostProcess
{
    Peer(int port, const QString& app, const QStringList& arguments = {"listen"});
    // The JSON lines of `event` printed so far.
    std::vector<QJsonObject> events(const QString& event);
};

// Sends the example messages from a peer; false (a test failure) unless it
// ended well.
bool send(int port, const QString& app, const QStringList& examples);
QString example(const QString& name);

} // namespace E2E
