#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <functional>
#include <string>
#include <vector>

#include "workspace.h"

namespace {

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(missing)");
}

void writeFile(const QString& path, const QByteArray& content)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(content);
}

// A port adds its own line and leaves the lines before it as they are: an
// edit of the same size made meanwhile survives, and only a file that is not
// as the host left it is written whole again.
TEST(WorkspaceEmView, PortsAreAppendedWithoutRewritingWhatTheFileHolds)
{
    const QByteArray expected =
        "{\n"
        "    \"design\": \"amp_top\",\n"
        "    \"design_path\": \"C:/d\",\n"
        "    \"egs\": \"%1/libraries/rflib/amp_top_lna.egs\",\n"
        "    \"library\": \"rflib\",\n"
        "    \"ports\": [\n"
        "        { \"name\": \"P1\", \"number\": 1, \"type\": \"internal\", "
        "\"value\": 90, \"x\": 0, \"y\": 1.5 },\n"
        "        { \"name\": \"P\\\"2\", \"number\": 2, \"type\": "
        "\"external\", \"value\": 0.5, \"x\": -3.25, \"y\": 1e+06 },\n"
        "        { \"name\": \"P3\", \"number\": 3, \"type\": \"internal\", "
        "\"value\": 0, \"x\": 2, \"y\": 0 }\n"
        "    ],\n"
        "    \"region\": \"lna\",\n"
        "    \"source\": \"%2\"\n"
        "}\n";
    struct Case
    {
        const char* name;
        // Done to the file after two ports; gives the text expected after the third.
        std::function<QByteArray(const QString& view, const QByteArray& whole)> change;
        // The third port is refused, and taken once the view is writable again.
        bool refused = false;
    };
    const std::vector<Case> cases = {
        {"untouched", [](const QString&, const QByteArray& whole) { return whole; }},
        {"same size, edited: kept",
         [](const QString& view, const QByteArray& whole) {
             QByteArray edited = readFile(view).replace("\"P1\"", "\"Q1\"");
             writeFile(view, edited);
             return QByteArray(whole).replace("\"P1\"", "\"Q1\"");
         }},
        {"shortened: written whole",
         [](const QString& view, const QByteArray& whole) {
             QFile::resize(view, 10);
             return whole;
         }},
        {"removed: written whole",
         [](const QString& view, const QByteArray& whole) {
             QFile::remove(view);
             return whole;
         }},
        {"a folder in its place: refused, then written whole",
         [](const QString& view, const QByteArray& whole) {
             QFile::remove(view);
             QDir().mkdir(view);
             return whole;
         },
         true},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.name);
        QTemporaryDir folder;
        const QString egs = folder.filePath("genFathom_a");
        writeFile(egs, "egs\n");
        Workspace workspace(folder.path().toStdString(), {}, {"rflib"});
        ASSERT_TRUE(workspace.prepare(nullptr));
        EXPECT_FALSE(workspace.addEmPort({"P0", 1, "internal", 0, 0, 0}).ok);
        ASSERT_TRUE(workspace.importEgs("rflib", egs.toStdString(), "amp_top", "lna", "C:/d").ok);
        const QString view = folder.filePath("libraries/rflib/amp_top_lna.emview");
        EXPECT_TRUE(readFile(view).contains("\"ports\": [\n    ],\n")) << readFile(view).data();

        EXPECT_TRUE(workspace.addEmPort({"P1", 1, "internal", 0, 1.5, 90}).ok);
        EXPECT_TRUE(workspace.addEmPort({"P\"2", 2, "external", -3.25, 1e6, 0.5}).ok);
        const QByteArray whole = QString::fromUtf8(expected).arg(folder.path(), egs).toUtf8();
        const QByteArray after = row.change(view, whole);
        const Workspace::EmPort port{"P3", 3, "internal", 2, 0, 0};
        Workspace::Result third = workspace.addEmPort(port);
        if (row.refused) {
            EXPECT_FALSE(third.ok);
            EXPECT_EQ(third.reason.rfind("cannot write " + view.toStdString() + ": ", 0), 0u)
                << third.reason;
            QDir().rmdir(view);
            third = workspace.addEmPort(port);
        }
        EXPECT_TRUE(third.ok) << third.reason;
        EXPECT_EQ(third.path, view.toStdString());
        EXPECT_EQ(readFile(view), after);
    }
}

} // namespace
