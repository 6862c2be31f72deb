// mgc-peer: a stand-in for the schematic and layout tools on the other end of
// the bridge. Connects, sends messages described in JSON, prints what it
// receives, generates load.

#include <cmath>
#include <cstdio>

#include <QCommandLineParser>
#include <QCoreApplication>

#include "peercommands.h"

namespace {

const char* const kDescription = R"(Talks to the bridge as a peer tool would ("DXD" or "BSXE").

Commands:
  send FILE.json...          send each described message in order; exits 0 once
                             the bridge has read them all
  listen                     print {"event":"connected","app":...,"number":N},
                             then one JSON line per message received (kind,
                             kind_name, properties in order, text, document);
                             with --save the texts go to files instead
  bench netlist|iff          send --count generated messages of --bytes each and
                             print the rate

A message description is a JSON object:
  {"kind": 212 or "eDoc_LUMONetList",
   "text": "..." or "text_file": "path",
   "properties": {"NAME": "value", ...},            (kept in this order)
   "document": {"label": "...", "name": "...", "path": "...",
                "regions": [{"name": "...",
                             "netlist": "..." or "netlist_file": "path",
                             "egs": "..." or "egs_file": "path",
                             "ports": [{"name", "enabled", "type", "label",
                                        "note", "value", "x", "y"}]}],
                "port_types": [{"id", "flag", "name"}]}}
Every field but "kind" may be left out; files are found relative to the
description. examples/ holds one description per handled kind.

Examples:
  mgc-peer --port 5000 send examples/netlist.json examples/em_data.json
  mgc-peer --port 5000 --app BSXE listen --count 2 --timeout 30 --save /tmp/got
  mgc-peer --port 5000 bench iff --count 200 --bytes 1M

Exit status: 0 on success, 1 when something failed (the reason is on standard
error), 2 for a wrong command line.)";

int usageError(const QString& text)
{
    std::fprintf(stderr, "mgc-peer: %s\nTry 'mgc-peer --help' for more.\n", qPrintable(text));
    return 2;
}

