// User messages, log lines and the shared text and file routines.

#include <string>
#include <vector>

#include <QFile>
#include <gtest/gtest.h>

#include "plugin/usermessages.h"
#include "plugintest.h"

namespace {

using UserMessages = PluginTest;
using TextFiles = PluginTest;

// The log line ends in a raw line feed inside the string literal.
TEST_F(UserMessages, EachReportIsTheExactStatementsInCmdOpOnTheMainThread)
{
    struct Row
    {
        void (*report)(std::string);
        std::string message;
        std::vector<std::string> statements;
    };
    const std::vector<Row> rows = {
        {ReportError, "a \"b\"", {shownError("a \"b\""), logged("Error: a \"b\"")}},
        {ReportInfo, "done", {"CmdOp: de_info(\"Tessel Info: done\");", logged("Info: done")}},
        {WriteLog, "", {"CmdOp: fprintf(stderr,\"Tessel:\n\");"}},
    };
    for (const bool fromMessagingThread : {false, true}) {
        for (const Row& row : rows) {
            SCOPED_TRACE(row.message + (fromMessagingThread ? " from a messaging thread" : ""));
            test.brio.clearStatements();
            if (fromMessagingThread)
                ASSERT_TRUE(test.runOnMessagingThread([&] { row.report(row.message); }));
            else
                row.report(row.message);
            EXPECT_EQ(statements(), row.statements);
        }
    }
}

TEST(TextRewrites, EscapeQuotesPutsABackslashBeforeEachQuoteOnce)
{
    for (const auto& [text, escaped] : std::vector<std::pair<std::string, std::string>>{
             {"", ""}, {"a\"b\"c", "a\\\"b\\\"c"}, {"\\\"", "\\\\\""}})
        EXPECT_EQ(EscapeQuotes(text), escaped) << text;
}

TEST_F(TextFiles, ReadAppendsLinesWithTheExtraFinalLineFeed)
{
    const std::vector<std::pair<std::optional<std::string>, std::string>> rows = {
        {"", "\n"},         {"a\nb", "a\nb\n"}, {"\n\n", "\n\n\n"}, {"a\r\nb\r\n", "a\r\nb\r\n\n"},
        {std::nullopt, ""}, // no such file
    };
    for (const auto& [content, appended] : rows) {
        SCOPED_TRACE(content.value_or("(missing)"));
        const std::string path = file(content ? "in \xc3\xbc.iff" : "missing.iff", content);
        std::string text = "kept:";
        testing::internal::CaptureStderr();
        EXPECT_EQ(ReadTextFile(text, path.c_str(), false), content.has_value());
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  content ? "" : "Unable to open IFF file " + path + "\n");
        EXPECT_EQ(text, "kept:" + appended);
        EXPECT_EQ(QFile::exists(QString::fromStdString(path)), content.has_value());
    }
    std::string text;
    ASSERT_TRUE(ReadTextFile(text, file("gone", "x").c_str(), true));
    EXPECT_EQ(text, "x\n");
    EXPECT_FALSE(QFile::exists(QString::fromStdString(file("gone"))));
    text.clear();
    ReadTextFile(text, dir.path().toStdString().c_str(), false); // must not loop forever
    EXPECT_EQ(text, "") << "read a directory";
}

TEST_F(TextFiles, WriteReplacesContentAndClaimsSuccessEvenWhenItCannotOpen)
{
    const std::string path = file("out \xc3\xbc.net", "old content that is longer");
    EXPECT_TRUE(WriteTextFile("new", path));
    EXPECT_EQ(fileContent(path), "new");
    const std::string nowhere = file("no/such/folder/out.net");
    EXPECT_TRUE(WriteTextFile("lost", nowhere));
    EXPECT_FALSE(QFile::exists(QString::fromStdString(nowhere)));
}

} // namespace
