#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>

#include "hostrun.h"

namespace {

class HostFunctionsTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(workspace.isValid()); }

    HostRun run(const QStringList& statements, const QByteArray& input = {})
    {
        QStringList arguments = {"--workspace", workspace.path(), "--library",
                                 "rflib",       "--library",      "scratch"};
        for (const QString& statement : statements)
            arguments << "-e" << statement;
        if (!input.isEmpty())
            arguments << "-";
        return runHost(arguments, input);
    }

    QString writeFile(const QString& name, const QByteArray& content)
    {
        const QString path = files.filePath(name);
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
        return path;
    }

    static QByteArray read(const QString& path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(missing)");
    }

    static QJsonObject readJson(const QString& path)
    {
        return QJsonDocument::fromJson(read(path)).object();
    }

    QString ws(const QString& relative) const { return workspace.filePath(relative); }

    QTemporaryDir workspace;
    QTemporaryDir files;
};

TEST_F(HostFunctionsTest, PathQueriesAnswerTheWorkspaceAndItsNetlistsFolder)
{
    const HostRun result =
        run({"de_info(mgclink_get_workspace_path()); de_info(mgclink_get_netlists_path());"});
    EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(result.texts("info"), (QStringList{workspace.path(), ws("netlists")}));
    EXPECT_TRUE(QDir(ws("netlists")).exists());
}

TEST_F(HostFunctionsTest, PathQueriesWithoutWorkspaceAnswerEmptyOrTheNetlistsOption)
{
    const QString netlists = files.filePath("nets");
    const HostRun bare = runHost(
        {"-e", "de_info(mgclink_get_workspace_path()); de_info(mgclink_get_netlists_path());"});
    EXPECT_EQ(bare.texts("info"), (QStringList{"", ""}));
    const HostRun given =
        runHost({"--netlists", netlists, "-e", "de_info(mgclink_get_netlists_path());"});
    EXPECT_EQ(given.texts("info"), QStringList{netlists});
    EXPECT_TRUE(QDir(netlists).exists());
}

TEST_F(HostFunctionsTest, CreateDesignWritesADesignRecord)
{
    QDir().mkpath(ws("netlists"));
    QFile netlist(ws("netlists/amp_top_lna.net"));
    ASSERT_TRUE(netlist.open(QIODevice::WriteOnly));
    netlist.close();

    const HostRun result = run(
        {"mgclink_create_design(\"\", \"amp_top_lna\", \"amp_top.sch\", \"C:/designs/amp\", "
         "\"lna\", 2, list(list(\"P1\",0,1.5,1,0),list(\"P2\",12.25,1.5,2,0)), 0);",
         "mgclink_create_design(\"\", \"bare_r1\", \"bare.sch\", \"/d\", \"r1\", 3, NULL, 0);"});
    EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();

    const QJsonObject design = readJson(ws("designs/amp_top_lna.design"));
    EXPECT_EQ(design.value("cell").toString(), "amp_top_lna");
    EXPECT_EQ(design.value("design").toString(), "amp_top.sch");
    EXPECT_EQ(design.value("design_path").toString(), "C:/designs/amp");
    EXPECT_EQ(design.value("region").toString(), "lna");
    EXPECT_EQ(design.value("port_count").toInt(), 2);
    EXPECT_EQ(design.value("netlist").toString(), ws("netlists/amp_top_lna.net"));
    EXPECT_TRUE(design.value("netlist_found").toBool());
    const QJsonArray ports = design.value("ports").toArray();
    ASSERT_EQ(ports.size(), 2);
    EXPECT_EQ(ports[1].toObject().value("label").toString(), "P2");
    EXPECT_DOUBLE_EQ(ports[1].toObject().value("x").toDouble(), 12.25);
    EXPECT_DOUBLE_EQ(ports[1].toObject().value("y").toDouble(), 1.5);
    EXPECT_EQ(ports[1].toObject().value("number").toInt(), 2);
    EXPECT_EQ(ports[1].toObject().value("type").toInt(), 0);

    const QJsonObject bare = readJson(ws("designs/bare_r1.design"));
    EXPECT_TRUE(bare.value("ports").isNull());
    EXPECT_EQ(bare.value("port_count").toInt(), 3);
    EXPECT_FALSE(bare.value("netlist_found").toBool());
    EXPECT_TRUE(result.out.contains("[host] design amp_top_lna created: " +
                                    ws("designs/amp_top_lna.design")));
}

