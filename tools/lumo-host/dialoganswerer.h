#pragma once
// Stands for the person in front of the plug-in's modal dialogs: journals the
// controls of each dialog when it opens and when it closes, saves a picture of
// it as shown, and, when the command line says so, applies the edits and
// answers it at once. Main thread only.

#include <QObject>

#include <set>
#include <string>

struct HostOptions;
class Journal;
class QDialog;

class DialogAnswerer : public QObject
{
    Q_OBJECT
public:
    DialogAnswerer(const HostOptions& options, Journal& journal, QObject* parent = nullptr);

    // Makes the snapshot folder and starts watching the application's
    // windows; false and a reason naming the folder otherwise.
    bool start(std::string* error);
    // An edit could not be applied or a picture not saved.
    bool failed() const { return m_failed; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void opened(QDialog* dialog);
    void closed(QDialog* dialog);
    // A dialog destroyed without being hidden is no longer one to watch.
    void forget(QObject* dialog);
    void saveSnapshot(QDialog* dialog);
    void applyEdit(QDialog* dialog, const std::string& name, const std::string& value);
    void answer(QDialog* dialog);
    void journal(QDialog* dialog, const char* when, const char* answer);
    void reportError(const std::string& text);

    const HostOptions& m_options;
    Journal& m_journal;
    std::set<QObject*> m_open;         // shown and not closed yet
    const char* m_answering = nullptr; // the answer being given now
    int m_shown = 0;
    bool m_failed = false;
};
