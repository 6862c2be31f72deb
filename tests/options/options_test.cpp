#include <clocale>
#include <set>
#include <string>

#include <QLocale>

#include <gtest/gtest.h>

#include "fakehost.h"
#include "options/generaloptions.h"
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
    options.set_option(QStringLiteral("b"), QStringLiteral("1"), QStringLiteral("tip b"));
    options.set_option(QStringLiteral("TargetLib"), QStringLiteral("a_lib"), QStringLiteral("tip"));
    options.set_option(QStringLiteral("c"), QStringLiteral("3"), QString());
    options.set_option(QStringLiteral("TargetLib"), QStringLiteral("b_lib"), QString());
    // Names are compared with case: this is a fourth record.
    options.set_option(QStringLiteral("targetlib"), QStringLiteral("c_lib"), QString());

    EXPECT_EQ(records(options), (Records{{"b", "1", "tip b"},
                                         {"TargetLib", "b_lib", ""},
                                         {"c", "3", ""},
                                         {"targetlib", "c_lib", ""}}));
    EXPECT_EQ(options.get_option_index(QStringLiteral("c")), 2);
    EXPECT_EQ(options.get_option_tip(QStringLiteral("b")), QStringLiteral("tip b"));

    options.clear_options();
    EXPECT_TRUE(records(options).empty());
}

// The first C locale with a decimal comma that the machine has; null when none.
const char* useCommaLocale()
{
    for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "nl_NL.UTF-8",
                             "es_ES.UTF-8", "ru_RU.UTF-8", "de_DE"})
        if (std::setlocale(LC_NUMERIC, name) && *std::localeconv()->decimal_point == ',')
            return name;
    return nullptr;
}

// One table for the three typed reads, all under a user's locale with a decimal
// comma (in the C library too where the machine has one): the point is always
// the decimal separator.
TEST(Options, TypedReadsAcceptOnlyTheirOwnSpellingAndGiveNeutralValuesOtherwise)
{
    const std::string numeric = std::setlocale(LC_NUMERIC, nullptr);
    const QLocale previous;
    const char* commaLocale = useCommaLocale();
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    const struct
    {
        const char* value; // nullptr: the option is absent
        bool boolean;
        int integer;
        double real;
    } cases[] = {
        {nullptr, false, 0, 0.0}, {"TRUE", true, 0, 0.0},
        {"tRuE", true, 0, 0.0},   {" true", false, 0, 0.0},
        {"yes", false, 0, 0.0},   {"", false, 0, 0.0},
        {"1", false, 1, 1.0},     {"-7", false, -7, -7.0},
        {"3x", false, 0, 0.0},    {"1.0", false, 0, 1.0},
        {"1,0", false, 0, 0.0},   {"2.5e1", false, 0, 25.0},
        {"010", false, 10, 10.0}, {"2147483648", false, 0, 2147483648.0},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.value ? row.value : "(absent)");
        Options options;
        if (row.value)
            options.set_option(QStringLiteral("x"), QString::fromUtf8(row.value), QString());
        EXPECT_EQ(options.get_bool_option_value(QStringLiteral("x")), row.boolean);
        EXPECT_EQ(options.get_int_option_value(QStringLiteral("x")), row.integer);
        EXPECT_EQ(options.get_double_option_value(QStringLiteral("x")), row.real);
        // Reading never inserts.
        EXPECT_EQ(records(options).size(), row.value ? 1u : 0u);
    }
    std::setlocale(LC_NUMERIC, numeric.c_str());
    QLocale::setDefault(previous);
    if (!commaLocale)
        GTEST_SKIP() << "no C locale with a decimal comma on this machine: only Qt's was tested";
}

TEST(GeneralOptions, DefaultTargetLibraryIsTheFirstWritableLibraryInByteOrderExceptTheExcluded)
{
    const char* local = "Local_Components_lib";
    const struct
    {
        const char* name;
        std::set<std::string> open;
        const char* excluded;
        const char* expected;
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
