#include "session.h"

#include <QCoreApplication>
#include <QTimer>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <sstream>

#include "brioparser.h"
#include "dialoganswerer.h"
#include "journalrecord.h"
#include "signalnotifier.h"
#include "standardinput.h"
#include "terminal.h"

Session::Session(const HostOptions& options, QObject* parent)
    : QObject(parent), m_options(options),
      m_workspace(options.workspace, options.netlists, options.libraries),
      m_hostFunctions(m_workspace, m_journal),
      m_interface(m_engine, m_journal, options.brioVersion),
      m_router(m_hostFunctions, m_interface, m_journal, options.failing),
      m_server(new IdleRequestServer(m_interface, m_router, options.libraries)),
      m_registry(options.noBrio ? nullptr : &m_interface, m_journal)
{
    m_server->setParent(this);
    m_engine.setFunctions(&m_router);
    const std::vector<std::string> hostNames = m_hostFunctions.names();
    m_interface.setReservedNames({hostNames.begin(), hostNames.end()});
    m_engine.setConstant("stdout", BRIOValue(HostFunctions::StandardOutput));
    m_engine.setConstant("stderr", BRIOValue(HostFunctions::StandardError));
    m_router.setCallObserver([this](const std::string& name, int count) { onCall(name, count); });
}

Session::~Session() = default;

bool Session::prepare(int* status)
{
    std::string error;
    if (!m_options.journal.empty() && !m_journal.open(m_options.journal, &error)) {
        Terminal::printMessage(error);
        *status = Usage;
        return false;
    }
    if (!m_workspace.prepare(&error)) {
        Terminal::printMessage("cannot open the workspace: " + error);
        *status = Usage;
        return false;
    }
    m_signals = new SignalNotifier([this](int signal) { onSignal(signal); }, this);
    m_dialogs = new DialogAnswerer(m_options, m_journal, this);
    if (!m_dialogs->start(&error)) {
        Terminal::printMessage(error);
        *status = Usage;
        return false;
    }

    if (!m_plugin.load(m_options.plugin, &error)) {
        m_journal.write(JournalRecord("load_error").add("text", error));
        Terminal::printMessage(error);
        *status = PluginUnusable;
        return false;
    }
    LumoHost::installBackend(m_server);
    const int version = m_plugin.libraryVersion();
    m_journal.write(JournalRecord("load").add("version", version).add("plugin", m_options.plugin));
    m_plugin.registerContents(&m_registry);
    return true;
}

void Session::start()
{
    nextSource();
}

void Session::finish(int status)
{
    if (m_input)
        m_input->pause(); // gives the terminal back
    m_server->shutdown();
    LumoHost::installBackend(nullptr);
    m_journal.write(
        JournalRecord("exit").add("code", status).add("unreleased", m_interface.liveHandles()));
}

void Session::nextSource()
{
    if (m_quitting)
        return;
    if (m_nextSource >= m_options.sources.size()) {
        if (m_options.serve)
            startServing();
        else
            quit(plannedEndStatus());
        return;
    }
    const HostOptions::Source& source = m_options.sources[m_nextSource++];
    switch (source.kind) {
    case HostOptions::Source::Kind::File: {
        std::ifstream file(source.text, std::ios::binary);
        if (!file) {
            Terminal::printMessage("cannot read the script " + source.text + ": " +
                                   std::strerror(errno));
            quit(StatementFailed);
            return;
        }
        std::ostringstream text;
        text << file.rdbuf();
        if (queueText(text.str(), source.name, 1, false))
            scheduleNextStatement();
        return;
    }
    case HostOptions::Source::Kind::Expression:
        if (queueText(source.text, source.name, 1, false))
            scheduleNextStatement();
        return;
    case HostOptions::Source::Kind::StandardInput:
        m_input = new StandardInput(
            [this](const std::string& text, int firstLine) {
                if (queueText(text, "stdin", firstLine, true) && !m_pending.empty()) {
                    m_input->pause();
                    scheduleNextStatement();
                }
            },
            [this] {
                StandardInput* input = m_input;
                m_input = nullptr;
                input->deleteLater();
                nextSource();
            },
            this);
        m_input->start();
        return;
    }
}

