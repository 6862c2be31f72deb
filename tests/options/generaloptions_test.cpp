#include <set>
#include <string>

#include <gtest/gtest.h>

#include "fakehost.h"
#include "options/generaloptions.h"
#include "options/optionnames.h"

#include "optionstestsupport.h"

using OptionsTestSupport::Record;
using OptionsTestSupport::records;
using Tessel::GeneralOptions;
namespace OptionName = Tessel::OptionName;

using Libraries = std::set<std::string>;

class GeneralOptionsTest : public ::testing::Test
{
protected:
    FakeHost host;
    GeneralOptions options;
};

TEST_F(GeneralOptionsTest, DefaultsAreTheThreeRecordsInCatalogueOrder)
{
    host.setLibraries({"rflib", "Local_Components_lib"});
    options.set_option(QStringLiteral("Leftover"), QStringLiteral("x"), QString());
    options.set_options_to_default();
    EXPECT_EQ(records(options),
              (std::vector<Record>{
                  {"ExcludeLibrary", "Local_Components_lib",
                   "Exclude this library from the list of available libraries"},
                  {"TargetLib", "rflib", "Import designs into this library"},
                  {"OverwriteDesigns", "false", "Overwrite existing cells on design import"}}));
    EXPECT_FALSE(options.get_bool_option_value(QLatin1String(OptionName::OverwriteDesigns)));
}

TEST_F(GeneralOptionsTest, DefaultTargetLibraryIsTheFirstWritableLibraryInByteOrder)
{
    const struct
    {
        const char* name;
        Libraries open;
        const char* expected;
    } cases[] = {
        {"excluded library skipped", {"b_lib", "Local_Components_lib", "a_lib"}, "a_lib"},
        {"upper case sorts first", {"alpha", "Zed"}, "Zed"},
        {"digits and underscore by byte", {"_lib", "9lib", "Alib"}, "9lib"},
        {"only the excluded library open", {"Local_Components_lib"}, ""},
        {"no library open", {}, ""},
        {"exclusion is exact: lower-case twin stays",
         {"local_components_lib", "Local_Components_lib"},
         "local_components_lib"},
        {"non-ASCII names by UTF-8 bytes", {"\xc3\xa9lib", "zlib"}, "zlib"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        host.setLibraries(row.open);
        options.set_options_to_default();
        EXPECT_EQ(options.get_option_value(QLatin1String(OptionName::TargetLib)),
                  QString::fromUtf8(row.expected));
        EXPECT_EQ(options.get_default_target_library(), row.expected);
    }
}

TEST_F(GeneralOptionsTest, ExclusionComparesTheExactBytes)
{
    host.setLibraries({"Local_Components_lib", "rflib"});
    const struct
    {
        const char* name;
        const char* excluded;
        Libraries expected;
    } cases[] = {
        {"exact name removed", "Local_Components_lib", {"rflib"}},
        {"other case kept", "local_components_lib", {"Local_Components_lib", "rflib"}},
        {"prefix kept", "Local", {"Local_Components_lib", "rflib"}},
        {"empty name removes nothing", "", {"Local_Components_lib", "rflib"}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        Libraries result;
        options.get_writable_libraries_except(&result, row.excluded);
        EXPECT_EQ(result, row.expected);
    }
}

TEST_F(GeneralOptionsTest, ExclusionOfANonAsciiNameUsesUtf8)
{
    const std::string accented = "Biblioth\xc3\xa8que";
    host.setLibraries({accented, "zlib"});
    options.set_option(QLatin1String(OptionName::ExcludeLibrary),
                       QString::fromUtf8(accented.c_str()), QString());
    EXPECT_EQ(options.get_default_target_library(), "zlib");

    host.setLibraries({accented, "\xce\xa9lib"});
    options.set_option(QLatin1String(OptionName::ExcludeLibrary), QString(), QString());
    EXPECT_EQ(options.get_default_target_library(), accented);
}

TEST_F(GeneralOptionsTest, WritableLibrariesAreAddedToWhatTheSetAlreadyHolds)
{
    host.setLibraries({"a_lib", "b_lib"});
    Libraries result{"kept"};
    options.get_writable_libraries_except(&result, "a_lib");
    EXPECT_EQ(result, (Libraries{"b_lib", "kept"}));
}

TEST_F(GeneralOptionsTest, DefaultTargetLibraryFollowsTheCurrentExcludeLibrary)
{
    host.setLibraries({"a_lib", "b_lib"});
    options.set_option(QLatin1String(OptionName::ExcludeLibrary), QStringLiteral("a_lib"),
                       QString());
    EXPECT_EQ(options.get_default_target_library(), "b_lib");
    // Without the option nothing is excluded.
    options.clear_options();
    EXPECT_EQ(options.get_default_target_library(), "a_lib");
}
