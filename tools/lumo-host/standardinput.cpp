#include "standardinput.h"

#include <QSocketNotifier>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

#include <readline/history.h>
#include <readline/readline.h>

#include "brioparser.h"
#include "terminal.h"

namespace {

// readline's callback takes no context: the one interactive reader.
StandardInput*& activeReader()
{
    static StandardInput* reader = nullptr;
    return reader;
}

bool isBlank(const std::string& text)
{
    return text.find_first_not_of(" \t\r\n") == std::string::npos;
}

const char* const Prompt = "lumo> ";
const char* const ContinuationPrompt = "  ... ";

} // namespace

StandardInput::StandardInput(TextHandler onText, EndHandler onEnd, QObject* parent)
    : QObject(parent), m_onText(std::move(onText)), m_onEnd(std::move(onEnd)),
      m_interactive(::isatty(STDIN_FILENO) && ::isatty(STDOUT_FILENO))
{
}

StandardInput::~StandardInput()
{
    hidePrompt();
}

void StandardInput::start()
{
    m_notifier = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &StandardInput::readAvailable);
    if (m_interactive) {
        activeReader() = this;
        showPrompt();
    }
}

void StandardInput::pause()
{
    m_paused = true;
    if (m_notifier)
        m_notifier->setEnabled(false);
    hidePrompt();
}

void StandardInput::resume()
{
    m_paused = false;
    if (m_ended)
        return;
    processBuffered();
    if (m_paused || m_ended)
        return;
    if (m_sawEnd) {
        finish();
        return;
    }
    if (m_notifier)
        m_notifier->setEnabled(true);
    showPrompt();
}

void StandardInput::discardTyped()
{
    m_statement.clear();
    if (m_interactive && m_promptShown) {
        rl_replace_line("", 0);
        Terminal::setPromptActive(false);
        std::fputs("\n", stdout);
        rl_callback_handler_remove();
        m_promptShown = false;
        showPrompt();
    }
}

void StandardInput::readAvailable()
{
    if (m_interactive) {
        rl_callback_read_char(); // calls lineFromReadline for a whole line
        return;
    }
    char buffer[4096];
    const ssize_t count = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (count < 0 && (errno == EINTR || errno == EAGAIN))
        return;
    if (count <= 0) {
        m_notifier->setEnabled(false);
        m_sawEnd = true;
        // A last line without a line feed still counts.
        if (!m_bytes.empty()) {
            m_bytes += '\n';
        }
    } else {
        m_bytes.append(buffer, static_cast<std::size_t>(count));
    }
    processBuffered();
    if (m_sawEnd && !m_paused)
        finish();
}

void StandardInput::lineFromReadline(char* line)
{
    StandardInput* reader = activeReader();
    if (!reader)
        return;
    if (!line) {
        // Ctrl-D: end of input.
        reader->hidePrompt();
        std::fputs("\n", stdout);
        reader->m_sawEnd = true;
        reader->m_notifier->setEnabled(false);
        if (!reader->m_paused)
            reader->finish();
        return;
    }
    const std::string text = line;
    std::free(line);
    // Off before the line is taken: what taking it prints (a syntax error)
    // must not bring the finished line back with it.
    reader->hidePrompt();
    reader->takeLine(text);
    // A new prompt for the next line; the continuation prompt mid-statement.
    if (!reader->m_paused && !reader->m_ended)
        reader->showPrompt();
}

void StandardInput::processBuffered()
{
    std::size_t end;
    while (!m_paused && (end = m_bytes.find('\n')) != std::string::npos) {
        std::string line = m_bytes.substr(0, end);
        m_bytes.erase(0, end + 1);
        takeLine(line);
    }
}

void StandardInput::takeLine(const std::string& line)
{
    ++m_line;
    if (isBlank(m_statement)) {
        m_statement.clear();
        m_statementLine = m_line;
    }
    m_statement += line;
    m_statement += '\n';
    if (isBlank(m_statement))
        return;
    // Complete when it parses, or fails for a reason more text cannot mend.
    const BRIOParser::Result parsed = BRIOParser::parse(m_statement, m_statementLine);
    if (parsed.error && parsed.error->atEnd)
        return;
    std::string text;
    text.swap(m_statement);
    if (m_interactive) {
        std::string entry = text.substr(0, text.size() - 1);
        add_history(entry.c_str());
    }
    m_onText(text, m_statementLine);
}

void StandardInput::finish()
{
    if (m_ended)
        return;
    // Whatever is left is incomplete: hand it on so that its error is reported.
    if (!isBlank(m_statement)) {
        std::string text;
        text.swap(m_statement);
        m_onText(text, m_statementLine);
        if (m_paused)
            return; // finish() comes again from resume()
    }
    m_ended = true;
    hidePrompt();
    if (activeReader() == this)
        activeReader() = nullptr;
    m_onEnd();
}

void StandardInput::showPrompt()
{
    if (!m_interactive || m_promptShown || m_ended)
        return;
    rl_callback_handler_install(isBlank(m_statement) ? Prompt : ContinuationPrompt,
                                &StandardInput::lineFromReadline);
    m_promptShown = true;
    Terminal::setPromptActive(true);
}

void StandardInput::hidePrompt()
{
    if (!m_promptShown)
        return;
    Terminal::setPromptActive(false);
    rl_callback_handler_remove();
    m_promptShown = false;
}
