#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QTemporaryDir>

#include "hostrun.h"

namespace {

TEST(HostLoading, LoadsThePluginThenRegistersItsCommandsBeforeAnyStatement)
{
    const HostRun run = runHost({"-e", "tp_null();"});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    ASSERT_FALSE(run.journal.empty());

    const int load = indexOf(run, "load");
    const int lookup = indexOf(run, "lookup");
    const int registration = indexOf(run, "register");
    const int script = indexOf(run, "script");
    EXPECT_EQ(load, 0);
    EXPECT_LT(load, lookup);
    EXPECT_LT(lookup, registration);
    EXPECT_LT(registration, script);

    EXPECT_EQ(run.journal[load].value("version").toInt(), 100);
    EXPECT_EQ(run.journal[lookup].value("name").toString(), "BRIO");
    EXPECT_TRUE(run.journal[lookup].value("found").toBool());
    const QJsonObject& registered = run.journal[registration];
    EXPECT_EQ(registered.value("library").toString(), "TestOp");
    EXPECT_EQ(registered.value("interface").toString(), "BRIO");
    EXPECT_TRUE(registered.value("accepted").toBool());
    EXPECT_EQ(registered.value("commands").toArray().size(), 14);
    EXPECT_EQ(registered.value("commands").toArray().first().toString(), "tp_integer");
    EXPECT_EQ(run.journal.back().value("event").toString(), "exit");
}

TEST(HostLoading, NoBrioFindsNoInterfaceAndTheLoadErrorIsJournalledAndPrinted)
{
    const HostRun run = runHost({"--no-brio", "-e", "tp_null();"});
    ASSERT_EQ(run.records("lookup").size(), 1u);
    EXPECT_FALSE(run.records("lookup")[0].value("found").toBool());
    EXPECT_EQ(run.texts("load_error"), QStringList{"test plug-in: no BRIO interface"});
    EXPECT_TRUE(run.err.contains("test plug-in: no BRIO interface"));
    EXPECT_TRUE(run.records("register").empty());
    // Nothing was registered, so the command is unknown.
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains("-e 1:1: error: unknown function tp_null"));
}

TEST(HostLoading, BrioVersionIsWhatThePluginIsGiven)
{
    struct Case
    {
        const char* version;
        bool accepted;
    };
    for (const Case& row :
         {Case{"1001", false}, Case{"1002", true}, Case{"1999", true}, Case{"2000", false}}) {
        SCOPED_TRACE(row.version);
        const HostRun run = runHost({"--brio-version", row.version, "-e", "x=1;"});
        EXPECT_EQ(run.exitCode, 0);
        EXPECT_EQ(run.records("register").size(), row.accepted ? 1u : 0u);
        EXPECT_EQ(run.texts("load_error"),
                  row.accepted ? QStringList{}
                               : QStringList{"test plug-in: incompatible BRIO interface"});
    }
}

TEST(HostLoading, CommandLibrariesAreCheckedWhenRegistered)
{
    const HostRun run = runHost({"-e", "tp_register(\"clash\"); tp_register(\"words\");", "-e",
                                 "tp_register(\"again\"); tp_null();", "-e", "tp_integer(1);"});
    const std::vector<QJsonObject> registered = run.records("register");
    ASSERT_EQ(registered.size(), 4u);
    EXPECT_FALSE(registered[1].value("accepted").toBool());
    EXPECT_EQ(registered[1].value("reason").toString(),
              "command de_info would hide the host function of that name");
    EXPECT_FALSE(registered[2].value("accepted").toBool());
    EXPECT_EQ(registered[2].value("reason").toString(),
              "register_library expects the words 0, 0, 0 and 1");
    EXPECT_TRUE(registered[3].value("accepted").toBool());
    EXPECT_TRUE(run.err.contains("command library \"ClashOp\" refused"));
    // Registered again, TestOp has tp_null only: tp_integer is gone.
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains("-e 3:1: error: unknown function tp_integer"))
        << run.err.toStdString();
    QJsonArray results;
    for (const QJsonObject& command : run.records("command"))
        results.append(command.value("result"));
    EXPECT_EQ(results, QJsonArray({0, 0, 1, QJsonValue::Null}));
}

