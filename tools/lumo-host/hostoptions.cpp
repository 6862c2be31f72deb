#include "hostoptions.h"

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>

namespace {

constexpr int MaximumTimeoutSeconds = INT_MAX / 1000;

bool parseInteger(const std::string& text, long long minimum, long long& value)
{
    if (text.empty())
        return false;
    char* end = nullptr;
    errno = 0;
    value = std::strtoll(text.c_str(), &end, 10);
    return errno == 0 && *end == '\0' && value >= minimum && value <= INT_MAX;
}

} // namespace

bool HostOptions::parse(const std::vector<std::string>& arguments, HostOptions& options,
                        std::string* error)
{
    auto fail = [error](const std::string& reason) {
        if (error)
            *error = reason;
        return false;
    };
    int expressions = 0;
    bool serveSeen = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        std::string argument = arguments[i];
        std::string value;
        bool hasInlineValue = false;
        if (argument.rfind("--", 0) == 0) {
            const std::size_t equals = argument.find('=');
            if (equals != std::string::npos) {
                value = argument.substr(equals + 1);
                argument = argument.substr(0, equals);
                hasInlineValue = true;
            }
        }
        auto takeValue = [&](std::string& out) {
            if (hasInlineValue) {
                out = value;
                return true;
            }
            if (i + 1 >= arguments.size())
                return false;
            out = arguments[++i];
            return true;
        };
        auto needsValue = [&](const char* what) {
            return fail("option " + argument + " needs " + what);
        };
        auto takesNoValue = [&] {
            return hasInlineValue ? fail("option " + argument + " takes no value") : true;
        };

        if (argument == "-h" || argument == "--help") {
            options.help = true;
        } else if (argument == "--plugin") {
            if (!takeValue(options.plugin) || options.plugin.empty())
                return needsValue("a path");
        } else if (argument == "--workspace") {
            if (!takeValue(options.workspace) || options.workspace.empty())
                return needsValue("a folder");
        } else if (argument == "--netlists") {
            if (!takeValue(options.netlists) || options.netlists.empty())
                return needsValue("a folder");
        } else if (argument == "--library") {
            std::string library;
            if (!takeValue(library) || library.empty())
                return needsValue("a library name");
            options.libraries.push_back(library);
        } else if (argument == "--brio-version") {
            std::string text;
            long long version = 0;
            if (!takeValue(text))
                return needsValue("a number");
            if (!parseInteger(text, INT_MIN, version))
                return fail("--brio-version needs a whole number, not \"" + text + "\"");
            options.brioVersion = static_cast<int>(version);
        } else if (argument == "--no-brio") {
            if (!takesNoValue())
                return false;
            options.noBrio = true;
        } else if (argument == "--fail") {
            std::string function;
            if (!takeValue(function) || function.empty())
                return needsValue("a function name");
            options.failing.insert(function);
        } else if (argument == "--journal") {
            if (!takeValue(options.journal) || options.journal.empty())
                return needsValue("a file");
        } else if (argument == "--dialogs") {
            if (!takeValue(options.dialogAnswer))
                return needsValue("ok, cancel or close");
            if (options.dialogAnswer != "ok" && options.dialogAnswer != "cancel" &&
                options.dialogAnswer != "close")
                return fail("--dialogs needs ok, cancel or close, not \"" + options.dialogAnswer +
                            "\"");
        } else if (argument == "--dialog-edit") {
            std::string text;
            if (!takeValue(text))
                return needsValue("NAME=VALUE");
            const std::size_t equals = text.find('=');
            if (equals == std::string::npos || equals == 0)
                return fail("--dialog-edit needs NAME=VALUE, not \"" + text + "\"");
            options.dialogEdits.emplace_back(text.substr(0, equals), text.substr(equals + 1));
        } else if (argument == "--dialog-snapshot") {
            if (!takeValue(options.dialogSnapshots) || options.dialogSnapshots.empty())
                return needsValue("a folder");
        } else if (argument == "-e") {
            Source source;
            if (!takeValue(source.text))
                return needsValue("statements");
            source.kind = Source::Kind::Expression;
            source.name = "-e " + std::to_string(++expressions);
            options.sources.push_back(source);
        } else if (argument == "--serve") {
            if (!takesNoValue())
                return false;
            options.serve = serveSeen = true;
        } else if (argument == "--until") {
            std::string text;
            if (!takeValue(text))
                return needsValue("FUNCTION:COUNT");
            const std::size_t colon = text.rfind(':');
            long long count = 0;
            if (colon == std::string::npos || colon == 0 ||
                !parseInteger(text.substr(colon + 1), 1, count))
                return fail("--until needs FUNCTION:COUNT with a count of 1 or more, not \"" +
                            text + "\"");
            options.untilFunction = text.substr(0, colon);
            options.untilCount = static_cast<int>(count);
        } else if (argument == "--timeout") {
            std::string text;
            if (!takeValue(text))
                return needsValue("a number of seconds");
            char* end = nullptr;
            const double seconds = std::strtod(text.c_str(), &end);
            if (text.empty() || *end != '\0' || !std::isfinite(seconds) || seconds <= 0)
                return fail("--timeout needs a positive number of seconds, not \"" + text + "\"");
            // The timer counts milliseconds in an int: about 24 days.
            if (seconds > MaximumTimeoutSeconds)
                return fail("--timeout takes at most " + std::to_string(MaximumTimeoutSeconds) +
                            " seconds, not \"" + text + "\"");
            options.timeoutSeconds = seconds;
        } else if (argument == "-") {
            options.sources.push_back({Source::Kind::StandardInput, {}, "stdin"});
        } else if (argument.size() > 1 && argument[0] == '-') {
            return fail("unknown option " + argument);
        } else {
            options.sources.push_back({Source::Kind::File, argument, argument});
        }
    }
    if (!serveSeen && !options.untilFunction.empty())
        return fail("--until only applies with --serve");
    if (!serveSeen && options.timeoutSeconds > 0)
        return fail("--timeout only applies with --serve");
    if (options.dialogAnswer.empty() && !options.dialogEdits.empty())
        return fail("--dialog-edit only applies with --dialogs");
    if (options.sources.empty())
        options.sources.push_back({Source::Kind::StandardInput, {}, "stdin"});
    return true;
}