// "4096", "64k", "200M", "1G" (powers of 1024).
bool parseBytes(const QString& text, std::size_t& bytes)
{
    QString digits = text.trimmed();
    std::size_t unit = 1;
    if (!digits.isEmpty()) {
        const QChar last = digits.back().toLower();
        if (last == 'k' || last == 'm' || last == 'g') {
            unit = last == 'k' ? 1024 : last == 'm' ? 1024 * 1024 : 1024 * 1024 * 1024;
            digits.chop(1);
        }
    }
    bool ok = false;
    const qulonglong value = digits.toULongLong(&ok);
    bytes = static_cast<std::size_t>(value) * unit;
    return ok;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("mgc-peer"));
    QCoreApplication::setApplicationVersion(QStringLiteral("1.0"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromUtf8(kDescription));
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption version = parser.addVersionOption();
    const QCommandLineOption host(QStringLiteral("host"),
                                  QStringLiteral("the bridge's host (default 127.0.0.1)"),
                                  QStringLiteral("H"), QStringLiteral("127.0.0.1"));
    const QCommandLineOption port(QStringLiteral("port"),
                                  QStringLiteral("the bridge's port (required)"),
                                  QStringLiteral("P"));
    const QCommandLineOption appName(
        QStringLiteral("app"), QStringLiteral("the application name to announce (default DXD)"),
        QStringLiteral("NAME"), QStringLiteral("DXD"));
    const QCommandLineOption count(
        QStringLiteral("count"),
        QStringLiteral("listen: stop after N messages; bench: send N (default 1000)"),
        QStringLiteral("N"));
    const QCommandLineOption timeout(QStringLiteral("timeout"),
                                     QStringLiteral("listen: stop after S seconds"),
                                     QStringLiteral("S"));
    const QCommandLineOption save(QStringLiteral("save"),
                                  QStringLiteral("listen: write received texts to files in DIR"),
                                  QStringLiteral("DIR"));
    const QCommandLineOption bytes(
        QStringLiteral("bytes"),
        QStringLiteral("bench: size of each message's text, e.g. 4096, 64k, 200M "
                       "(default 4096)"),
        QStringLiteral("B"));
    for (const QCommandLineOption& option : {host, port, appName, count, timeout, save, bytes})
        parser.addOption(option);
    parser.addPositionalArgument(QStringLiteral("command"), QStringLiteral("send, listen or bench"),
                                 QStringLiteral("send FILE.json... | listen | bench netlist|iff"));

    if (!parser.parse(QCoreApplication::arguments()))
        return usageError(parser.errorText());
    if (parser.isSet(help))
        parser.showHelp(0);
    if (parser.isSet(version))
        parser.showVersion();

    const QStringList arguments = parser.positionalArguments();
    if (arguments.isEmpty())
        return usageError(QStringLiteral("say what to do: send, listen or bench"));
    const QString command = arguments.first();
    if (command != QLatin1String("send") && command != QLatin1String("listen") &&
        command != QLatin1String("bench"))
        return usageError(
            QStringLiteral("unknown command '%1' (send, listen or bench)").arg(command));

    PeerCommands::Connection connection;
    if (!parser.isSet(port))
        return usageError(QStringLiteral("--port is required: the port the bridge listens on"));
    bool ok = false;
    connection.port = parser.value(port).toInt(&ok);
    if (!ok || connection.port < 1 || connection.port > 65535)
        return usageError(
            QStringLiteral("--port %1 is not a port number (1 to 65535)").arg(parser.value(port)));
    connection.host = parser.value(host).toStdString();
    connection.app = parser.value(appName).toStdString();
    if (connection.app.empty())
        return usageError(QStringLiteral("--app needs a name"));

    // Options that belong to another command are mistakes worth pointing out.
    const auto onlyFor = [&](const QCommandLineOption& option, const QStringList& commands) {
        return !parser.isSet(option) || commands.contains(command);
    };
    if (!onlyFor(count, {QStringLiteral("listen"), QStringLiteral("bench")}))
        return usageError(QStringLiteral("--count is for listen and bench, not %1").arg(command));
    if (!onlyFor(timeout, {QStringLiteral("listen")}))
        return usageError(QStringLiteral("--timeout is for listen, not %1").arg(command));
    if (!onlyFor(save, {QStringLiteral("listen")}))
        return usageError(QStringLiteral("--save is for listen, not %1").arg(command));
    if (!onlyFor(bytes, {QStringLiteral("bench")}))
        return usageError(QStringLiteral("--bytes is for bench, not %1").arg(command));

    int countValue = 0;
    if (parser.isSet(count)) {
        countValue = parser.value(count).toInt(&ok);
        if (!ok || countValue < 1)
            return usageError(
                QStringLiteral("--count %1 is not a positive number").arg(parser.value(count)));
    }

    if (command == QLatin1String("send")) {
        if (arguments.size() < 2)
            return usageError(
                QStringLiteral("send needs at least one message description (FILE.json)"));
        std::vector<std::string> files;
        for (int i = 1; i < arguments.size(); ++i)
            files.push_back(arguments[i].toStdString());
        return PeerCommands::send(connection, files);
    }
    if (command == QLatin1String("listen")) {
        if (arguments.size() > 1)
            return usageError(
                QStringLiteral("listen takes no arguments, got '%1'").arg(arguments[1]));
        double seconds = -1;
        if (parser.isSet(timeout)) {
            seconds = parser.value(timeout).toDouble(&ok);
            if (!ok || !(seconds > 0) || !std::isfinite(seconds))
                return usageError(QStringLiteral("--timeout %1 is not a positive number of seconds")
                                      .arg(parser.value(timeout)));
        }
        return PeerCommands::listen(connection, countValue, seconds,
                                    parser.value(save).toStdString());
    }
    if (arguments.size() != 2 ||
        (arguments[1] != QLatin1String("netlist") && arguments[1] != QLatin1String("iff")))
        return usageError(QStringLiteral("bench needs what to send: netlist or iff"));
    std::size_t size = 4096;
    if (parser.isSet(bytes) && !parseBytes(parser.value(bytes), size))
        return usageError(QStringLiteral("--bytes %1 is not a size (e.g. 4096, 64k, 200M)")
                              .arg(parser.value(bytes)));
    return PeerCommands::bench(connection, arguments[1].toStdString(),
                               countValue ? countValue : 1000, size);
}
