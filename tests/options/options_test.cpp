#include <clocale>
#include <iostream>

#include <QDomDocument>
#include <QDomDocumentFragment>
#include <QDomElement>
#include <QDomNodeList>

#include <gtest/gtest.h>

#include "options/options.h"

#include "optionstestsupport.h"

using OptionsTestSupport::Record;
using OptionsTestSupport::records;
using Tessel::Options;

namespace {

QDomDocument parse(const char* xml)
{
    QDomDocument document;
    EXPECT_TRUE(document.setContent(QByteArray(xml))) << xml;
    return document;
}

} // namespace

TEST(Options, EmptySetFindsNothingAndReadsNeutralValues)
{
    Options options;
    EXPECT_EQ(options.get_option_index(QStringLiteral("TargetLib")), -1);
    EXPECT_TRUE(options.get_option_value(QStringLiteral("TargetLib")).isEmpty());
    EXPECT_TRUE(options.get_option_tip(QStringLiteral("TargetLib")).isEmpty());
    EXPECT_FALSE(options.get_bool_option_value(QStringLiteral("TargetLib")));
    EXPECT_EQ(options.get_int_option_value(QStringLiteral("TargetLib")), 0);
    EXPECT_EQ(options.get_double_option_value(QStringLiteral("TargetLib")), 0.0);
    // Reading never inserts.
    EXPECT_TRUE(options.get_option_begin() == options.get_option_end());
}

TEST(Options, NewNamesAreAppendedInInsertionOrder)
{
    Options options;
    options.set_option(QStringLiteral("b"), QStringLiteral("1"), QStringLiteral("tip b"));
    options.set_option(QStringLiteral("a"), QStringLiteral("2"), QString());
    options.set_option(QStringLiteral("c"), QStringLiteral("3"), QString());
    EXPECT_EQ(records(options),
              (std::vector<Record>{{"b", "1", "tip b"}, {"a", "2", ""}, {"c", "3", ""}}));
    EXPECT_EQ(options.get_option_index(QStringLiteral("a")), 1);
    EXPECT_EQ(options.get_option_index(QStringLiteral("c")), 2);
}

TEST(Options, SettingAnExistingNameReplacesValueAndTipInPlace)
{
    Options options;
    options.set_option(QStringLiteral("first"), QStringLiteral("1"), QStringLiteral("one"));
    options.set_option(QStringLiteral("TargetLib"), QStringLiteral("a_lib"), QStringLiteral("tip"));
    options.set_option(QStringLiteral("last"), QStringLiteral("3"), QStringLiteral("three"));

    options.set_option(QStringLiteral("TargetLib"), QStringLiteral("b_lib"), QString());

    EXPECT_EQ(records(options),
              (std::vector<Record>{
                  {"first", "1", "one"}, {"TargetLib", "b_lib", ""}, {"last", "3", "three"}}));
}

TEST(Options, NamesAreComparedWithCase)
{
    Options options;
    options.set_option(QStringLiteral("TargetLib"), QStringLiteral("a_lib"), QString());
    EXPECT_EQ(options.get_option_index(QStringLiteral("targetlib")), -1);
    EXPECT_TRUE(options.get_option_value(QStringLiteral("TARGETLIB")).isEmpty());

    options.set_option(QStringLiteral("targetlib"), QStringLiteral("b_lib"), QString());
    EXPECT_EQ(records(options),
              (std::vector<Record>{{"TargetLib", "a_lib", ""}, {"targetlib", "b_lib", ""}}));
}

TEST(Options, ClearOptionsLeavesTheSetEmpty)
{
    Options options;
    options.set_option(QStringLiteral("a"), QStringLiteral("1"), QString());
    options.set_option(QStringLiteral("b"), QStringLiteral("2"), QString());
    options.clear_options();
    EXPECT_TRUE(options.get_option_begin() == options.get_option_end());
    EXPECT_EQ(options.get_option_index(QStringLiteral("a")), -1);
}

TEST(Options, BooleanIsTrueOnlyForTrueInAnyCase)
{
    const struct
    {
        const char* value;
        bool expected;
    } cases[] = {{"TRUE", true},   {"true", true},   {"tRuE", true},   {"True", true},
                 {"1", false},     {"yes", false},   {"", false},      {"FALSE", false},
                 {" true", false}, {"true ", false}, {"truee", false}, {"on", false}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.value);
        Options options;
        options.set_option(QStringLiteral("flag"), QString::fromUtf8(row.value), QString());
        EXPECT_EQ(options.get_bool_option_value(QStringLiteral("flag")), row.expected);
    }
}

TEST(Options, IntegerIsReadAsDecimalAndZeroWhenMalformed)
{
    const struct
    {
        const char* value;
        int expected;
    } cases[] = {{"3", 3},          {"-7", -7},   {"010", 10}, {"3x", 0},
                 {"0x10", 0},       {"1.0", 0},   {"", 0},     {"2147483647", 2147483647},
                 {"2147483648", 0}, {"1 000", 0}, {"abc", 0}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.value);
        Options options;
        options.set_option(QStringLiteral("n"), QString::fromUtf8(row.value), QString());
        EXPECT_EQ(options.get_int_option_value(QStringLiteral("n")), row.expected);
    }
}

