#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QTemporaryDir>

#include "hostrun.h"

QString pluginUnderTest()
{
    return QStringLiteral(PLUGIN_PATH);
}

namespace {

class HostFunctionsTest : public ::testing::Test
{
protected:
    // The host on the workspace with three open libraries, one of them no
    // folder name, reading `input`, where a failing statement does not stop the next.
    HostRun run(const QString& input)
    {
        return runHost({"--workspace", ws(""), "--library", "rflib", "--library=scratch",
                        "--library=a/b", "-"},
                       input.toUtf8());
    }

    QString write(const QString& name, const QByteArray& content)
    {
        return writeFile(files.filePath(name), content);
    }

    // A workspace JSON file, keys sorted, on one line.
    QString compact(const QString& relative)
    {
        return QJsonDocument::fromJson(readFile(ws(relative))).toJson(QJsonDocument::Compact);
    }

    QString ws(const QString& relative) { return QDir::cleanPath(workspace.filePath(relative)); }

    QTemporaryDir workspace;
    QTemporaryDir files;
};

const QString Paths =
    "de_info(mgclink_get_workspace_path()); de_info(mgclink_get_netlists_path());\n";

TEST_F(HostFunctionsTest, WithoutAWorkspaceFilesAreRefusedAndTheTerminalShowsWhatIsSaid)
{
    EXPECT_EQ(runHost({"-"}, Paths.toUtf8()).texts("info"), (QStringList{"", ""}));
    const QString netlists = files.filePath("nets");
    const QString servers = "mgclink_show_connected_servers(\"pc1\",%1,\"390.001\", \"2.1\",%2);";
    const QString input = Paths +
                          "mgclink_create_design(\"\", \"c\", \"d\", \"p\", \"r\", 0, NULL, 0);\n"
                          "mgclink_import_iff_file(\"rflib\", \"" +
                          write("a.iff", "x") +
                          "\", \"TRUE\");\n"
                          "de_info(\"Tessel Error: two\nlines\");" +
                          servers.arg("5000", "list(,list(\"DXD\",3))") +
                          servers.arg("0", "list(,list(\"DXD\",1),list(\"BSXE\",2))") +
                          servers.arg("5000", "NULL") +
                          "fprintf(stderr,\"Tessel:Info: x\n\"); fprintf(stdout, \"out\");";
    const HostRun bare =
        runHost({"--netlists", netlists, "--library", "rflib", "-"}, input.toUtf8());
    EXPECT_TRUE(QDir(netlists).exists());
    EXPECT_TRUE(bare.err.contains("stdin:2: error: mgclink_create_design: no workspace is open"))
        << bare.err.toStdString();
    EXPECT_TRUE(bare.err.contains("stdin:3: error: mgclink_import_iff_file: no workspace is open"));
    EXPECT_EQ(
        bare.out,
        "[info] \n[info] " + netlists +
            "\n[info] Tessel Error: two\n[info] lines\n"
            "[servers] host pc1, port 5000, plug-in 390.001, messaging 2.1: DXD (3)\n"
            "[servers] host pc1, port 0, plug-in 390.001, messaging 2.1: DXD (1), BSXE (2)\n"
            "[servers] host pc1, port 5000, plug-in 390.001, messaging 2.1: no peer connected\n"
            "out");
    EXPECT_EQ(bare.texts("info"), (QStringList{"", netlists, "Tessel Error: two\nlines"}));
    EXPECT_EQ(bare.texts("stderr"), QStringList{"Tessel:Info: x\n"});
    EXPECT_EQ(bare.texts("stdout"), QStringList{"out"});
    EXPECT_TRUE(bare.err.contains("Tessel:Info: x\n"));
}

TEST_F(HostFunctionsTest, CreatedAndImportedFilesLandInTheWorkspace)
{
    ASSERT_TRUE(QDir().mkpath(ws("netlists")));
    QFile(ws("netlists/amp.net")).open(QIODevice::WriteOnly);
    const QString first = write("mgcLayoutTmp.iff", "first layout\n");
    ASSERT_TRUE(QDir(files.path()).mkdir("b"));
    const QString second = write("b/mgcLayoutTmp.iff", "second layout\n");
    const QString egs = write("genFathom_a", "egs data\n");
    const QString iff = "mgclink_import_iff_file(\"rflib\", \"%1\", \"%2\");\n";
    const QString import =
        "mgclink_import_egs_file(''%1'',''" + egs + "'', NULL, ''%2'',''%3'',''/d'');\n";
    const HostRun result = run(
        Paths +
        "mgclink_create_design(\"\", \"amp\", \"a.sch\", \"C:/a\", \"r\", 1, "
        "list(list(\"P1\",0,1.5,1,0)), 0);\n"
        "mgclink_create_design(\"f\", \"bare_r1\", \"bare.sch\", \"/d\", \"r1\", 3, NULL, 7);\n" +
        iff.arg(first, "FALSE") + iff.arg(second, "FALSE") + iff.arg(second, "TRUE") +
        import.arg("rflib", "amp", "") + import.arg("rflib", "", "lna") +
        import.arg("scratch", "amp_top", "lna") +
        "mgclink_add_port_to_fathom_view(\"P1\",1,\"internal\",0,1.5,90);\n"
        "mgclink_add_port_to_fathom_view(\"P\\\"2\",2,\"external\",-3.25,1e+06,0.5);\n");
    EXPECT_EQ(result.texts("info"), (QStringList{ws(""), ws("netlists")}));
    EXPECT_EQ(result.err.count("error: "), 1) << result.err.toStdString();
    EXPECT_TRUE(result.err.contains("mgclink_import_iff_file: library rflib already holds "
                                    "mgcLayoutTmp.iff and overwriting is FALSE"));

    EXPECT_EQ(compact("designs/amp.design"),
              QString(R"({"cell":"amp","design":"a.sch","design_path":"C:/a","first":"","last":0,)"
                      R"("netlist":"%1/netlists/amp.net","netlist_found":true,"port_count":1,)"
                      R"("ports":[{"label":"P1","number":1,"type":0,"x":0,"y":1.5}],"region":"r"})")
                  .arg(ws("")));
    EXPECT_EQ(
        compact("designs/bare_r1.design"),
        QString(R"({"cell":"bare_r1","design":"bare.sch","design_path":"/d","first":"f","last":7,)"
                R"("netlist":"%1/netlists/bare_r1.net","netlist_found":false,"port_count":3,)"
                R"("ports":null,"region":"r1"})")
            .arg(ws("")));
    EXPECT_TRUE(result.out.contains("[host] EGS file " + egs +
                                    " imported into library scratch as an EM view: " +
                                    ws("libraries/scratch/amp_top_lna.emview") + "\n"))
        << result.out.toStdString();

    EXPECT_EQ(readFile(ws("libraries/rflib/mgcLayoutTmp.iff")), "second layout\n");
    EXPECT_TRUE(QFile::exists(ws("libraries/rflib/amp.emview")));
    EXPECT_TRUE(QFile::exists(ws("libraries/rflib/lna.emview")));
    EXPECT_EQ(readFile(ws("libraries/scratch/amp_top_lna.egs")), "egs data\n");
    EXPECT_EQ(
        compact("libraries/scratch/amp_top_lna.emview"),
        QString(
            R"({"design":"amp_top","design_path":"/d","egs":"%1/libraries/scratch/amp_top_lna.egs",)"
            R"("library":"scratch","ports":[{"name":"P1","number":1,"type":"internal","value":90,)"
            R"("x":0,"y":1.5},{"name":"P\"2","number":2,"type":"external","value":0.5,"x":-3.25,)"
            R"("y":1000000}],"region":"lna","source":"%2"})")
            .arg(ws(""), egs));
}

