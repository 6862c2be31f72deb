#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "hostoptions.h"

namespace {

TEST(HostOptions, RefusesBadCommandLinesWithTheReason)
{
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"--verbose"}, "unknown option --verbose"},
        {{"--plugin"}, "--plugin needs a path"},
        {{"-e"}, "-e needs statements"},
        {{"--brio-version", "15x"}, "whole number, not \"15x\""},
        {{"--until", "de_info:1"}, "--until only applies with --serve"},
        {{"--serve", "--until", "de_info:0"}, "FUNCTION:COUNT"},
        {{"--serve", "--timeout", "-1"}, "positive number of seconds, not \"-1\""},
        {{"--serve", "--timeout", "3000000"}, "at most 2147483 seconds, not \"3000000\""},
        {{"--no-brio=yes"}, "--no-brio takes no value"},
        {{"--library="}, "--library needs a library name"},
        {{"--dialogs", "yes"}, "ok, cancel or close, not \"yes\""},
        {{"--dialogs", "ok", "--dialog-edit", "=true"}, "NAME=VALUE"},
        {{"--dialog-edit", "box=true"}, "only applies with --dialogs"},
    };
    for (const auto& [arguments, reason] : cases) {
        SCOPED_TRACE(reason);
        HostOptions options;
        std::string error;
        EXPECT_FALSE(HostOptions::parse(arguments, options, &error));
        EXPECT_NE(error.find(reason), std::string::npos) << error;
    }
}

} // namespace
