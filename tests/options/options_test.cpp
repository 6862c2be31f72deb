#include <set>
#include <string>

#include <QLocale>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include "fakehost.h"
#include "options/generaloptions.h"
#include "options/iffoptions.h"
#include "options/optionnames.h"
#include "options/options.h"

#include "optionstestsupport.h"

using OptionsTestSupport::Records;
using OptionsTestSupport::records;
using Tessel::Options;

TEST(Options, SetAppendsNewNamesAndReplacesValueAndTipInPlace)
{
    Options options;
    EXPECT_EQ(options.get_option_index(QStringLiteral("TargetLib")), -1);
    // Names are compared with case: "targetlib" is a fourth record.
    OptionsTestSupport::setRecords(options, {{"b", "1", "tip b"},
                                             {"TargetLib", "a_lib", "tip"},
                                             {"c", "3", ""},
                                             {"TargetLib", "b_lib", ""},
                                             {"targetlib", "c_lib", ""}});
    EXPECT_EQ(records(options), (Records{{"b", "1", "tip b"},
                                         {"TargetLib", "b_lib", ""},
                                         {"c", "3", ""},
                                         {"targetlib", "c_lib", ""}}));
    EXPECT_EQ(options.get_option_index(QStringLiteral("c")), 2);
    EXPECT_EQ(options.get_option_tip(QStringLiteral("b")), QStringLiteral("tip b"));
    options.clear_options();
    EXPECT_TRUE(records(options).empty());
}

// Under a user's locale with a decimal comma the point is still the decimal separator.
TEST(Options, TypedReadsAcceptOnlyTheirOwnSpellingAndGiveNeutralValuesOtherwise)
{
    const QLocale previous;
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    const struct
    {
        const char* value; // nullptr: the option is absent
        bool boolean;
        int integer;
        double real;
    } cases[] = {
        {nullptr, false, 0, 0.0},
        {"tRuE", true, 0, 0.0},
        {" true", false, 0, 0.0},
        {"yes", false, 0, 0.0},
        {"-7", false, -7, -7.0},
        {"3x", false, 0, 0.0},
        {"1.0", false, 0, 1.0},
        {"1,0", false, 0, 0.0},
        {"2.5e1", false, 0, 25.0},
        {"010", false, 10, 10.0},
        {"2147483648", false, 0, 2147483648.0},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.value ? row.value : "(absent)");
        Options options;
        if (row.value)
            options.set_option(QStringLiteral("x"), QString::fromUtf8(row.value), QString());
        EXPECT_EQ(options.get_bool_option_value(QStringLiteral("x")), row.boolean);
        EXPECT_EQ(options.get_int_option_value(QStringLiteral("x")), row.integer);
        EXPECT_EQ(options.get_double_option_value(QStringLiteral("x")), row.real);
        EXPECT_EQ(records(options).size(), row.value ? 1u : 0u) << "a read inserted";
    }
    QLocale::setDefault(previous);
}

TEST(GeneralOptions, DefaultTargetLibraryIsTheFirstWritableLibraryInByteOrderExceptTheExcluded)
{
    const char* local = "Local_Components_lib";
    const struct
    {
        const char* name;
        std::set<std::string> open;
        const char *excluded, *expected;
    } cases[] = {
        {"excluded library skipped", {"b_lib", local, "a_lib"}, local, "a_lib"},
        {"upper case sorts first", {"alpha", "Zed"}, "", "Zed"},
        {"only the excluded library open", {local}, local, ""},
        {"no library open", {}, "", ""},
        {"exclusion is exact", {local, "rflib"}, "local_components_lib", local},
        {"non-ASCII exclusion as UTF-8", {"Biblioth\xc3\xa8que", "z"}, "Biblioth\xc3\xa8que", "z"},
    };
    FakeHost host;
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        host.setLibraries(row.open);
        Tessel::GeneralOptions options;
        options.set_option(QLatin1String(Tessel::OptionName::ExcludeLibrary),
                           QString::fromUtf8(row.excluded), QString());
        EXPECT_EQ(options.get_default_target_library(), row.expected);
    }
}

// Rows run in order on one path, so each also shows that a write truncates.
TEST(IffOptions, LinesAreTheRecordsAsTheyStandWithASemicolonOnTheProjectListOnly)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("iff.txt"));
    const struct
    {
        const char* name;
        Records set;
        const char* expected;
    } cases[] = {
        {"project list alone", {{"ExportProjects", "projA", ""}}, "ExportProjects = projA;\n"},
        {"semicolon chosen by the exact name",
         {{"exportprojects", "p", ""}, {"ExportProjects ", "p", ""}, {"Zeta", "", ""}},
         "exportprojects = p\nExportProjects  = p\nZeta = \n"},
        {"percent signs, quotes and tips",
         {{"Odd%2Name", "100% %1 %2 %L1 %%", "tip not written"}, {"ExportProjects", "a \"b\"", ""}},
         "Odd%2Name = 100% %1 %2 %L1 %%\nExportProjects = a \"b\";\n"},
        {"empty set gives an empty file", {}, ""},
    };
    Tessel::IFFOptions options;
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        options.clear_options();
        OptionsTestSupport::setRecords(options, row.set);
        EXPECT_TRUE(options.write_IFF_options_file(path));
        EXPECT_EQ(OptionsTestSupport::readFile(path), QByteArray(row.expected));
    }
    for (const QString& unwritable : {dir.filePath(QStringLiteral("missing/iff.txt")), dir.path()})
        EXPECT_FALSE(options.write_IFF_options_file(unwritable)) << unwritable.toStdString();
}
