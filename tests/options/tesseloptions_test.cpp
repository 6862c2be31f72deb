#include <functional>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include "fakehost.h"
#include "options/optionnames.h"
#include "options/tesseloptions.h"

#include "optionstestsupport.h"

using OptionsTestSupport::dataPath;
using OptionsTestSupport::readFile;
using OptionsTestSupport::Record;
using OptionsTestSupport::records;
using OptionsTestSupport::withSortedAttributes;
using OptionsTestSupport::writeFile;
using Tessel::TesselOptions;
using Records = std::vector<Record>;

class TesselOptionsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        host.setLibraries({"Local_Components_lib", "rflib", "tessel_lib"});
        options.set_option_file_name(file().toStdString());
    }

    QString file() const { return dir.filePath(QStringLiteral("Tessel.opt")); }

    // Marks both sets so that a load that leaves them alone shows.
    void fillWithStaleRecords()
    {
        options.general().set_option(QStringLiteral("Stale"), QStringLiteral("1"), QString());
        options.iff().set_option(QStringLiteral("Stale"), QStringLiteral("2"), QString());
    }

    static Records defaultGeneral()
    {
        Tessel::GeneralOptions defaults;
        defaults.set_options_to_default();
        return records(defaults);
    }

    static Records defaultIff()
    {
        Tessel::IFFOptions defaults;
        defaults.set_options_to_default();
        return records(defaults);
    }

    FakeHost host;
    QTemporaryDir dir;
    TesselOptions options;
};

TEST_F(TesselOptionsTest, NewObjectNamesTesselOptInTheWorkingDirectoryAndHoldsNothing)
{
    const TesselOptions fresh;
    EXPECT_EQ(fresh.get_option_file_name(), "./Tessel.opt");
    TesselOptions& mutableFresh = const_cast<TesselOptions&>(fresh);
    EXPECT_TRUE(records(mutableFresh.general()).empty());
    EXPECT_TRUE(records(mutableFresh.iff()).empty());
}

TEST_F(TesselOptionsTest, DefaultFileNameIsRelativeToTheWorkingDirectory)
{
    const QString previous = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(dir.path()));
    TesselOptions local;
    local.load();
    const bool saved = local.save();
    const bool created = QFile::exists(file());
    ASSERT_TRUE(QDir::setCurrent(previous));
    EXPECT_TRUE(saved);
    EXPECT_TRUE(created);
}

TEST_F(TesselOptionsTest, FirstLoadWithoutAFileGivesDefaultsAndCreatesNoFile)
{
    options.load();
    EXPECT_EQ(records(options.general()), defaultGeneral());
    EXPECT_EQ(records(options.iff()), defaultIff());
    EXPECT_EQ(records(options.general()).size(), 3u);
    EXPECT_EQ(records(options.iff()).size(), 27u);
    EXPECT_FALSE(QFile::exists(file()));
}

TEST_F(TesselOptionsTest, FileWrittenFromDefaultsEqualsTheReference)
{
    options.set_options_to_default();
    ASSERT_TRUE(options.save());
    const QByteArray written = readFile(file());
    const QByteArray reference = readFile(dataPath("defaults.opt"));
    EXPECT_EQ(withSortedAttributes(written), withSortedAttributes(reference))
        << "written:\n"
        << written.toStdString();
    // Attribute order aside, the bytes are the same: same length, and no declaration.
    EXPECT_EQ(written.size(), reference.size());
    EXPECT_TRUE(written.startsWith("<!DOCTYPE Tessel_Options>\n<TesselOptions>\n"));
}

TEST_F(TesselOptionsTest, ReferenceFileReadsAsTheDefaults)
{
    writeFile(file(), readFile(dataPath("defaults.opt")));
    options.load();
    EXPECT_EQ(records(options.general()), defaultGeneral());
    EXPECT_EQ(records(options.iff()), defaultIff());
}

