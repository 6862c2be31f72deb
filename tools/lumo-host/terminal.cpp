#include "terminal.h"

#include <cstdio>
#include <cstdlib>

#include <readline/readline.h>

namespace {

bool& promptActive()
{
    static bool active = false;
    return active;
}

void write(std::FILE* stream, const std::string& text)
{
    if (!promptActive()) {
        std::fwrite(text.data(), 1, text.size(), stream);
        std::fflush(stream);
        return;
    }
    // Take the prompt and the half-typed line away, print, then put them back.
    char* typed = rl_copy_text(0, rl_end);
    const int point = rl_point;
    rl_save_prompt();
    rl_replace_line("", 0);
    rl_redisplay();
    std::fwrite(text.data(), 1, text.size(), stream);
    std::fflush(stream);
    rl_restore_prompt();
    rl_replace_line(typed, 0);
    rl_point = point;
    rl_forced_update_display();
    std::free(typed);
}

} // namespace

namespace Terminal {

void writeOut(const std::string& text)
{
    write(stdout, text);
}

void writeError(const std::string& text)
{
    write(stderr, text);
}

void printLines(const std::string& prefix, const std::string& text)
{
    std::string out;
    std::size_t start = 0;
    for (;;) {
        const std::size_t end = text.find('\n', start);
        out += prefix;
        out += text.substr(start, end == std::string::npos ? std::string::npos : end - start);
        out += '\n';
        if (end == std::string::npos || end + 1 == text.size())
            break;
        start = end + 1;
    }
    writeOut(out);
}

void printMessage(const std::string& message)
{
    writeError("lumo-host: " + message + "\n");
}

void setPromptActive(bool active)
{
    promptActive() = active;
}

} // namespace Terminal