// The decimal separator is always the point: a user's locale with a decimal
// comma must neither make "1,0" readable nor break "1.0".
TEST(Options, DoubleIsReadInTheCLocaleUnderACommaLocale)
{
    OptionsTestSupport::CommaLocale commaLocale;
    if (commaLocale.cLocaleName().empty())
        std::cout << "note: no C library locale with a decimal comma here; only Qt's default "
                     "locale is German\n";
    const struct
    {
        const char* value;
        double expected;
    } cases[] = {{"1.0", 1.0}, {"1,0", 0.0}, {"2.5e1", 25.0}, {"-0.125", -0.125}, {"3", 3.0},
                 {"", 0.0},    {"abc", 0.0}, {"1.0.0", 0.0},  {"1.000,5", 0.0}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.value);
        Options options;
        options.set_option(QStringLiteral("x"), QString::fromUtf8(row.value), QString());
        EXPECT_EQ(options.get_double_option_value(QStringLiteral("x")), row.expected);
    }
}

TEST(Options, XmlFragmentHoldsOneOptionElementPerRecordInOrder)
{
    Options options;
    options.set_option(QStringLiteral("b"), QStringLiteral("x & y"), QStringLiteral("the tip"));
    options.set_option(QStringLiteral("a"), QString(), QString());

    QDomDocument document;
    const QDomDocumentFragment fragment = options.get_xml_frag(document, QStringLiteral("Group"));
    ASSERT_EQ(fragment.childNodes().count(), 1);
    const QDomElement group = fragment.firstChild().toElement();
    EXPECT_EQ(group.tagName(), QStringLiteral("Group"));
    EXPECT_TRUE(group.namespaceURI().isEmpty());

    const QDomNodeList children = group.childNodes();
    ASSERT_EQ(children.count(), 2);
    const QDomElement first = children.item(0).toElement();
    const QDomElement second = children.item(1).toElement();
    EXPECT_EQ(first.tagName(), QStringLiteral("Option"));
    EXPECT_EQ(first.attribute(QStringLiteral("name")), QStringLiteral("b"));
    EXPECT_EQ(first.attribute(QStringLiteral("value")), QStringLiteral("x & y"));
    EXPECT_EQ(first.attribute(QStringLiteral("tip")), QStringLiteral("the tip"));
    EXPECT_EQ(first.attributes().count(), 3);
    EXPECT_EQ(second.attribute(QStringLiteral("name")), QStringLiteral("a"));
    // An empty tip and value are still written.
    EXPECT_TRUE(second.hasAttribute(QStringLiteral("tip")));
    EXPECT_TRUE(second.hasAttribute(QStringLiteral("value")));
}

TEST(Options, LoadingFromADocumentTakesTheFirstGroupOnlyAtAnyDepth)
{
    const QDomDocument document = parse(R"(<Root>
        <Outer><G><Option name="a" value="1" tip="t"/><Option name="b" value="2" tip=""/></G></Outer>
        <G><Option name="c" value="3" tip=""/></G>
    </Root>)");
    Options options;
    options.set_option(QStringLiteral("stale"), QStringLiteral("x"), QString());
    options.load_from_dom(document, QStringLiteral("G"));
    EXPECT_EQ(records(options), (std::vector<Record>{{"a", "1", "t"}, {"b", "2", ""}}));
}

TEST(Options, LoadingFromADocumentWithoutTheGroupEmptiesTheSet)
{
    const QDomDocument document =
        parse(R"(<Root><Other><Option name="a" value="1"/></Other></Root>)");
    Options options;
    options.set_option(QStringLiteral("stale"), QStringLiteral("x"), QString());
    options.load_from_dom(document, QStringLiteral("G"));
    EXPECT_TRUE(records(options).empty());
}

TEST(Options, LoadingFromADocumentReadsRecordsAsTheRulesOfSetOption)
{
    const struct
    {
        const char* name;
        const char* xml;
        std::vector<Record> expected;
    } cases[] = {
        {"second record of one name overwrites the first in its place",
         R"(<G><Option name="a" value="1" tip="t1"/><Option name="b" value="2" tip=""/>)"
         R"(<Option name="a" value="3" tip=""/></G>)",
         {{"a", "3", ""}, {"b", "2", ""}}},
        {"missing attributes read as empty text",
         R"(<G><Option name="a"/><Option value="v" tip="t"/><Option/></G>)",
         {{"a", "", ""}, {"", "", ""}}},
        {"other child elements and text are skipped",
         R"(<G>text<Other name="x" value="y"/><Option name="a" value="1" tip=""/>)"
         R"(<option name="b" value="2"/><!-- c --><Option name="c" value="3" tip=""/></G>)",
         {{"a", "1", ""}, {"c", "3", ""}}},
        {"nested Option elements are not records of the group",
         R"(<G><Sub><Option name="deep" value="1"/></Sub><Option name="a" value="2" tip=""/></G>)",
         {{"a", "2", ""}}},
        {"unknown attributes are ignored",
         R"(<G><Option extra="e" tip="t" value="v" name="a"/></G>)",
         {{"a", "v", "t"}}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        Options options;
        options.load_from_dom(parse(row.xml), QStringLiteral("G"));
        EXPECT_EQ(records(options), row.expected);
    }
}
