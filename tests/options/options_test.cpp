#include <string>

#include <QLocale>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include "options/iffoptions.h"
#include "options/optionnames.h"
#include "options/options.h"

#include "optionstestsupport.h"

using OptionsTestSupport::Records;
using OptionsTestSupport::records;
using Tessel::Options;

// Names are compared with case: "targetlib" is a record of its own.
TEST(Options, SetAppendsNewNamesAndReplacesValueAndTipInPlace)
{
    Options options;
    EXPECT_EQ(options.get_option_index(QStringLiteral("TargetLib")), -1);
    // clang-format off
    OptionsTestSupport::setRecords(options, {{"b", "1", "tip b"}, {"TargetLib", "a_lib", "tip"},
        {"c", "3", ""}, {"TargetLib", "b_lib", ""}, {"targetlib", "c_lib", ""}});
    EXPECT_EQ(records(options), (Records{{"b", "1", "tip b"}, {"TargetLib", "b_lib", ""},
        {"c", "3", ""}, {"targetlib", "c_lib", ""}}));
    // clang-format on
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
    // value (nullptr: the option is absent), boolean, integer, real
    const std::tuple<const char*, bool, int, double> cases[] = {
        // clang-format off
        {nullptr, false, 0, 0.0}, {"tRuE", true, 0, 0.0},   {" true", false, 0, 0.0},
        {"-7", false, -7, -7.0},  {"3x", false, 0, 0.0},    {"1.0", false, 0, 1.0},
        {"1,0", false, 0, 0.0},   {"2.5e1", false, 0, 25.0}, {"010", false, 10, 10.0},
        {"2147483648", false, 0, 2147483648.0},
        // clang-format on
    };
    for (const auto& [value, boolean, integer, real] : cases) {
        SCOPED_TRACE(value ? value : "(absent)");
        Options options;
        if (value)
            options.set_option(QStringLiteral("x"), QString::fromUtf8(value), QString());
        EXPECT_EQ(options.get_bool_option_value(QStringLiteral("x")), boolean);
        EXPECT_EQ(options.get_int_option_value(QStringLiteral("x")), integer);
        EXPECT_EQ(options.get_double_option_value(QStringLiteral("x")), real);
        EXPECT_EQ(records(options).size(), value ? 1u : 0u) << "a read inserted";
    }
    QLocale::setDefault(previous);
}

// Rows run in order on one path, so each also shows that a write truncates.
TEST(IffOptions, LinesAreTheRecordsAsTheyStandWithASemicolonOnTheProjectListOnly)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("iff.txt"));
    const std::pair<Records, const char*> cases[] = {
        {{{"exportprojects", "p", ""}, {"ExportProjects ", "p", ""}, {"Zeta", "", ""}},
         "exportprojects = p\nExportProjects  = p\nZeta = \n"},
        {{{"Odd%2Name", "100% %1 %2 %L1 %%", "tip not written"}, {"ExportProjects", "a \"b\"", ""}},
         "Odd%2Name = 100% %1 %2 %L1 %%\nExportProjects = a \"b\";\n"},
        {{}, ""},
    };
    Tessel::IFFOptions options;
    for (const auto& [set, expected] : cases) {
        SCOPED_TRACE(expected);
        options.clear_options();
        OptionsTestSupport::setRecords(options, set);
        EXPECT_TRUE(options.write_IFF_options_file(path));
        EXPECT_EQ(OptionsTestSupport::readFile(path), QByteArray(expected));
    }
    for (const QString& unwritable : {dir.filePath(QStringLiteral("missing/iff.txt")), dir.path()})
        EXPECT_FALSE(options.write_IFF_options_file(unwritable)) << unwritable.toStdString();
}
