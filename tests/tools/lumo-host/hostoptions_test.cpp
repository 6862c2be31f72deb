#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "hostoptions.h"

namespace {

using Kind = HostOptions::Source::Kind;

HostOptions parsed(const std::vector<std::string>& arguments)
{
    HostOptions options;
    std::string error;
    EXPECT_TRUE(HostOptions::parse(arguments, options, &error)) << error;
    return options;
}

TEST(HostOptions, DefaultsReadStandardInputWithVersion1500)
{
    const HostOptions options = parsed({});
    EXPECT_EQ(options.brioVersion, 1500);
    EXPECT_FALSE(options.noBrio);
    EXPECT_FALSE(options.serve);
    EXPECT_TRUE(options.plugin.empty());
    ASSERT_EQ(options.sources.size(), 1u);
    EXPECT_EQ(options.sources[0].kind, Kind::StandardInput);
}

TEST(HostOptions, KeepsScriptsExpressionsAndStandardInputInTheirOrder)
{
    const HostOptions options =
        parsed({"a.brio", "-e", "x=1;", "-", "--serve", "-e", "y();", "b.brio"});
    ASSERT_EQ(options.sources.size(), 5u);
    EXPECT_EQ(options.sources[0].kind, Kind::File);
    EXPECT_EQ(options.sources[0].name, "a.brio");
    EXPECT_EQ(options.sources[1].kind, Kind::Expression);
    EXPECT_EQ(options.sources[1].text, "x=1;");
    EXPECT_EQ(options.sources[1].name, "-e 1");
    EXPECT_EQ(options.sources[2].kind, Kind::StandardInput);
    EXPECT_EQ(options.sources[3].name, "-e 2");
    EXPECT_EQ(options.sources[4].text, "b.brio");
    EXPECT_TRUE(options.serve);
}

TEST(HostOptions, RepeatableOptionsAccumulateAndValuesMayFollowAnEqualsSign)
{
    const HostOptions options =
        parsed({"--library", "rflib", "--library=scratch", "--fail", "de_info",
                "--fail=mgclink_import_iff_file", "--brio-version=2000", "--no-brio", "--workspace",
                "/tmp/ws", "--journal=j.jsonl", "--serve", "--until", "de_info:3", "--timeout",
                "2.5", "-e", "f();"});
    EXPECT_EQ(options.libraries, (std::vector<std::string>{"rflib", "scratch"}));
    EXPECT_EQ(options.failing, (std::set<std::string>{"de_info", "mgclink_import_iff_file"}));
    EXPECT_EQ(options.brioVersion, 2000);
    EXPECT_TRUE(options.noBrio);
    EXPECT_EQ(options.workspace, "/tmp/ws");
    EXPECT_EQ(options.journal, "j.jsonl");
    EXPECT_EQ(options.untilFunction, "de_info");
    EXPECT_EQ(options.untilCount, 3);
    EXPECT_DOUBLE_EQ(options.timeoutSeconds, 2.5);
}

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
        {"flag given a value", {"--no-brio=yes"}, "--no-brio takes no value"},
        {"empty library name", {"--library="}, "--library needs a library name"},
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
          "--fail", "--journal", "-e", "--serve", "--until", "--timeout", "--help"}) {
        SCOPED_TRACE(option);
        EXPECT_NE(help.find(option), std::string::npos);
    }
}

} // namespace
