#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "hostoptions.h"

namespace {

TEST(HostOptions, RefusesBadCommandLinesWithTheReason)
{
    struct Case
    {
        const char* name;
        std::vector<std::string> arguments;
        std::string reason;
    };
    const std::vector<Case> cases = {
        {"unknown option", {"--verbose"}, "unknown option --verbose"},
        {"option without its value", {"--plugin"}, "--plugin needs a path"},
        {"-e without statements", {"-e"}, "-e needs statements"},
        {"version not a number", {"--brio-version", "15x"}, "whole number, not \"15x\""},
        {"until without serve", {"--until", "de_info:1"}, "--until only applies with --serve"},
        {"timeout without serve", {"--timeout", "1"}, "--timeout only applies with --serve"},
        {"until without a count", {"--serve", "--until", "de_info"}, "FUNCTION:COUNT"},
        {"until with count zero", {"--serve", "--until", "de_info:0"}, "FUNCTION:COUNT"},
        {"until without a function", {"--serve", "--until", ":3"}, "FUNCTION:COUNT"},
        {"negative timeout", {"--serve", "--timeout", "-1"}, "positive number of seconds"},
        {"timeout beyond the timer",
         {"--serve", "--timeout", "3000000"},
         "at most 2147483 seconds"},
        {"flag given a value", {"--no-brio=yes"}, "--no-brio takes no value"},
        {"empty library name", {"--library="}, "--library needs a library name"},
        {"unknown dialog answer", {"--dialogs", "yes"}, "ok, cancel or close, not \"yes\""},
        {"edit without a value", {"--dialogs", "ok", "--dialog-edit", "box"}, "NAME=VALUE"},
        {"edit without a name", {"--dialogs", "ok", "--dialog-edit", "=true"}, "NAME=VALUE"},
        {"snapshot without a folder", {"--dialog-snapshot="}, "--dialog-snapshot needs a folder"},
        {"edit without answering", {"--dialog-edit", "box=true"}, "only applies with --dialogs"},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.name);
        HostOptions options;
        std::string error;
        EXPECT_FALSE(HostOptions::parse(row.arguments, options, &error));
        EXPECT_NE(error.find(row.reason), std::string::npos) << error;
    }
}

TEST(HostOptions, HelpNamesEveryOption)
{
    const std::string help = HostOptions::helpText();
    for (const char* option :
         {"--plugin", "--workspace", "--netlists", "--library", "--brio-version", "--no-brio",
          "--fail", "--journal", "--dialogs", "--dialog-edit", "--dialog-snapshot", "-e", "--serve",
          "--until", "--timeout", "--help"}) {
        SCOPED_TRACE(option);
        EXPECT_NE(help.find(option), std::string::npos);
    }
}

} // namespace
