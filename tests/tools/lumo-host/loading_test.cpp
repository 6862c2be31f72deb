#include <gtest/gtest.h>

#include <QFile>
#include <QJsonDocument>
#include <QTemporaryDir>

#include "hostrun.h"

namespace {

QString writeFile(const QTemporaryDir& dir, const QString& name, const QByteArray& content)
{
    QFile file(dir.filePath(name));
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(content);
    return file.fileName();
}

TEST(HostLoading, LoadsThePluginThenRegistersItsCommandsBeforeAnyStatement)
{
    const HostRun run = runHost({"-e", "tp_null();"});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.indexOf("load"), 0);
    EXPECT_LT(run.indexOf("load"), run.indexOf("lookup"));
    EXPECT_LT(run.indexOf("lookup"), run.indexOf("register"));
    EXPECT_LT(run.indexOf("register"), run.indexOf("script"));
    EXPECT_EQ(run.journal.back().value("event").toString(), "exit");

    QStringList records;
    for (const char* event : {"load", "lookup", "register"})
        records << QJsonDocument(run.records(event).at(0)).toJson(QJsonDocument::Compact);
    EXPECT_EQ(records.join('\n'),
              R"({"event":"load","plugin":")" PLUGIN_PATH R"(","version":100})"
              "\n"
              R"({"event":"lookup","found":true,"name":"BRIO"})"
              "\n"
              R"({"accepted":true,"commands":["tp_integer","tp_null","tp_release","tp_version",)"
              R"("tp_types","tp_post","tp_modal"],"event":"register","interface":"BRIO",)"
              R"("library":"TestOp"})");
}

// The interface it finds, or not, and the version it is told: the end-to-end
// loading table (tests/e2e/loading_test.cpp), with the real plug-in.
TEST(HostLoading, BrioVersionIsWhatThePluginIsTold)
{
    EXPECT_EQ(runHost({"-e", "tp_version();"}).results(), QJsonArray({1500}));
    EXPECT_EQ(runHost({"--brio-version=2000", "-e", "tp_version();"}).results(),
              QJsonArray({2000}));
}

TEST(HostLoading, DefaultPluginIsLibkiva51BesideTheHost)
{
    QTemporaryDir dir;
    const QString host = dir.filePath("lumo-host");
    const QString plugin = dir.filePath("libkiva51.so");
    ASSERT_TRUE(QFile::copy(QStringLiteral(LUMO_HOST_PATH), host));
    ASSERT_TRUE(QFile::copy(QStringLiteral(PLUGIN_PATH), plugin));
    const HostRun run = HostProcess({"-e", "tp_null();"}, host).finish();
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.records("load").at(0).value("plugin").toString(), plugin);
}

// Bad command lines, plug-ins and scripts: a clear message naming the file and
// line or the reason, a non-zero status, and nothing run after the mistake.
TEST(HostBadInput, EndsWithAMessageNamingWhatIsWrongAndItsStatus)
{
    QTemporaryDir dir;
    const QString garbage = writeFile(dir, "garbage.so", "not a shared library");
    const QString broken =
        writeFile(dir, "broken.brio", "de_info(\"first\");\nde_info(\"second\" \"third\");\n");
    const QString failing = writeFile(dir, "fails.brio", "x=1;\n\nnope(1);\nde_info(\"never\");\n");
    const QString none = dir.filePath("none.so");
    const QString sdk = QStringLiteral(SDK_LIBRARY_PATH);
    struct Case
    {
        QStringList arguments;
        int exitCode;
        QString message;
    };
    const std::vector<Case> cases = {
        {{"--brio-version", "many"},
         2,
         "--brio-version needs a whole number, not \"many\"\nTry 'lumo-host --help'"},
        {{"--journal", "/no/such/folder/j.jsonl"},
         2,
         "cannot write the journal /no/such/folder/j.jsonl"},
        {{"--workspace", garbage + "/workspace"},
         2,
         "cannot open the workspace: cannot create the folder " + garbage +
             "/workspace: Not a directory"},
        {{"--plugin", none}, 3, "cannot load the plug-in " + none + ": No such file or directory"},
        {{"--plugin", dir.path()}, 3, "cannot load the plug-in " + dir.path() + ": it is a folder"},
        {{"--plugin", garbage}, 3, "cannot load the plug-in " + garbage},
        {{"--plugin", sdk},
         3,
         sdk + " is not a Lumo plug-in: it does not export GetLibraryVersion and "
               "RegisterLibraryContents"},
        {{"/no/such/script.brio"}, 1, "cannot read the script /no/such/script.brio: No such file"},
        {{broken}, 1, broken + ":2:18: syntax error: expected ',' or ')'"},
        {{failing}, 1, failing + ":3: error: unknown function nope"},
        {{"-e", "de_info(\"a\", \"b\");"}, 1, "-e 1:1: error: de_info: takes 1 argument, got 2"},
        {{"-e", "x=1;\nde_info(x);"},
         1,
         "-e 1:2: error: de_info: argument 1 must be a string, got an integer"},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.message.toStdString());
        const HostRun run = runHost(QStringList(row.arguments) << "-e"
                                                               << "de_info(\"never\");");
        EXPECT_EQ(run.exitCode, row.exitCode);
        EXPECT_TRUE(run.err.contains("lumo-host: " + row.message)) << run.err.toStdString();
        EXPECT_FALSE(run.texts("info").contains("never"));
        if (row.exitCode == 3) {
            EXPECT_EQ(run.records("load_error").size(), 1u);
            EXPECT_TRUE(run.records("exit").empty());
        }
    }
}

} // namespace