bool Session::queueText(const std::string& text, const std::string& source, int firstLine,
                        bool fromInput)
{
    const BRIOParser::Result parsed = BRIOParser::parse(text, firstLine);
    if (parsed.error) {
        const BRIOParser::Error& error = *parsed.error;
        const std::string reason =
            "syntax error: " + error.message + (error.atEnd ? " at the end of the text" : "");
        JournalRecord record("script");
        record.add("source", source).add("line", error.line).add("text", text).add("ok", false);
        m_journal.write(record.add("reason", reason));
        Terminal::printMessage(source + ":" + std::to_string(error.line) + ":" +
                               std::to_string(error.column) + ": " + reason);
        if (fromInput) {
            m_inputFailed = true;
        } else {
            quit(StatementFailed);
        }
        return false;
    }
    for (const BRIOStatement& statement : parsed.statements)
        m_pending.push_back({statement, source, fromInput});
    return true;
}

void Session::scheduleNextStatement()
{
    // One statement per turn of the main loop, so idle requests are performed in between.
    QMetaObject::invokeMethod(
        this, [this] { runNextStatement(); }, Qt::QueuedConnection);
}

void Session::runNextStatement()
{
    if (m_quitting || m_running)
        return;
    if (m_pending.empty()) {
        if (m_input)
            m_input->resume();
        else
            nextSource();
        return;
    }
    const Pending pending = m_pending.front();
    m_pending.pop_front();
    m_running = true;
    const ScriptEngine::Outcome outcome = m_engine.run(ScriptVocabulary, pending.statement);
    m_running = false;

    JournalRecord record("script");
    record.add("source", pending.source).add("line", pending.statement.line);
    record.add("text", pending.statement.text).add("ok", outcome.ok);
    if (!outcome.ok)
        record.add("reason", outcome.reason);
    m_journal.write(record);
    if (!outcome.ok) {
        Terminal::printMessage(pending.source + ":" + std::to_string(pending.statement.line) +
                               ": error: " + outcome.reason);
        if (!pending.fromInput) {
            quit(StatementFailed);
            return;
        }
        m_inputFailed = true;
    }
    scheduleNextStatement();
}

void Session::startServing()
{
    m_serving = true;
    if (!m_options.untilFunction.empty() &&
        m_router.callCount(m_options.untilFunction) >= m_options.untilCount) {
        quit(plannedEndStatus());
        return;
    }
    if (m_options.timeoutSeconds > 0) {
        m_timeout = new QTimer(this);
        m_timeout->setSingleShot(true);
        connect(m_timeout, &QTimer::timeout, this, &Session::onTimeout);
        m_timeout->start(static_cast<int>(m_options.timeoutSeconds * 1000.0));
    }
}

void Session::quit(int status)
{
    if (m_quitting)
        return;
    m_quitting = true;
    if (m_input)
        m_input->pause();
    // Leaves every event loop, a modal dialog's included.
    QCoreApplication::exit(status);
}

int Session::plannedEndStatus() const
{
    // Statements from standard input go on after a failure, and a dialog after
    // an edit that could not be applied; the status still tells of it.
    return m_inputFailed || (m_dialogs && m_dialogs->failed()) ? StatementFailed : Done;
}

void Session::onCall(const std::string& name, int count)
{
    if (m_serving && name == m_options.untilFunction && count >= m_options.untilCount)
        quit(plannedEndStatus());
}

void Session::onSignal(int signal)
{
    if (signal == SIGINT && m_input && m_input->isInteractive() && !m_serving) {
        m_input->discardTyped();
        return;
    }
    quit(m_serving ? plannedEndStatus() : 128 + signal);
}

void Session::onTimeout()
{
    if (m_options.untilFunction.empty()) {
        quit(plannedEndStatus());
        return;
    }
    Terminal::printMessage(
        "--timeout: " + JournalRecord::json(BRIOValue(m_options.timeoutSeconds)) +
        " s passed with " + m_options.untilFunction + " called " +
        std::to_string(m_router.callCount(m_options.untilFunction)) + " of " +
        std::to_string(m_options.untilCount) + " times");
    quit(TimedOut);
}
