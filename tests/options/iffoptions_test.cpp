#include <QTemporaryDir>

#include <gtest/gtest.h>

#include "options/iffoptions.h"
#include "options/optionnames.h"

#include "optionstestsupport.h"

using OptionsTestSupport::readFile;
using OptionsTestSupport::Records;

class IffOptionsTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(dir.isValid()); }

    QStringList writtenLines()
    {
        EXPECT_TRUE(options.write_IFF_options_file(path));
        QStringList lines = QString::fromUtf8(readFile(path)).split(QLatin1Char('\n'));
        EXPECT_EQ(lines.takeLast(), QString()) << "the last line must end with a line feed";
        return lines;
    }

    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("iff.txt"));
    Tessel::IFFOptions options;
};

TEST_F(IffOptionsTest, FileFromDefaultsEqualsTheReferenceAndTheProjectListStaysFourth)
{
    options.set_options_to_default();
    const QStringList lines = writtenLines();
    EXPECT_EQ(readFile(path).toStdString(),
              readFile(QStringLiteral(KIVA_OPTIONS_TEST_DATA "/defaults.iff")).toStdString());
    options.set_option(QLatin1String(Tessel::OptionName::ExportProjects),
                       QStringLiteral("projA projB"), QString());
    QStringList expected = lines;
    expected[3] = QStringLiteral("ExportProjects = projA projB;");
    EXPECT_EQ(writtenLines(), expected);
    for (const QString& unwritable : {dir.filePath(QStringLiteral("missing/iff.txt")), dir.path()})
        EXPECT_FALSE(options.write_IFF_options_file(unwritable)) << unwritable.toStdString();
}

// Rows run in order on one path, so each also shows that a write truncates.
TEST_F(IffOptionsTest, LinesAreTheRecordsAsTheyStandWithASemicolonOnTheProjectListOnly)
{
    const struct
    {
        const char* name;
        Records set;
        QStringList expected;
    } cases[] = {
        {"project list alone", {{"ExportProjects", "projA", ""}}, {"ExportProjects = projA;"}},
        {"semicolon chosen by the exact name",
         {{"exportprojects", "p", ""}, {"ExportProjects ", "p", ""}, {"Zeta", "", ""}},
         {"exportprojects = p", "ExportProjects  = p", "Zeta = "}},
        {"percent signs, quotes and tips",
         {{"Odd%2Name", "100% %1 %2 %L1 %%", "tip not written"}, {"ExportProjects", "a \"b\"", ""}},
         {"Odd%2Name = 100% %1 %2 %L1 %%", "ExportProjects = a \"b\";"}},
        {"empty set gives an empty file", {}, {}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        options.clear_options();
        OptionsTestSupport::setRecords(options, row.set);
        EXPECT_EQ(writtenLines(), row.expected);
    }
}