TEST_F(HostFunctionsTest, IffImportCopiesTheFileIntoTheLibraryFolder)
{
    const QString iff = writeFile("mgcLayoutTmp.iff", "first layout\n");
    const QString target = ws("libraries/rflib/mgcLayoutTmp.iff");
    const QString statement = "mgclink_import_iff_file(\"rflib\", \"" + iff + "\", \"%1\");";

    HostRun result = run({statement.arg("FALSE")});
    EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(read(target), "first layout\n");
    const std::vector<QJsonObject> calls = result.records("call");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].value("function").toString(), "mgclink_import_iff_file");
    EXPECT_EQ(calls[0].value("args").toArray(), QJsonArray({"rflib", iff, "FALSE"}));

    // An existing copy is replaced only when overwriting is TRUE.
    writeFile("mgcLayoutTmp.iff", "second layout\n");
    result = run({}, (statement.arg("FALSE") + "\n" + statement.arg("TRUE") + "\n").toUtf8());
    const std::vector<QJsonObject> scripts = result.records("script");
    ASSERT_EQ(scripts.size(), 2u);
    EXPECT_FALSE(scripts[0].value("ok").toBool());
    EXPECT_TRUE(scripts[0].value("reason").toString().contains(
        "library rflib already holds mgcLayoutTmp.iff and overwriting is FALSE"));
    EXPECT_TRUE(scripts[1].value("ok").toBool());
    EXPECT_EQ(read(target), "second layout\n");
}

TEST_F(HostFunctionsTest, EgsImportMakesAnEmViewThatCollectsThePorts)
{
    const QString egs = writeFile("genFathom_a", "egs data\n");
    const HostRun result =
        run({"mgclink_import_egs_file(''scratch'',''" + egs +
                 "'', NULL, ''amp_top'',''lna'',''C:/designs/amp'');",
             "mgclink_add_port_to_fathom_view(\"P1\",1,\"internal\",0,1.5,90);"
             "mgclink_add_port_to_fathom_view(\"P2\",2,\"external\",-3.25,1e+06,0.5);"});
    EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(read(ws("libraries/scratch/amp_top_lna.egs")), "egs data\n");

    const QJsonObject view = readJson(ws("libraries/scratch/amp_top_lna.emview"));
    EXPECT_EQ(view.value("library").toString(), "scratch");
    EXPECT_EQ(view.value("design").toString(), "amp_top");
    EXPECT_EQ(view.value("region").toString(), "lna");
    EXPECT_EQ(view.value("design_path").toString(), "C:/designs/amp");
    EXPECT_EQ(view.value("source").toString(), egs);
    const QJsonArray ports = view.value("ports").toArray();
    ASSERT_EQ(ports.size(), 2);
    const QJsonObject second = ports[1].toObject();
    EXPECT_EQ(second.value("name").toString(), "P2");
    EXPECT_EQ(second.value("number").toInt(), 2);
    EXPECT_EQ(second.value("type").toString(), "external");
    EXPECT_DOUBLE_EQ(second.value("x").toDouble(), -3.25);
    EXPECT_DOUBLE_EQ(second.value("y").toDouble(), 1e6);
    EXPECT_DOUBLE_EQ(second.value("value").toDouble(), 0.5);
}

