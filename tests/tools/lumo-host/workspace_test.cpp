#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <string>

#include "workspace.h"

namespace {

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(missing)");
}

// A port adds its own line and leaves the lines before it as they are: an
// edit of the same size made meanwhile survives, and only a file that is not
// as the host left it is written whole again.
TEST(WorkspaceEmView, PortsAreAppendedWithoutRewritingWhatTheFileHolds)
{
    QByteArray whole;
    // Done to the view between the second port and the third.
    for (const std::string change : {"removed: written whole", "edited, same size: kept",
                                     "a folder in its place: refused, then written whole"}) {
        SCOPED_TRACE(change);
        QTemporaryDir folder;
        const QString egs = folder.filePath("genFathom_a");
        QFile(egs).open(QIODevice::WriteOnly);
        Workspace workspace(folder.path().toStdString(), {}, {"rflib"});
        ASSERT_TRUE(workspace.prepare(nullptr));
        EXPECT_FALSE(workspace.addEmPort({"P0", 1, "internal", 0, 0, 0}).ok);
        ASSERT_TRUE(workspace.importEgs("rflib", egs.toStdString(), "amp_top", "lna", "C:/d").ok);
        const QString view = folder.filePath("libraries/rflib/amp_top_lna.emview");
        EXPECT_TRUE(workspace.addEmPort({"P1", 1, "internal", 0, 1.5, 90}).ok);
        EXPECT_TRUE(workspace.addEmPort({"P2", 2, "external", -3.25, 1e6, 0.5}).ok);
        const QByteArray edited = readFile(view).replace("\"P1\"", "\"Q1\"");
        QFile::remove(view);
        if (change[0] == 'e') {
            QFile file(view);
            ASSERT_TRUE(file.open(QIODevice::WriteOnly));
            file.write(edited);
        } else if (change[0] == 'a') {
            QDir().mkdir(view);
        }
        const Workspace::EmPort port{"P3", 3, "internal", 2, 0, 0};
        Workspace::Result third = workspace.addEmPort(port);
        if (change[0] == 'a') {
            EXPECT_EQ(third.reason.rfind("cannot write " + view.toStdString() + ": ", 0), 0u)
                << third.reason;
            QDir().rmdir(view);
            third = workspace.addEmPort(port);
        }
        EXPECT_TRUE(third.ok) << third.reason;
        EXPECT_EQ(third.path, view.toStdString());
        const QByteArray written = readFile(view).replace(folder.path().toUtf8(), "{dir}");
        if (whole.isEmpty())
            whole = written;
        EXPECT_EQ(written,
                  change[0] == 'e' ? QByteArray(whole).replace("\"P1\"", "\"Q1\"") : whole);
    }
}

} // namespace