TEST(HostLoading, UnusablePluginEndsTheHostWithAClearMessage)
{
    QTemporaryDir dir;
    QFile garbage(dir.filePath("garbage.so"));
    ASSERT_TRUE(garbage.open(QIODevice::WriteOnly));
    garbage.write("not a shared library");
    garbage.close();
    struct Case
    {
        const char* name;
        QString path;
        QString message;
    };
    const std::vector<Case> cases = {
        {"missing file", dir.filePath("none.so"),
         "cannot load the plug-in " + dir.filePath("none.so") + ": No such file or directory"},
        {"folder", dir.path(), "cannot load the plug-in " + dir.path() + ": it is a folder"},
        {"not a shared library", garbage.fileName(),
         "cannot load the plug-in " + garbage.fileName()},
        {"library without the entry points", sdkLibraryPath(),
         sdkLibraryPath() + " is not a Lumo plug-in: it does not export GetLibraryVersion and "
                            "RegisterLibraryContents"},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.name);
        const HostRun run = runHost({"--plugin", row.path, "-e", "x=1;"});
        EXPECT_EQ(run.exitCode, 3);
        EXPECT_TRUE(run.err.contains(row.message)) << run.err.toStdString();
        ASSERT_EQ(run.records("load_error").size(), 1u);
        EXPECT_TRUE(run.records("script").empty());
    }
}

TEST(HostLoading, DefaultPluginIsLibkiva51BesideTheHost)
{
    QTemporaryDir dir;
    const QString host = dir.filePath("lumo-host");
    const QString plugin = dir.filePath("libkiva51.so");
    ASSERT_TRUE(QFile::copy(hostPath(), host));
    ASSERT_TRUE(QFile::copy(testPluginPath(), plugin));
    QFile(host).setPermissions(QFile(host).permissions() | QFileDevice::ExeOwner);

    HostProcess process({"-e", "tp_null();"}, host);
    const HostRun run = process.finish();
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    ASSERT_EQ(run.records("load").size(), 1u);
    EXPECT_EQ(run.records("load")[0].value("plugin").toString(), plugin);
}

TEST(HostLoading, UnreadableScriptEndsTheRunNamingTheFile)
{
    const HostRun run = runHost({"-e", "x=1;", "/no/such/script.brio", "-e", "de_info(\"no\");"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains("cannot read the script /no/such/script.brio: No such file"))
        << run.err.toStdString();
    EXPECT_TRUE(run.records("info").empty());
}

TEST(HostLoading, SyntaxErrorInAScriptNamesFileLineAndColumnAndRunsNothingOfIt)
{
    QTemporaryDir dir;
    const QString script = dir.filePath("broken.brio");
    QFile file(script);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("de_info(\"first\");\nde_info(\"second\" \"third\");\n");
    file.close();

    const HostRun run = runHost({script});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains(script + ":2:18: syntax error: expected ',' or ')'"))
        << run.err.toStdString();
    EXPECT_TRUE(run.records("info").empty());
}

TEST(HostLoading, FailingStatementStopsTheScriptsNamingFileAndLine)
{
    QTemporaryDir dir;
    const QString script = dir.filePath("fails.brio");
    QFile file(script);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("de_info(\"one\");\n\nnope(1);\nde_info(\"two\");\n");
    file.close();

    const HostRun run = runHost({script, "-e", "de_info(\"three\");"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains(script + ":3: error: unknown function nope"))
        << run.err.toStdString();
    EXPECT_EQ(run.texts("info"), QStringList{"one"});
    const std::vector<QJsonObject> scripts = run.records("script");
    ASSERT_EQ(scripts.size(), 2u);
    EXPECT_EQ(scripts[1].value("line").toInt(), 3);
    EXPECT_EQ(scripts[1].value("text").toString(), "nope(1);");
    EXPECT_FALSE(scripts[1].value("ok").toBool());
    EXPECT_EQ(scripts[1].value("reason").toString(), "unknown function nope");
}

TEST(HostLoading, BadCommandLineExitsWithUsageStatus)
{
    const HostRun run = runHost({"--brio-version", "many"});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_TRUE(run.err.contains("--brio-version needs a whole number"));
    EXPECT_TRUE(run.err.contains("--help"));
}

TEST(HostLoading, UnwritableJournalExitsWithUsageStatus)
{
    // Run directly: the harness would add a journal of its own.
    QProcess host;
    host.start(hostPath(), {"--plugin", testPluginPath(), "--journal", "/no/such/folder/j.jsonl",
                            "-e", "x=1;"});
    ASSERT_TRUE(host.waitForFinished(60000));
    EXPECT_EQ(host.exitCode(), 2);
    EXPECT_TRUE(QString::fromUtf8(host.readAllStandardError())
                    .contains("cannot write the journal /no/such/folder/j.jsonl"));
}

} // namespace