TEST_F(TesselOptionsTest, WrittenAndReadBackTheSetsKeepRecordsOrderValuesAndTips)
{
    const Records general = {
        {"TargetLib", "R&D <lib>", "Import \"here\""},
        {"Zeta", "100% sure", "50%"},
        {"ExcludeLibrary", "Biblioth\u00e8que \u03a9 \u65e5\u672c", "\u00fcber & <\u00e4>"},
        {"OverwriteDesigns", "", ""},
        {"Quotes", "it's \"quoted\" 'twice'", "> & < \" '"},
        {"Spaces", "  padded  ", " "},
        {"Entities", "&amp; &lt; &#x41; %1 %2", "&quot;"},
        {"A&B<\"C\">", "name with markup", ""},
    };
    const Records iff = {
        {"ExportProjects", "projA projB \u00e9t\u00e9", ""},
        {"HierarchyOption", "2", ""},
        {"Unknown", "\U0001F600 outside the BMP", "tip"},
    };
    for (const auto& [name, value, tip] : general)
        options.general().set_option(name, value, tip);
    for (const auto& [name, value, tip] : iff)
        options.iff().set_option(name, value, tip);
    ASSERT_TRUE(options.save());

    TesselOptions reread;
    reread.set_option_file_name(options.get_option_file_name());
    reread.load();
    EXPECT_EQ(records(reread.general()), general);
    EXPECT_EQ(records(reread.iff()), iff);

    // Saved again, the file does not drift.
    reread.set_option_file_name(dir.filePath(QStringLiteral("again.opt")).toStdString());
    ASSERT_TRUE(reread.save());
    EXPECT_EQ(withSortedAttributes(readFile(dir.filePath(QStringLiteral("again.opt")))),
              withSortedAttributes(readFile(file())));
}

TEST_F(TesselOptionsTest, UnreadableOrMalformedFileGivesDefaultsAndIsLeftAlone)
{
    const QByteArray reference = readFile(dataPath("defaults.opt"));
    QByteArray binary;
    for (int i = 0; i < 4096; ++i)
        binary.append(static_cast<char>((i * 37) & 0xff));
    const QByteArray deep =
        QByteArray("<a>").repeated(100000) + QByteArray("</a>").repeated(100000);
    QByteArray entityBomb = "<!DOCTYPE T [<!ENTITY a0 \"lollollollollollollollollollol\">";
    for (int i = 1; i < 10; ++i)
        entityBomb += "<!ENTITY a" + QByteArray::number(i) + " \"" +
                      ("&a" + QByteArray::number(i - 1) + ";").repeated(10) + "\">";
    entityBomb += "]><T><GeneralOptions><Option name=\"x\" value=\"&a9;\"/></GeneralOptions></T>";
    QByteArray hugeUnclosed = "<TesselOptions><GeneralOptions>";
    while (hugeUnclosed.size() < 8 * 1024 * 1024)
        hugeUnclosed += R"(<Option name="Filler" value="0123456789abcdef" tip=""/>)";

    const struct
    {
        const char* name;
        std::function<void(const QString&)> prepare;
    } cases[] = {
        {"missing file", [](const QString&) {}},
        {"a folder in its place", [](const QString& path) { QDir().mkpath(path); }},
        {"empty file", [](const QString& path) { writeFile(path, {}); }},
        {"only whitespace", [](const QString& path) { writeFile(path, " \n\n  "); }},
        {"mismatched tags",
         [](const QString& path) {
             writeFile(path, "<TesselOptions><GeneralOptions></TesselOptions>");
         }},
        {"truncated in the middle",
         [&](const QString& path) { writeFile(path, reference.left(reference.size() / 2)); }},
        {"truncated inside the last tag",
         [&](const QString& path) { writeFile(path, reference.left(reference.size() - 3)); }},
        {"binary bytes", [&](const QString& path) { writeFile(path, binary); }},
        {"text of another format",
         [](const QString& path) { writeFile(path, "ExcludeLibrary = x\nTargetLib = y\n"); }},
        {"two root elements",
         [](const QString& path) { writeFile(path, "<GeneralOptions/><IFFOptions/>"); }},
        {"unescaped ampersand",
         [](const QString& path) {
             writeFile(path,
                       R"(<T><GeneralOptions><Option name="a" value="R&D"/></GeneralOptions></T>)");
         }},
        {"very large and unclosed", [&](const QString& path) { writeFile(path, hugeUnclosed); }},
        {"nested far deeper than any options file",
         [&](const QString& path) { writeFile(path, "<T>" + deep + "<GeneralOptions/></T>"); }},
        {"deeply nested and unclosed",
         [&](const QString& path) { writeFile(path, deep.left(deep.size() / 2)); }},
        {"entities expanding to billions of characters",
         [&](const QString& path) { writeFile(path, entityBomb); }},
    };
    const OptionsTestSupport::MessageRecorder messages;
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        const QString path = dir.filePath(QString::fromUtf8(row.name));
        row.prepare(path);
        const bool existed = QFile::exists(path);
        const QFileInfo before(path);

        options.set_option_file_name(path.toStdString());
        fillWithStaleRecords();
        options.load();

        EXPECT_EQ(records(options.general()), defaultGeneral());
        EXPECT_EQ(records(options.iff()), defaultIff());
        EXPECT_EQ(QFile::exists(path), existed);
        if (existed && before.isFile()) {
            EXPECT_EQ(QFileInfo(path).size(), before.size());
        }
    }
    EXPECT_EQ(messages.messages(), QStringList());
}

