#pragma once
// The command line of lumo-host.

#include <set>
#include <string>
#include <utility>
#include <vector>

struct HostOptions
{
    // Where statements come from, in the order given.
    struct Source
    {
        enum class Kind { File, Expression, StandardInput };
        Kind kind = Kind::StandardInput;
        std::string text; // the path, or the statements of -e
        std::string name; // how messages name it: the path, "-e 2", "stdin"
    };

    bool help = false;
    std::string plugin; // empty: libkiva51.so beside the executable
    std::string workspace;
    std::string netlists;
    std::vector<std::string> libraries;
    int brioVersion = 1500;
    bool noBrio = false;
    std::set<std::string> failing;
    std::string journal;
    std::vector<Source> sources; // never empty after parse(): standard input by default
    bool serve = false;
    std::string untilFunction; // empty: no --until
    int untilCount = 0;
    double timeoutSeconds = 0.0; // 0: no --timeout
    // How every modal dialog is answered: empty (a person answers), "ok",
    // "cancel" or "close"; the edits, object name and value, applied first.
    std::string dialogAnswer;
    std::vector<std::pair<std::string, std::string>> dialogEdits;
    std::string dialogSnapshots; // empty: no pictures

    // Parses the arguments after the program name; false and a reason otherwise.
    static bool parse(const std::vector<std::string>& arguments, HostOptions& options,
                      std::string* error);
    static std::string helpText();
};
