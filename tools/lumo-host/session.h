#pragma once
// One run of the stand-in host: builds the host's parts, loads the plug-in,
// runs the statement sources in order on the main thread, then serves idle
// requests if asked, and decides the exit status.

#include <QObject>

#include <deque>
#include <memory>
#include <string>

#include "briostatement.h"
#include "functionrouter.h"
#include "hostfunctions.h"
#include "hostinterface.h"
#include "hostoptions.h"
#include "hostregistry.h"
#include "idlerequestserver.h"
#include "journal.h"
#include "pluginlibrary.h"
#include "scriptengine.h"
#include "workspace.h"

class DialogAnswerer;
class QTimer;
class SignalNotifier;
class StandardInput;

class Session : public QObject
{
    Q_OBJECT
public:
    // The vocabulary in which statements of scripts, -e and standard input run.
    static constexpr const char* ScriptVocabulary = "User_Voc";

    // Exit statuses.
    enum Status { Done = 0, StatementFailed = 1, Usage = 2, PluginUnusable = 3, TimedOut = 4 };

    // Main thread, with the QApplication in place.
    explicit Session(const HostOptions& options, QObject* parent = nullptr);
    ~Session() override;

    // Opens the journal and the workspace, installs the host, loads and
    // registers the plug-in. False with the exit status when the run cannot go on.
    bool prepare(int* status);
    // Runs the statement sources, then serves or quits the main loop.
    void start();
    // After the main loop: releases every waiting plug-in thread, journals the end.
    void finish(int status);

private:
    struct Pending
    {
        BRIOStatement statement;
        std::string source;
        bool fromInput; // standard input: a failure does not end the run
    };

    void nextSource();
    bool queueText(const std::string& text, const std::string& source, int firstLine,
                   bool fromInput);
    void scheduleNextStatement();
    void runNextStatement();
    void startServing();
    void quit(int status);
    // The status of a run that ends as planned (input, --until, --timeout, a signal while serving).
    int plannedEndStatus() const;
    void onCall(const std::string& name, int count);
    void onSignal(int signal);
    void onTimeout();

    HostOptions m_options;
    Journal m_journal;
    Workspace m_workspace;
    ScriptEngine m_engine;
    HostFunctions m_hostFunctions;
    HostInterface m_interface;
    FunctionRouter m_router;
    IdleRequestServer* m_server;
    HostRegistry m_registry;
    PluginLibrary m_plugin;

    SignalNotifier* m_signals = nullptr;
    DialogAnswerer* m_dialogs = nullptr;
    StandardInput* m_input = nullptr;
    QTimer* m_timeout = nullptr;
    std::size_t m_nextSource = 0;
    std::deque<Pending> m_pending;
    bool m_running = false; // a statement is being run
    bool m_serving = false;
    bool m_quitting = false;
    bool m_inputFailed = false;
};
