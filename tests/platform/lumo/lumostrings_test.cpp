// The host string library's conversions, which end up byte for byte in host statements.

#include <locale>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "lumo/strings.h"

namespace {

TEST(LumoStrings, FromDoubleFormatsLikePercentG)
{
    // clang-format off
    const std::vector<std::pair<double, const char*>> rows = {
        {0.0, "0"}, {-0.5, "-0.5"}, {100000, "100000"}, {1234567, "1.23457e+06"},
        {0.0001, "0.0001"}, {0.00001, "1e-05"}, {3.14159265, "3.14159"}, {1e100, "1e+100"}};
    // clang-format on
    for (const auto& [value, text] : rows)
        EXPECT_EQ(from_double(value, 'g', 6), text);
}

// A decimal comma without depending on the machine's installed locales.
struct CommaPunctuation : std::numpunct<char>
{
    char do_decimal_point() const override { return ','; }
};

TEST(LumoStrings, FromDoubleKeepsThePointUnderACommaLocaleEvenForHugeFixedValues)
{
    // The global C++ locale is what a careless stream would pick up; 1e200
    // in fixed notation is too long for the quick conversion.
    const std::locale previous =
        std::locale::global(std::locale(std::locale::classic(), new CommaPunctuation));
    const std::string texts[] = {from_double(1.5, 'g', 6), from_double(1e200, 'f', 6)};
    std::ostringstream careless;
    careless << 1.5;
    std::locale::global(previous);
    ASSERT_EQ(careless.str(), "1,5") << "the comma locale did not take effect";
    EXPECT_EQ(texts[0], "1.5");
    EXPECT_EQ(texts[1], std::to_string(1e200)) << "as printf's %f";
}

TEST(LumoStrings, CompareIgnoresCaseAndPutsThePrefixFirst)
{
    EXPECT_EQ(compare_ignore_case("BsXe", "bsxe"), 0);
    EXPECT_GT(compare_ignore_case("DXD ", "DXD"), 0);
    EXPECT_LT(compare_ignore_case("abc", "ABD"), 0);
}

} // namespace