TEST_F(HostFunctionsTest, EmViewNameLeavesOutAnEmptyDesignLabelOrRegion)
{
    const QString egs = writeFile("genFathom_a", "egs\n");
    struct Case
    {
        QString design;
        QString region;
        QString view; // empty: refused
    };
    const std::vector<Case> cases = {
        {"amp", "", "amp"}, {"", "lna", "lna"}, {"", "", ""}, {"a/b", "lna", ""}, {"..", "", ""},
    };
    QByteArray input;
    for (const Case& row : cases)
        input += ("mgclink_import_egs_file(''rflib'',''" + egs + "'', NULL, ''" + row.design +
                  "'',''" + row.region + "'',''/d'');\n")
                     .toUtf8();
    const HostRun result = run({}, input);
    const std::vector<QJsonObject> scripts = result.records("script");
    ASSERT_EQ(scripts.size(), cases.size());
    for (std::size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(scripts[i].value("ok").toBool(), !cases[i].view.isEmpty());
        if (!cases[i].view.isEmpty())
            EXPECT_TRUE(QFile::exists(ws("libraries/rflib/" + cases[i].view + ".emview")));
        else
            EXPECT_TRUE(scripts[i].value("reason").toString().contains("cannot name a file"));
    }
}

TEST_F(HostFunctionsTest, EveryFunctionChecksItsArgumentsAndChangesNothingWhenWrong)
{
    const QString iff = writeFile("a.iff", "x");
    struct Case
    {
        QString statement;
        QString reason;
    };
    const std::vector<Case> cases = {
        {"mgclink_get_workspace_path(1);", "mgclink_get_workspace_path: takes 0 arguments, got 1"},
        {"mgclink_import_iff_file(\"rflib\", \"f\");", "takes 3 arguments, got 2"},
        {"mgclink_import_iff_file(\"rflib\", \"" + iff + "\", 1);",
         "argument 3 must be a string, got an integer"},
        {"mgclink_import_iff_file(\"rflib\", \"" + iff + "\", \"yes\");",
         "argument 3 must be \"TRUE\" or \"FALSE\""},
        {"mgclink_import_iff_file(\"closed\", \"" + iff + "\", \"TRUE\");",
         "library \"closed\" is not open"},
        {"mgclink_import_iff_file(\"\", \"" + iff + "\", \"TRUE\");", "no library named"},
        {"mgclink_import_iff_file(\"rflib\", \"/no/such.iff\", \"TRUE\");",
         "the file /no/such.iff does not exist"},
        {"mgclink_import_egs_file(''rflib'',''/x'', 0, ''a'',''b'',''c'');",
         "argument 3 must be NULL, got an integer"},
        {"mgclink_add_port_to_fathom_view(\"P1\",1,\"internal\",0,1.5,90);", "no EM view is open"},
        {"mgclink_add_port_to_fathom_view(\"P1\",\"1\",\"internal\",0,1.5,90);",
         "argument 2 must be an integer, got a string"},
        {"mgclink_add_port_to_fathom_view(\"P1\",1,\"internal\",\"0\",1.5,90);",
         "argument 4 must be a number, got a string"},
        {"mgclink_create_design(\"\", \"c\", \"d\", \"p\", \"r\", 1, list(list(\"P1\",0,1.5)), 0);",
         "port 1 must be list(label, x, y, number, type)"},
        {"mgclink_create_design(\"\", \"a/b\", \"d\", \"p\", \"r\", 0, NULL, 0);",
         "the design name \"a/b\" cannot name a file"},
        {"mgclink_create_design(\"\", \"c\", \"d\", \"p\", \"r\", 1.5, NULL, 0);",
         "argument 6 must be an integer, got a real"},
        {"mgclink_create_design(\"\", \"c\", \"d\", \"p\", \"r\", 0, \"P1\", 0);",
         "argument 7 must be a list or NULL, got a string"},
        {"mgclink_show_connected_servers(\"pc1\",5000,\"390.001\", \"2.1\",list(,list(\"DXD\")));",
         "peer 1 must be list(name, number)"},
        {"de_info(5);", "de_info: argument 1 must be a string, got an integer"},
        {"de_info(\"a\", \"b\");", "takes 1 argument, got 2"},
        {"fprintf(3, \"x\");", "argument 1 must be stdout or stderr, got an integer"},
    };
    QByteArray input;
    for (const Case& row : cases)
        input += row.statement.toUtf8() + "\n";
    const HostRun result = run({}, input);
    EXPECT_EQ(result.exitCode, 1);

    const std::vector<QJsonObject> scripts = result.records("script");
    const std::vector<QJsonObject> calls = result.records("call");
    ASSERT_EQ(scripts.size(), cases.size());
    ASSERT_EQ(calls.size(), cases.size());
    for (std::size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(cases[i].statement.toStdString());
        EXPECT_FALSE(scripts[i].value("ok").toBool());
        EXPECT_TRUE(scripts[i].value("reason").toString().contains(cases[i].reason))
            << scripts[i].value("reason").toString().toStdString();
        EXPECT_FALSE(calls[i].value("ok").toBool());
    }
    EXPECT_FALSE(QDir(ws("libraries")).exists());
    EXPECT_FALSE(QDir(ws("designs")).exists());
    EXPECT_TRUE(result.records("info").empty());
}

