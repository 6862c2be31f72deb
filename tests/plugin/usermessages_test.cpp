// User messages, log lines and the shared text and file routines.

#include <string>
#include <vector>

#include <QFile>
#include <gtest/gtest.h>

#include "plugin/usermessages.h"
#include "plugintest.h"

namespace {

class UserMessages : public PluginTest
{
};
using TextFiles = UserMessages;

TEST_F(UserMessages, EachReportIsTheExactStatementsInCmdOpOnTheMainThread)
{
    struct Row
    {
        void (*report)(std::string);
        std::string message;
        std::vector<std::string> statements;
    };
    // The log line ends in a raw line feed inside the string literal.
    // clang-format off
    const std::vector<Row> rows = {
        {ReportError, "IFF import failed", {"CmdOp: de_info(\"Tessel Error: IFF import failed\");",
                                            "CmdOp: fprintf(stderr,\"Tessel:Error: IFF import failed\n\");"}},
        {ReportInfo, "done", {"CmdOp: de_info(\"Tessel Info: done\");",
                              "CmdOp: fprintf(stderr,\"Tessel:Info: done\n\");"}},
        {WriteLog, "Server started, hostname is pc1",
         {"CmdOp: fprintf(stderr,\"Tessel:Server started, hostname is pc1\n\");"}},
        {ReportError, "", {"CmdOp: de_info(\"Tessel Error: \");", "CmdOp: fprintf(stderr,\"Tessel:Error: \n\");"}},
        {ReportInfo, "a \"b\"", {"CmdOp: de_info(\"Tessel Info: a \"b\"\");",
                                 "CmdOp: fprintf(stderr,\"Tessel:Info: a \"b\"\n\");"}},
    };
    // clang-format on
    for (const bool fromMessagingThread : {false, true}) {
        for (const Row& row : rows) {
            SCOPED_TRACE(row.message + (fromMessagingThread ? " from a messaging thread" : ""));
            test.brio.clearStatements();
            if (fromMessagingThread) {
                ASSERT_TRUE(test.runOnMessagingThread([&] { row.report(row.message); }));
            } else {
                row.report(row.message);
            }
            EXPECT_EQ(statements(), row.statements);
        }
    }
}

TEST(TextRewrites, EscapeQuotesPutsABackslashBeforeEachQuoteOnce)
{
    // clang-format off
    const std::vector<std::pair<std::string, std::string>> escapes = {
        {"", ""}, {"plain", "plain"}, {"\"", "\\\""}, {"\"\"", "\\\"\\\""},
        {"a\"b\"c", "a\\\"b\\\"c"}, {"\\\"", "\\\\\""}};
    // clang-format on
    for (const auto& [text, escaped] : escapes)
        EXPECT_EQ(EscapeQuotes(text), escaped) << text;
}

TEST_F(TextFiles, ReadAppendsLinesWithTheExtraFinalLineFeed)
{
    struct Row
    {
        std::optional<std::string> content; // nullopt: no such file
        std::string appended;
    };
    const std::vector<Row> rows = {
        {"", "\n"},         {"a", "a\n"},       {"a\n", "a\n\n"},
        {"a\nb", "a\nb\n"}, {"\n\n", "\n\n\n"}, {"a\r\nb\r\n", "a\r\nb\r\n\n"},
        {std::nullopt, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.content.value_or("(missing)"));
        const std::string path = file(row.content ? "in \xc3\xbc.iff" : "missing.iff", row.content);
        std::string text = "kept:";
        testing::internal::CaptureStderr();
        EXPECT_EQ(ReadTextFile(text, path.c_str(), false), row.content.has_value());
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  row.content ? "" : "Unable to open IFF file " + path + "\n");
        EXPECT_EQ(text, "kept:" + row.appended);
        EXPECT_EQ(QFile::exists(QString::fromStdString(path)), row.content.has_value());
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