TEST_F(TesselOptionsTest, WellFormedFileIsTakenAsItIsWithoutDefaults)
{
    const struct
    {
        const char* name;
        QByteArray xml;
        Records general;
        Records iff;
    } cases[] = {
        {"empty general group only", "<TesselOptions><GeneralOptions/></TesselOptions>", {}, {}},
        {"root element of another name",
         R"(<Other><GeneralOptions><Option name="TargetLib" value="x" tip=""/></GeneralOptions></Other>)",
         {{"TargetLib", "x", ""}},
         {}},
        {"no IFF group",
         R"(<!DOCTYPE Tessel_Options><TesselOptions><GeneralOptions>)"
         R"(<Option name="OverwriteDesigns" value="TRUE" tip="t"/></GeneralOptions></TesselOptions>)",
         {{"OverwriteDesigns", "TRUE", "t"}},
         {}},
        {"other document type, declaration and default namespace",
         R"(<?xml version="1.0" encoding="UTF-8"?><!DOCTYPE Something>)"
         R"(<TesselOptions xmlns="http://example.org/x"><IFFOptions>)"
         R"(<Option name="ImportVersion" value="4" tip=""/></IFFOptions></TesselOptions>)",
         {},
         {{"ImportVersion", "4", ""}}},
        {"unknown and duplicate records, missing attributes",
         R"(<TesselOptions><GeneralOptions><Option name="Later" value="1"/>)"
         R"(<Option name="TargetLib" value="a" tip="t"/><Option name="Later" value="2" tip="x"/>)"
         R"(<Option name="NoValue"/></GeneralOptions><IFFOptions><Option value="nameless"/>)"
         R"(</IFFOptions></TesselOptions>)",
         {{"Later", "2", "x"}, {"TargetLib", "a", "t"}, {"NoValue", "", ""}},
         {{"", "nameless", ""}}},
        {"groups nested and swapped",
         R"(<TesselOptions><IFFOptions><Option name="i" value="1" tip=""/></IFFOptions>)"
         R"(<Deep><GeneralOptions><Option name="g" value="2" tip=""/></GeneralOptions></Deep>)"
         R"(<GeneralOptions><Option name="ignored" value="3"/></GeneralOptions></TesselOptions>)",
         {{"g", "2", ""}},
         {{"i", "1", ""}}},
        {"group a hundred levels down",
         "<T>" + QByteArray("<a>").repeated(100) +
             R"(<GeneralOptions><Option name="n" value="v" tip=""/></GeneralOptions>)" +
             QByteArray("</a>").repeated(100) + "</T>",
         {{"n", "v", ""}},
         {}},
        {"CRLF line ends and a byte order mark",
         "\xef\xbb\xbf<!DOCTYPE Tessel_Options>\r\n<TesselOptions>\r\n    <GeneralOptions>\r\n"
         "        <Option tip=\"\" name=\"n\" value=\"v\"/>\r\n    </GeneralOptions>\r\n"
         "</TesselOptions>\r\n",
         {{"n", "v", ""}},
         {}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        writeFile(file(), row.xml);
        fillWithStaleRecords();
        options.load();
        EXPECT_EQ(records(options.general()), row.general);
        EXPECT_EQ(records(options.iff()), row.iff);
    }
}

TEST_F(TesselOptionsTest, UnknownRecordsAreWrittenBackInFileOrder)
{
    writeFile(
        file(),
        R"(<TesselOptions><GeneralOptions><Option name="Zeta" value="1" tip=""/>)"
        R"(<Option name="TargetLib" value="rflib" tip="t"/><Option name="Alpha" value="2" tip=""/>)"
        R"(</GeneralOptions><IFFOptions/></TesselOptions>)");
    options.load();
    ASSERT_TRUE(options.save());
    const QStringList expected =
        withSortedAttributes("<!DOCTYPE Tessel_Options>\n"
                             "<TesselOptions>\n"
                             "    <GeneralOptions>\n"
                             "        <Option name=\"Zeta\" value=\"1\" tip=\"\"/>\n"
                             "        <Option name=\"TargetLib\" value=\"rflib\" tip=\"t\"/>\n"
                             "        <Option name=\"Alpha\" value=\"2\" tip=\"\"/>\n"
                             "    </GeneralOptions>\n"
                             "    <IFFOptions/>\n"
                             "</TesselOptions>\n");
    EXPECT_EQ(withSortedAttributes(readFile(file())), expected);
}

TEST_F(TesselOptionsTest, VeryLargeWellFormedFileIsReadCompletely)
{
    constexpr int count = 100000;
    QByteArray xml = "<TesselOptions><GeneralOptions>";
    for (int i = 0; i < count; ++i)
        xml += "<Option name=\"Filler" + QByteArray::number(i) + "\" value=\"" +
               QByteArray(100, 'v') + "\" tip=\"\"/>\n";
    xml += "</GeneralOptions></TesselOptions>";
    writeFile(file(), xml);

    options.load();
    const Records general = records(options.general());
    ASSERT_EQ(general.size(), static_cast<std::size_t>(count));
    EXPECT_EQ(std::get<0>(general.back()), QStringLiteral("Filler%1").arg(count - 1));
    EXPECT_TRUE(records(options.iff()).empty());
}

TEST_F(TesselOptionsTest, SaveToAPathThatCannotBeOpenedGivesFalseAndKeepsTheSets)
{
    options.set_options_to_default();
    ASSERT_TRUE(QDir(dir.path()).mkdir(QStringLiteral("folder")));
    const QString cases[] = {dir.filePath(QStringLiteral("missing/Tessel.opt")),
                             dir.filePath(QStringLiteral("folder")), QString()};
    const OptionsTestSupport::MessageRecorder messages;
    for (const QString& path : cases) {
        SCOPED_TRACE(path.toStdString());
        options.set_option_file_name(path.toStdString());
        EXPECT_FALSE(options.save());
        EXPECT_EQ(records(options.general()), defaultGeneral());
        EXPECT_EQ(records(options.iff()), defaultIff());
    }
    EXPECT_FALSE(QDir(dir.filePath(QStringLiteral("missing"))).exists());
    EXPECT_EQ(messages.messages(), QStringList());
}

TEST_F(TesselOptionsTest, FileNameIsTakenAsUtf8)
{
    const std::string name =
        dir.filePath(QStringLiteral("Einstellungen \u00e4\u00f6 \u03a9.opt")).toStdString();
    options.set_option_file_name(name);
    options.set_options_to_default();
    options.general().set_option(QStringLiteral("TargetLib"), QStringLiteral("tessel_lib"),
                                 QString());
    ASSERT_TRUE(options.save());
    EXPECT_TRUE(QFile::exists(QString::fromUtf8(name.c_str())));

    TesselOptions reread;
    reread.set_option_file_name(name);
    reread.load();
    EXPECT_EQ(reread.general().get_option_value(QStringLiteral("TargetLib")),
              QStringLiteral("tessel_lib"));
}

TEST_F(TesselOptionsTest, LoadAfterEditsReturnsToTheSavedState)
{
    options.set_options_to_default();
    ASSERT_TRUE(options.save());
    const Records general = records(options.general());
    const Records iff = records(options.iff());

    options.general().set_option(QStringLiteral("TargetLib"), QStringLiteral("edited"), QString());
    options.iff().set_option(QStringLiteral("ExportProjects"), QStringLiteral("p"), QString());
    options.iff().set_option(QStringLiteral("Extra"), QStringLiteral("e"), QString());
    options.load();

    EXPECT_EQ(records(options.general()), general);
    EXPECT_EQ(records(options.iff()), iff);
}
