#pragma once
// lumo-host as a real process with the real plug-in, driven through its
// standard input, in a temporary folder of its own (its working directory,
// where the plug-in keeps ./Tessel.opt). Waits read the journal as the host
// writes it, each with a time limit.

#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <functional>
#include <ostream>
#include <vector>

// What a waited-for journal record must be, and how to say so in a failure.
struct RecordMatch
{
    QString description;
    std::function<bool(const QJsonObject&)> matches;

    static RecordMatch event(const QString& event);
    // A host function call, ok or not.
    static RecordMatch call(const QString& function);
    // A plug-in command's record (written when the command has returned).
    static RecordMatch command(const QString& name);
    // A statement the plug-in had evaluated, whose text starts with `start`.
    static RecordMatch eval(const QString& start);
    // de_info text, or fprintf(stderr) text, starting with `start`.
    static RecordMatch info(const QString& start);
    static RecordMatch log(const QString& start);
};

struct HostSetup
{
    HostSetup() = default;
    explicit HostSetup(QStringList moreArguments, bool withWorkspace = true)
        : workspace(withWorkspace), arguments(std::move(moreArguments))
    {
    }

    bool workspace = true;
    // Local_Components_lib is excluded by the default options, so rflib
    // becomes the target library.
    QStringList libraries = {"Local_Components_lib", "rflib"};
    // More lumo-host options: --fail, --brio-version, --no-brio, --plugin, ...
    QStringList arguments;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
};

class HostSession
{
public:
    explicit HostSession(const HostSetup& setup = {});
    ~HostSession();
    HostSession(const HostSession&) = delete;
    HostSession& operator=(const HostSession&) = delete;

    // Hands statements to the host's standard input.
    void run(const QString& statements);
    // mgcconnect_initialize(0, 0), then the port the bridge picked, read from
    // the connection listing; 0 when no port shows up.
    int startBridge();

    // Waits until `count` records match; returns every matching record (fewer
    // than `count` after the time limit, which the caller's check then reports).
    std::vector<QJsonObject> waitFor(const RecordMatch& match, int count = 1,
                                     int timeoutMs = 20000);
    std::vector<QJsonObject> records(const RecordMatch& match);
    // Whole journal read so far.
    const std::vector<QJsonObject>& journal();
    // Index of the first record matching, or -1.
    int indexOf(const RecordMatch& match);

    // Wait until the host's standard output or error holds `text` `count` times.
    bool waitForOutput(const QString& text, int count = 1, int timeoutMs = 20000);
    bool waitForError(const QString& text, int count = 1, int timeoutMs = 20000);

    // Closes standard input and waits for the end; the exit status, or -1
    // after a crash or the time limit.
    int finish(int timeoutMs = 30000);
    // Sends a signal and waits for the end, as finish().
    int stop(int signal, int timeoutMs = 30000);

    QString output();
    QString errors();
    // The host's working directory.
    QString directory() const { return m_dir.path(); }
    QString workspace() const;
    QString path(const QString& relative) const { return m_dir.filePath(relative); }
    QProcess& process() { return m_process; }

private:
    void readAvailable();
    bool waitForText(const QString& collected, const QString& text, int count, int timeoutMs);
    int waitForEnd(int timeoutMs);

    QTemporaryDir m_dir;
    QProcess m_process;
    bool m_workspace = true;
    QString m_out;
    QString m_err;
    QByteArray m_partialLine;
    qint64 m_journalOffset = 0;
    std::vector<QJsonObject> m_journal;
};

// Readable failure messages.
void PrintTo(const QString& text, std::ostream* out);

namespace E2E {

QString hostPath();
QString peerPath();
QString pluginPath();
QString examplesPath();
// A file's whole content.
QByteArray readFile(const QString& path);
// Describes a failed wait: what was wanted, and the journal's records.
std::string journalDump(HostSession& host);

} // namespace E2E
