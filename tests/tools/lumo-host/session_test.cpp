// lumo-host as a process: where it reads statements, how it serves and ends,
// and what it says about bad input.

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>

#include <csignal>

#include "hostrun.h"

namespace {

TEST(HostStandardInput, StatementsMaySpanLinesAndAFailureDoesNotStopTheRest)
{
    QTemporaryDir workspace;
    // The last line has no line feed.
    const QByteArray input =
        "x=\nmgclink_get_workspace_path();\nde_info(x);\nbogus(;\nnope(de_info(\"evaluated\"));\n"
        "de_info(\"two\nlines\"); de_info(\"after\");";
    // Standard input takes its place where the dash stands.
    const HostRun run = runHost({"--workspace", workspace.path(), "-e", "de_info(\"first\");", "-",
                                 "-e", "de_info(\"last\");"},
                                input);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.texts("info"),
              (QStringList{"first", workspace.path(), "two\nlines", "after", "last"}));
    EXPECT_TRUE(run.err.contains("stdin:4:7: syntax error: expected an expression, found ';'"))
        << run.err.toStdString();
    EXPECT_TRUE(run.err.contains("stdin:5: error: unknown function nope"));
    const std::vector<QJsonObject> scripts = run.records({"script", "source", "stdin"});
    ASSERT_EQ(scripts.size(), 6u);
    EXPECT_EQ(scripts[0].value("text").toString(), "x=\nmgclink_get_workspace_path();");
    EXPECT_EQ(scripts[1].value("line").toInt(), 3);
    EXPECT_EQ(scripts[5].value("line").toInt(), 7);

    const HostRun unfinished = runHost({"-"}, "de_info(\"middle\");\nde_info(\"b\"\n");
    EXPECT_EQ(unfinished.exitCode, 1);
    EXPECT_EQ(unfinished.texts("info"), QStringList{"middle"});
    EXPECT_TRUE(unfinished.err.contains("stdin:3:1: syntax error: expected ',' or ')' in the "
                                        "argument list at the end of the text"))
        << unfinished.err.toStdString();
}

TEST(HostStandardInput, AClosedStandardInputEndsAtOnce)
{
    // Through a shell, which can start the host with its standard input closed.
    HostProcess host({"-c", "exec \"$0\" \"$@\" - <&-", QStringLiteral(LUMO_HOST_PATH), "--plugin",
                      QStringLiteral(PLUGIN_PATH), "-e", "de_info(\"before\");"},
                     "/bin/sh");
    const HostRun run = host.finish();
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.texts("info"), QStringList{"before"});
}

TEST(HostServing, EndsWhenUntilIsMetOrTheTimeoutPassesOrAStatementFailed)
{
    // No timeout: de_info was called often enough before serving began.
    const HostRun met =
        runHost({"-e", "de_info(\"a\"); de_info(\"b\");", "--serve", "--until=de_info:2"});
    EXPECT_EQ(met.exitCode, 0) << met.err.toStdString();
    const HostRun late =
        runHost({"-e", "de_info(\"a\");", "--serve", "--until=de_info:2", "--timeout=0.2"});
    EXPECT_EQ(late.exitCode, 4);
    EXPECT_TRUE(late.err.contains("--timeout: 0.2 s passed with de_info called 1 of 2 times"))
        << late.err.toStdString();
    EXPECT_EQ(runHost({"-", "--serve", "--timeout=0.2"}, "nope();\n").exitCode, 1);
}

TEST(HostServing, EndsOnSigtermOrSigint)
{
    for (int signal : {SIGTERM, SIGINT}) {
        SCOPED_TRACE(signal);
        HostProcess host({"-e", "de_info(\"ready\");", "--serve"});
        ASSERT_TRUE(host.waitForOutput("[info] ready"));
        ::kill(static_cast<pid_t>(host.process().processId()), signal);
        const HostRun run = host.finish();
        EXPECT_EQ(run.exitCode, 0);
        EXPECT_EQ(run.records("exit").size(), 1u);
    }
}

TEST(HostLoading, DefaultPluginIsLibkiva51BesideTheHost)
{
    QTemporaryDir dir;
    const QString host = dir.filePath("lumo-host");
    ASSERT_TRUE(QFile::copy(QStringLiteral(LUMO_HOST_PATH), host));
    ASSERT_TRUE(QFile::copy(QStringLiteral(PLUGIN_PATH), dir.filePath("libkiva51.so")));
    const HostRun run = HostProcess({"-e", "x=1;"}, host).finish();
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.records("load").at(0).value("plugin").toString(), dir.filePath("libkiva51.so"));
}

// A clear message naming the file and line or the reason, a non-zero status,
// and nothing run after the mistake.
TEST(HostBadInput, EndsWithAMessageNamingWhatIsWrongAndItsStatus)
{
    QTemporaryDir dir;
    const QString garbage = writeFile(dir.filePath("garbage.so"), "not a shared library");
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
        {{"--workspace", garbage + "/w"},
         2,
         "cannot open the workspace: cannot create the folder " + garbage + "/w: Not a directory"},
        {{"--plugin", none}, 3, "cannot load the plug-in " + none + ": No such file or directory"},
        {{"--plugin", dir.path()}, 3, "cannot load the plug-in " + dir.path() + ": it is a folder"},
        {{"--plugin", sdk},
         3,
         sdk + " is not a Lumo plug-in: it does not export GetLibraryVersion and "
               "RegisterLibraryContents"},
        {{"/no/such/script.brio"}, 1, "cannot read the script /no/such/script.brio: No such file"},
        {{"-e", "x=1;\nde_info(y);"}, 1, "-e 1:2: error: unknown variable y in vocabulary"},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.message.toStdString());
        const HostRun run = runHost(QStringList(row.arguments) << "-e"
                                                               << "de_info(\"never\");");
        EXPECT_EQ(run.exitCode, row.exitCode);
        EXPECT_TRUE(run.err.contains("lumo-host: " + row.message)) << run.err.toStdString();
        EXPECT_FALSE(run.texts("info").contains("never"));
        EXPECT_EQ(run.records("load_error").size(), row.exitCode == 3 ? 1u : 0u);
    }
}

} // namespace
