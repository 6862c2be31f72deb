#pragma once
// lumo-host (tests/support/hostrun.h) with the real plug-in, driven
// through its standard input, and the files of examples/.

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include "hostrun.h"

namespace E2E {

// The arguments for a host with the open libraries Local_Components_lib
// (left out of the choice by the default options, so rflib is the target)
// and rflib, the workspace {dir}/workspace unless `withWorkspace` is false,
// `more`, and standard input as the last source.
QStringList hostArguments(const QStringList& more = {}, bool withWorkspace = true);
// Runs one command statement, waits for the command's record, returns it.
QJsonObject command(HostProcess& host, const QString& statement);
// mgcconnect_initialize(0, 0), then the port the bridge picked, read from
// the connection listing; 0 when no port shows up.
int startBridge(HostProcess& host);

// The file of examples/.
QString example(const QString& name);
QJsonObject readJson(const QString& path);

} // namespace E2E
