#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include "options/iffoptions.h"
#include "options/optionnames.h"

#include "optionstestsupport.h"

using OptionsTestSupport::readFile;
using OptionsTestSupport::records;
using Tessel::IFFOptions;
namespace OptionName = Tessel::OptionName;

class IffOptionsTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(dir.isValid()); }

    QString path(const char* name) const { return dir.filePath(QLatin1String(name)); }

    QStringList writtenLines()
    {
        EXPECT_TRUE(options.write_IFF_options_file(path("iff.txt")));
        QStringList lines = QString::fromUtf8(readFile(path("iff.txt"))).split(QLatin1Char('\n'));
        EXPECT_EQ(lines.takeLast(), QString()) << "the last line must end with a line feed";
        return lines;
    }

    QTemporaryDir dir;
    IFFOptions options;
};

TEST_F(IffOptionsTest, DefaultsAreThe27CatalogueRecordsWithOneTip)
{
    options.set_option(QStringLiteral("Leftover"), QStringLiteral("x"), QString());
    options.set_options_to_default();
    const auto all = records(options);
    ASSERT_EQ(all.size(), 27u);
    for (const auto& [name, value, tip] : all) {
        SCOPED_TRACE(name.toStdString());
        EXPECT_EQ(tip.isEmpty(), name != QLatin1String(OptionName::ExportPrefixLibNameToCellName));
    }
    EXPECT_EQ(options.get_option_tip(QLatin1String(OptionName::ExportPrefixLibNameToCellName)),
              QStringLiteral("Add the library name as cell name prefix in IFF output"));
    EXPECT_TRUE(options.get_bool_option_value(QLatin1String(OptionName::ImportInteractive)));
    EXPECT_FALSE(options.get_bool_option_value(QLatin1String(OptionName::ImportRemoveIFF)));
    EXPECT_EQ(options.get_int_option_value(QLatin1String(OptionName::ImportVersion)), 3);
    EXPECT_EQ(options.get_double_option_value(QLatin1String(OptionName::ImportShallowArcTolerance)),
              1.0);
    EXPECT_TRUE(options.get_option_value(QLatin1String(OptionName::ExportProjects)).isEmpty());
    EXPECT_EQ(options.get_option_index(QStringLiteral("Leftover")), -1);
}

TEST_F(IffOptionsTest, FileFromDefaultsEqualsTheReference)
{
    options.set_options_to_default();
    ASSERT_TRUE(options.write_IFF_options_file(path("iff.txt")));
    EXPECT_EQ(readFile(path("iff.txt")).toStdString(),
              readFile(OptionsTestSupport::dataPath("defaults.iff")).toStdString());

    const QStringList lines = writtenLines();
    ASSERT_EQ(lines.size(), 27);
    EXPECT_EQ(lines[0], QStringLiteral("HierarchyOption = 2"));
    EXPECT_EQ(lines[3], QStringLiteral("ExportProjects = ;"));
    EXPECT_EQ(lines.filter(QStringLiteral(";")).size(), 1);
}

TEST_F(IffOptionsTest, ProjectListIsReplacedInPlaceAndEndsWithASemicolon)
{
    options.set_options_to_default();
    options.set_option(QLatin1String(OptionName::ExportProjects), QStringLiteral("projA projB"),
                       QString());
    EXPECT_EQ(records(options).size(), 27u);
    const QStringList lines = writtenLines();
    ASSERT_EQ(lines.size(), 27);
    EXPECT_EQ(lines[3], QStringLiteral("ExportProjects = projA projB;"));
    EXPECT_EQ(lines[4], QStringLiteral("ExportOverwriteIFF = TRUE"));
}

TEST_F(IffOptionsTest, LinesFollowTheRecordsAsTheyStand)
{
    const struct
    {
        const char* name;
        std::vector<OptionsTestSupport::Record> set;
        QStringList expected;
    } cases[] = {
        {"empty set gives an empty file", {}, {}},
        {"project list alone on an empty set",
         {{"ExportProjects", "projA", ""}},
         {"ExportProjects = projA;"}},
        {"semicolon chosen by the exact name",
         {{"exportprojects", "p", ""}, {"ExportProjects ", "p", ""}},
         {"exportprojects = p", "ExportProjects  = p"}},
        {"percent signs and markers kept",
         {{"Odd%2Name", "100% %1 %2 %L1 %%", "tip not written"}},
         {"Odd%2Name = 100% %1 %2 %L1 %%"}},
        {"unknown names in set order",
         {{"Zeta", "1", ""}, {"Alpha", "", ""}},
         {"Zeta = 1", "Alpha = "}},
        {"spaces and quotes unescaped",
         {{"ExportProjects", "a \"b\" c", ""}},
         {"ExportProjects = a \"b\" c;"}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        options.clear_options();
        for (const auto& [name, value, tip] : row.set)
            options.set_option(name, value, tip);
        EXPECT_EQ(writtenLines(), row.expected);
    }
}

TEST_F(IffOptionsTest, WritingAgainLeavesOnlyTheSecondContent)
{
    options.set_options_to_default();
    ASSERT_TRUE(options.write_IFF_options_file(path("iff.txt")));
    options.clear_options();
    options.set_option(QStringLiteral("Only"), QStringLiteral("1"), QString());
    ASSERT_TRUE(options.write_IFF_options_file(path("iff.txt")));
    EXPECT_EQ(readFile(path("iff.txt")), QByteArray("Only = 1\n"));
}

TEST_F(IffOptionsTest, PathThatCannotBeOpenedGivesFalseAndWritesNothing)
{
    options.set_options_to_default();
    ASSERT_TRUE(QDir(dir.path()).mkdir(QStringLiteral("folder")));
    const QString cases[] = {path("missing/iff.txt"), path("folder"), QString()};
    const OptionsTestSupport::MessageRecorder messages;
    for (const QString& target : cases) {
        SCOPED_TRACE(target.toStdString());
        EXPECT_FALSE(options.write_IFF_options_file(target));
    }
    EXPECT_FALSE(QDir(path("missing")).exists());
    EXPECT_EQ(messages.messages(), QStringList());
}
