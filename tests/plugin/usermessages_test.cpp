// User messages, log lines and the shared text and file routines.

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <QDir>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "plugin/usermessages.h"
#include "plugintesthost.h"

namespace {

class UserMessages : public testing::Test
{
protected:
    void SetUp() override { test.reset(); }
    PluginTestHost& test = PluginTestHost::instance();
};

TEST_F(UserMessages, EachReportIsTheExactStatementsInCmdOp)
{
    struct Row
    {
        const char* name;
        void (*report)(std::string);
        std::string message;
        std::vector<std::string> statements;
    };
    const std::vector<Row> rows = {
        {"error",
         ReportError,
         "IFF import failed",
         {"de_info(\"Tessel Error: IFF import failed\");",
          "fprintf(stderr,\"Tessel:Error: IFF import failed\n\");"}},
        {"info",
         ReportInfo,
         "done",
         {"de_info(\"Tessel Info: done\");", "fprintf(stderr,\"Tessel:Info: done\n\");"}},
        {"log",
         WriteLog,
         "Server started, hostname is pc1",
         {"fprintf(stderr,\"Tessel:Server started, hostname is pc1\n\");"}},
        {"empty error",
         ReportError,
         "",
         {"de_info(\"Tessel Error: \");", "fprintf(stderr,\"Tessel:Error: \n\");"}},
        {"quote not escaped",
         ReportInfo,
         "a \"b\"",
         {"de_info(\"Tessel Info: a \"b\"\");", "fprintf(stderr,\"Tessel:Info: a \"b\"\n\");"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        test.reset();
        row.report(row.message);
        EXPECT_EQ(test.statementTexts(), row.statements);
        for (const auto& statement : test.brio.statements())
            EXPECT_EQ(statement.vocabulary, "CmdOp");
    }
}

TEST_F(UserMessages, ReportsFromAnotherThreadReachTheHostOnTheMainThreadInOrder)
{
    ASSERT_TRUE(test.runOnMessagingThread([] { ReportError("x"); }));
    const auto statements = test.brio.statements();
    ASSERT_EQ(statements.size(), 2u);
    EXPECT_EQ(statements[0].text, "de_info(\"Tessel Error: x\");");
    for (const auto& statement : statements) {
        EXPECT_EQ(statement.thread, std::this_thread::get_id());
        EXPECT_EQ(statement.vocabulary, "CmdOp");
    }
}

TEST(TextRewrites, EscapeQuotesAndForwardSlashes)
{
    struct Row
    {
        std::string in;
        std::string escaped;
    };
    for (const Row& row : std::vector<Row>{{"", ""},
                                           {"plain", "plain"},
                                           {"\"", "\\\""},
                                           {"\"\"", "\\\"\\\""},
                                           {"a\"b\"c", "a\\\"b\\\"c"},
                                           {"\\\"", "\\\\\""}}) {
        SCOPED_TRACE(row.in);
        EXPECT_EQ(EscapeQuotes(row.in), row.escaped);
    }
    const std::string windows = "C:\\ws\\proj_wrk\\";
    EXPECT_EQ(ToForwardSlashes(windows), "C:/ws/proj_wrk/");
    EXPECT_EQ(ToForwardSlashes("a/b"), "a/b");
    EXPECT_EQ(ToForwardSlashes(""), "");
}

class TextFiles : public testing::Test
{
protected:
    std::string path(const char* name) const
    {
        return QDir(dir.path()).filePath(name).toStdString();
    }
    static void write(const std::string& path, const std::string& content)
    {
        std::ofstream(path, std::ios::binary) << content;
    }
    static std::string read(const std::string& path)
    {
        std::ifstream file(path, std::ios::binary);
        std::ostringstream content;
        content << file.rdbuf();
        return content.str();
    }
    QTemporaryDir dir;
};

TEST_F(TextFiles, ReadAppendsLinesWithTheExtraFinalLineFeed)
{
    struct Row
    {
        const char* name;
        std::string content;
        std::string appended;
    };
    const std::vector<Row> rows = {
        {"empty", "", "\n"},
        {"no final line feed", "a", "a\n"},
        {"final line feed", "a\n", "a\n\n"},
        {"two lines", "a\nb", "a\nb\n"},
        {"blank lines", "\n\n", "\n\n\n"},
        {"carriage returns kept", "a\r\nb\r\n", "a\r\nb\r\n\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string file = path("in.iff");
        write(file, row.content);
        std::string text = "kept:";
        EXPECT_TRUE(ReadTextFile(text, file.c_str(), false));
        EXPECT_EQ(text, "kept:" + row.appended);
    }
}

TEST_F(TextFiles, ReadOfMissingFileLeavesTextAndWritesTheExactLine)
{
    const std::string file = path("missing.iff");
    std::string text = "unchanged";
    testing::internal::CaptureStderr();
    EXPECT_FALSE(ReadTextFile(text, file.c_str(), false));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Unable to open IFF file " + file + "\n");
    EXPECT_EQ(text, "unchanged");
}

TEST_F(TextFiles, ReadRemovesTheFileOnlyWhenAsked)
{
    const std::string file = path("schéma ünïcode.iff");
    write(file, "x");
    std::string text;
    ASSERT_TRUE(ReadTextFile(text, file.c_str(), false));
    EXPECT_TRUE(QFile::exists(QString::fromStdString(file)));
    ASSERT_TRUE(ReadTextFile(text, file.c_str(), true));
    EXPECT_FALSE(QFile::exists(QString::fromStdString(file)));
    EXPECT_EQ(text, "x\nx\n");
}

TEST_F(TextFiles, ReadOfADirectoryEndsInsteadOfLoopingForever)
{
    std::string text;
    ReadTextFile(text, dir.path().toStdString().c_str(), false);
    EXPECT_EQ(text, "");
}

TEST_F(TextFiles, WriteReplacesContentAndClaimsSuccessEvenWhenItCannotOpen)
{
    const std::string file = path("out ü.net");
    write(file, "old content that is longer");
    EXPECT_TRUE(WriteTextFile("new", file));
    EXPECT_EQ(read(file), "new");
    const std::string nowhere = path("no/such/folder/out.net");
    EXPECT_TRUE(WriteTextFile("lost", nowhere));
    EXPECT_FALSE(QFile::exists(QString::fromStdString(nowhere)));
}

} // namespace