TEST_F(HostFunctionsTest, WithoutWorkspaceNothingIsCreatedOrImported)
{
    const QString iff = writeFile("a.iff", "x");
    const HostRun result = runHost(
        {
            "--library",
            "rflib",
            "-",
        },
        ("mgclink_create_design(\"\", \"c\", \"d\", \"p\", \"r\", 0, NULL, 0);\n"
         "mgclink_import_iff_file(\"rflib\", \"" +
         iff + "\", \"TRUE\");\n")
            .toUtf8());
    const QStringList reasons = {result.records("script").at(0).value("reason").toString(),
                                 result.records("script").at(1).value("reason").toString()};
    EXPECT_TRUE(reasons[0].endsWith("no workspace is open"));
    EXPECT_TRUE(reasons[1].endsWith("no workspace is open"));
}

TEST_F(HostFunctionsTest, ConnectedServersAreShownOnTheTerminal)
{
    const HostRun result =
        run({"mgclink_show_connected_servers(\"pc1\",5000,\"390.001\", "
             "\"2.1\",list(,list(\"DXD\",3)));",
             "mgclink_show_connected_servers(\"pc1\",0,\"390.001\", \"2.1\",list(,list(\"DXD\",1),"
             "list(\"BSXE\",2)));",
             "mgclink_show_connected_servers(\"pc1\",5000,\"390.001\", \"2.1\",NULL);"});
    EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(result.out,
              "[servers] host pc1, port 5000, plug-in 390.001, messaging 2.1: DXD (3)\n"
              "[servers] host pc1, port 0, plug-in 390.001, messaging 2.1: DXD (1), BSXE (2)\n"
              "[servers] host pc1, port 5000, plug-in 390.001, messaging 2.1: no peer connected\n");
    EXPECT_EQ(result.records("call").at(0).value("args").toArray().last().toArray(),
              QJsonArray({QJsonArray({"DXD", 3})}));
}

TEST_F(HostFunctionsTest, InformationLinesAndLogLinesReachTheTerminalAndTheJournal)
{
    const HostRun result = run({"de_info(\"Tessel Error: two\nlines\"); de_info(\"\");",
                                "fprintf(stderr,\"Tessel:Info: x\n\");"});
    EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(result.out, "[info] Tessel Error: two\n[info] lines\n[info] \n");
    EXPECT_EQ(result.texts("info"), (QStringList{"Tessel Error: two\nlines", ""}));
    EXPECT_EQ(result.texts("stderr"), QStringList{"Tessel:Info: x\n"});
    EXPECT_TRUE(result.err.contains("Tessel:Info: x\n"));
    EXPECT_EQ(result.records("call").back().value("args").toArray(),
              QJsonArray({2, "Tessel:Info: x\n"}));
}

} // namespace
