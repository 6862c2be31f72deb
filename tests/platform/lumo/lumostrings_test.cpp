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

TEST(LumoStrings, FromDoubleKeepsThePointUnderACommaLocale)
{
    // The global C++ locale is what a careless stream would pick up.
    const std::locale previous =
        std::locale::global(std::locale(std::locale::classic(), new CommaPunctuation));
    const std::string text = from_double(1.5, 'g', 6);
    std::ostringstream careless;
    careless << 1.5;
    std::locale::global(previous);
    ASSERT_EQ(careless.str(), "1,5") << "the comma locale did not take effect";
    EXPECT_EQ(text, "1.5");
}

TEST(LumoStrings, FromIntAndCaseInsensitiveCompare)
{
    EXPECT_EQ(from_int(0), "0");
    EXPECT_EQ(from_int(-2147483647 - 1), "-2147483648");
    EXPECT_EQ(from_int(5000), "5000");
    EXPECT_EQ(compare_ignore_case("dxd", "DXD"), 0);
    EXPECT_EQ(compare_ignore_case("BsXe", "bsxe"), 0);
    EXPECT_NE(compare_ignore_case("DXD", "DXD "), 0);
    EXPECT_LT(compare_ignore_case("abc", "ABD"), 0);
    EXPECT_NE(compare_ignore_case("", "x"), 0);
}

} // namespace