TEST_F(HostFunctionsTest, EveryFunctionChecksItsArgumentsAndChangesNothingWhenWrong)
{
    const QString iff = write("a.iff", "x");
    const QString import = "mgclink_import_iff_file(\"%1\", \"" + iff + "\", %2);";
    const QString egs =
        "mgclink_import_egs_file(''rflib'',''" + iff + "'', %1, ''%2'',''%3'',''c'');";
    const QString port = "mgclink_add_port_to_fathom_view(\"P1\",%1,\"internal\",%2,1.5,90);";
    const QString create = "mgclink_create_design(\"\", \"%1\", \"d\", \"p\", \"r\", %2, %3, 0);";
    const std::vector<std::pair<QString, QString>> cases = {
        {"mgclink_get_workspace_path(1);", "mgclink_get_workspace_path: takes 0 arguments, got 1"},
        {"de_info(\"a\", \"b\");", "de_info: takes 1 argument, got 2"},
        {import.arg("rflib", "1"), "argument 3 must be a string, got an integer"},
        {import.arg("rflib", "\"yes\""), "argument 3 must be \"TRUE\" or \"FALSE\""},
        {import.arg("closed", "\"TRUE\""), "library \"closed\" is not open"},
        {import.arg("", "\"TRUE\""), "no library named"},
        {import.arg("a/b", "\"TRUE\""), "the library name \"a/b\" cannot name a folder"},
        {"mgclink_import_iff_file(\"rflib\", \"/no/such.iff\", \"TRUE\");",
         "the file /no/such.iff does not exist"},
        {egs.arg("0", "a", "b"), "argument 3 must be NULL, got an integer"},
        {egs.arg("NULL", "..", ""), "cannot name a file"},
        {port.arg("1", "0"), "no EM view is open"},
        {port.arg("1.5", "0"), "argument 2 must be an integer, got a real"},
        {port.arg("1", "\"0\""), "argument 4 must be a number, got a string"},
        {create.arg("c", "1", "list(list(\"P1\",0,1.5))"),
         "port 1 must be list(label, x, y, number, type)"},
        {create.arg("a/b", "0", "NULL"), "the design name \"a/b\" cannot name a file"},
        {create.arg("c", "0", "\"P1\""), "argument 7 must be a list or NULL, got a string"},
        {"mgclink_show_connected_servers(\"pc1\",1,\"1\",\"2\",list(,list(\"DXD\")));",
         "peer 1 must be list(name, number)"},
        {"fprintf(3, \"x\");", "argument 1 must be stdout or stderr, got an integer"},
    };
    QString input;
    for (const auto& row : cases)
        input += row.first + "\n";
    const std::vector<QJsonObject> scripts = run(input).records("script");
    ASSERT_EQ(scripts.size(), cases.size());
    for (std::size_t i = 0; i < cases.size(); ++i)
        EXPECT_TRUE(scripts[i].value("reason").toString().contains(cases[i].second))
            << scripts[i].value("reason").toString().toStdString();
    EXPECT_FALSE(QDir(ws("libraries")).exists());
    EXPECT_FALSE(QDir(ws("designs")).exists());
}

} // namespace