std::string HostOptions::helpText()
{
    return R"(Usage: lumo-host [OPTION]... [SCRIPT.brio | -]... [--serve [--until F:N] [--timeout S]]

Stand-in for the Lumo design host: loads the plug-in, runs BRIO statements on
its main thread, performs the plug-in's idle requests and keeps a journal.

Plug-in and host:
  --plugin PATH         plug-in to load (default: libkiva51.so beside lumo-host,
                        else in the library folder of its installation)
  --workspace DIR       the open workspace (created if missing); without it the
                        workspace query answers the empty string
  --netlists DIR        the netlists folder (default: WORKSPACE/netlists)
  --library NAME        an open, writable design library (repeatable)
  --brio-version N      version of the BRIO interface (default: 1500)
  --no-brio             the registry finds no BRIO interface
  --fail FUNCTION       every statement calling FUNCTION fails (repeatable)
  --journal FILE        write one JSON record per line to FILE

Dialogs of the plug-in (without --dialogs they wait for a person):
  --dialogs ANSWER      answer every modal dialog as soon as it is shown:
                        ok (press Ok), cancel (press Cancel) or close (close
                        the window as its close button does)
  --dialog-edit NAME=VALUE
                        before answering, set the control named NAME: a combo
                        box's current entry, a line edit's text, a check box
                        (true or false); repeatable, applied in order
  --dialog-snapshot DIR save a picture of each dialog as shown in DIR, as
                        dialog-N.png (N counts the dialogs of the run from 1)

Statements, run in the order given:
  -e STATEMENTS         run STATEMENTS (repeatable)
  SCRIPT.brio           run the statements of a file
  -                     read statements from standard input
  With no script and no -e, statements come from standard input: a prompt
  with history on a terminal, otherwise statements line by line (one may span
  lines up to its ';').

Serving:
  --serve               after the statements, keep performing idle requests
                        until SIGINT or SIGTERM
  --until FUNCTION:N    ... or until FUNCTION has been called N times
  --timeout SECONDS     ... or until SECONDS have passed since serving began

  -h, --help            show this help

Exit status: 0 done; 1 a statement failed, a script could not be read or
parsed, a --dialog-edit could not be applied or a snapshot not saved; 2 bad
command line, journal, workspace or snapshot folder; 3 the plug-in could not
be loaded; 4 --timeout passed before --until was met.
Files written in the workspace and the journal records: see README.md.
)";
}
