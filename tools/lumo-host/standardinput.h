#pragma once
// Statements from standard input, read while the main loop goes on (so idle
// requests are performed meanwhile). On a terminal: a readline prompt with
// history; otherwise plain text, line by line. Either way a piece of text is
// handed on once it holds complete statements (one may span lines up to its ';').

#include <QObject>

#include <functional>
#include <string>

class QSocketNotifier;

class StandardInput : public QObject
{
    Q_OBJECT
public:
    // `firstLine`: the line of standard input on which `text` starts.
    using TextHandler = std::function<void(const std::string& text, int firstLine)>;
    using EndHandler = std::function<void()>;

    StandardInput(TextHandler onText, EndHandler onEnd, QObject* parent = nullptr);
    ~StandardInput() override;

    bool isInteractive() const { return m_interactive; }
    void start();
    // While the host runs a piece of text, no input is taken.
    void pause();
    void resume();
    // Ctrl-C at the prompt: forget what was typed so far.
    void discardTyped();

private:
    static void lineFromReadline(char* line);
    void readAvailable();
    void takeLine(const std::string& line);
    void processBuffered();
    void finish();
    void showPrompt();
    void hidePrompt();

    TextHandler m_onText;
    EndHandler m_onEnd;
    QSocketNotifier* m_notifier = nullptr;
    bool m_interactive = false;
    bool m_paused = false;
    bool m_ended = false;
    bool m_sawEnd = false; // end of input read, text may still be buffered
    bool m_promptShown = false;
    std::string m_bytes;     // read, not yet split into lines
    std::string m_statement; // lines of the statement being gathered
    int m_line = 0;          // lines taken so far
    int m_statementLine = 1; // where m_statement starts
};
