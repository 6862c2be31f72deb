#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>

#include "fakehost.h"
#include "options/iffoptions.h"
#include "options/optionnames.h"
#include "options/options.h"
#include "options/tesseloptions.h"

#include "optionstestsupport.h"

using namespace OptionsTestSupport;
using Tessel::Options;
using Tessel::TesselOptions;

namespace {

// The lines of an options file with the attributes of each moved to its end
// in sorted order, so that two files compare equal exactly when they differ at
// most in attribute order inside an element.
QStringList withSortedAttributes(const QByteArray& text)
{
    static const QRegularExpression attribute(QStringLiteral(R"( [a-z]+="[^"]*")"));
    QStringList lines = QString::fromUtf8(text).split(QLatin1Char('\n'));
    for (QString& line : lines) {
        QStringList attributes;
        for (auto it = attribute.globalMatch(line); it.hasNext();)
            attributes << it.next().captured(0);
        attributes.sort();
        line.remove(attribute).append(attributes.join(QString()));
    }
    return lines;
}

// `text` in UTF-16 with a byte order mark, as the parser recognises it.
QByteArray utf16(const QString& text)
{
    return QByteArray("\xff\xfe") +
           QByteArray(reinterpret_cast<const char*>(text.utf16()), text.size() * 2);
}

// Every Qt message said while the test runs, to show that nothing was said.
QStringList messages;

} // namespace

class TesselOptionsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        host.setLibraries({"Local_Components_lib", "rflib", "tessel_lib"});
        options.set_option_file_name(file.toStdString());
        TesselOptions fromDefaults;
        fromDefaults.set_options_to_default();
        defaults = sets(fromDefaults);
    }

    FakeHost host;
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("Tessel.opt"));
    TesselOptions options;
    Sets defaults;
};

TEST_F(TesselOptionsTest, FirstLoadGivesTheDefaultsWhoseFileEqualsTheReference)
{
    options.load();
    EXPECT_FALSE(QFile::exists(file)) << "load must not write the defaults back";
    ASSERT_TRUE(options.save());
    EXPECT_EQ(
        withSortedAttributes(readFile(file)),
        withSortedAttributes(readFile(QStringLiteral(KIVA_OPTIONS_TEST_DATA "/defaults.opt"))));

    // The file name is narrow text taken as UTF-8.
    const std::string name = dir.filePath(QStringLiteral("\u00e4\u00f6 \u03a9.opt")).toStdString();
    options.set_option_file_name(name);
    ASSERT_TRUE(options.save());
    EXPECT_TRUE(QFile::exists(QString::fromUtf8(name.c_str())));
}

// A file that cannot be read or parsed gives the defaults; one the parser reads
// is taken as it is, without defaults, however odd. Either way nothing is said,
// nothing hangs and the file is left alone; a save afterwards never writes over
// what is not a regular options file, and a failed save keeps the sets.
TEST_F(TesselOptionsTest, LoadGivesTheFileAsItIsOrElseTheDefaultsSilently)
{
    // Expanded without bound, such entities could take all memory.
    const QByteArray entities =
        R"(<!DOCTYPE T [<!ENTITY a "x"><!ENTITY b "&a;&a;">]><T>)"
        R"(<GeneralOptions><Option name="x" value="&b;"/></GeneralOptions></T>)";
    // Past the nesting limit of 256 open elements, and just within it.
    const auto nested = [](int depth) {
        return QByteArray("<a>").repeated(depth) + QByteArray("</a>").repeated(depth);
    };
    const QByteArray markupInText = "<!-- " + QByteArray("<a>").repeated(300) + " --><![CDATA[" +
                                    QByteArray("<b>").repeated(300) + "]]><?pi <c><c> ?>";
    const Records target = {{"TargetLib", "lib", "t"}};
    const QByteArray targetFile =
        R"(<T><GeneralOptions><Option name="TargetLib" value="lib" tip="t"/></GeneralOptions></T>)";
    enum Place { File, NoFile, Folder, Fifo, TooLarge };

    struct Row
    {
        const char* name;
        QByteArray content;
        bool usable = false;
        Records general = {};
        Records iff = {};
        Place place = File;
        bool saves = true; // a save afterwards succeeds
    };
    // clang-format off
    const Row rows[] = {
        {"missing file", {}, false, {}, {}, NoFile},
        {"a folder in its place", {}, false, {}, {}, Folder, false},
        {"a FIFO in its place", {}, false, {}, {}, Fifo, false},
        // Sparse: its size costs nothing to write.
        {"usable, but larger than 16 MiB", targetFile, false, {}, {}, TooLarge, false},
        {"empty file", ""},
        {"entities holding markup", entities},
        {"nested too deep, after a declaration and document type",
         "<?xml version=\"1.0\"?><!DOCTYPE T><T>" + nested(256) + "<GeneralOptions/></T>"},
        // In UTF-16, U+2F3C and ">" are the bytes of an end tag, and every tag looks open.
        {"nested too deep in UTF-16, behind text whose bytes look like end tags",
         utf16(QStringLiteral("<T>") + QString(QChar(0x2f3c)).append('>').repeated(700) +
               QString::fromLatin1(nested(300)) + QStringLiteral("<GeneralOptions/></T>"))},
        // Files the parser reads: the byte-level pass must not refuse them.
        {"nested as deep as allowed", "<T>" + nested(255) + "<GeneralOptions/></T>", true},
        {"markup-like text in comments, CDATA, instructions and an internal subset",
         R"(<!DOCTYPE T [<!-- <!ENTITY x "<a>"> --><!ENTITY lib "lib"><!ELEMENT T ANY>]><T>)" + markupInText +
         R"(<GeneralOptions><Option name="TargetLib" value="&lib;" tip="t"/></GeneralOptions></T>)", true, target},
        {"unknown and duplicate records, missing attributes",
         R"(<TesselOptions><GeneralOptions><Option name="Later" value="1"/>)"
         R"(<Option name="TargetLib" value="a" tip="t"/><Option name="Later" value="2" tip="x"/>)"
         R"(<Option name="NoValue"/></GeneralOptions><IFFOptions><Option value="nameless"/>)"
         R"(</IFFOptions></TesselOptions>)",
         true, {{"Later", "2", "x"}, {"TargetLib", "a", "t"}, {"NoValue", "", ""}}, {{"", "nameless", ""}}},
        {"any root and document type; first group at any depth, only its own Option children",
         R"(<?xml version="1.0" encoding="UTF-8"?><!DOCTYPE Something><Other><IFFOptions>text<option name="lower"/><Sub><Option name="deep"/></Sub>)"
         R"(<Option name="i" value="1" tip=""/></IFFOptions><Deep><GeneralOptions>)"
         R"(<Option name="g" value="2" tip=""/></GeneralOptions></Deep>)"
         R"(<GeneralOptions><Option name="ignored" value="3"/></GeneralOptions></Other>)",
         true, {{"g", "2", ""}}, {{"i", "1", ""}}},
    };
    // clang-format on
    qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext&, const QString& text) { messages << text; });
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        QString path = dir.filePath(QString::fromUtf8(row.name));
        if (row.place == Folder) {
            ASSERT_TRUE(QDir().mkpath(path));
        } else if (row.place == Fifo) {
            ASSERT_EQ(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);
        } else if (row.place != NoFile) {
            QFile written(path);
            ASSERT_TRUE(written.open(QIODevice::WriteOnly) && written.write(row.content) >= 0);
        }
        ASSERT_TRUE(row.place != TooLarge || QFile::resize(path, 16 * 1024 * 1024 + 1));

        options.set_option_file_name(path.toStdString());
        options.general().set_option(QStringLiteral("Stale"), QStringLiteral("1"), QString());
        options.iff().set_option(QStringLiteral("Stale"), QStringLiteral("2"), QString());
        options.load();
        const Sets expected = row.usable ? Sets(row.general, row.iff) : defaults;
        EXPECT_EQ(sets(options), expected);
        EXPECT_EQ(QFileInfo::exists(path), row.place != NoFile);
        EXPECT_EQ(options.save(), row.saves);
        EXPECT_EQ(sets(options), expected);
        if (row.place != File && row.place != NoFile && row.place != TooLarge) {
            options.set_option_file_name(path.toStdString()); // not refused by a load
            EXPECT_FALSE(options.save());
        }
        EXPECT_TRUE(row.place != TooLarge || QFileInfo(path).size() == 16 * 1024 * 1024 + 1)
            << "written over";
    }
    options.set_option_file_name("");
    EXPECT_FALSE(options.save());
    EXPECT_FALSE(options.iff().write_IFF_options_file(QString()));
    qInstallMessageHandler(nullptr);
    EXPECT_EQ(messages, QStringList());
}

// Names are compared with case: "targetlib" is a record of its own.
TEST(Options, SetAppendsNewNamesAndReplacesValueAndTipInPlace)
{
    Options options;
    EXPECT_EQ(options.get_option_index(QStringLiteral("TargetLib")), -1);
    // clang-format off
    setRecords(options, {{"b", "1", "tip b"}, {"TargetLib", "a_lib", "tip"},
        {"c", "3", ""}, {"TargetLib", "b_lib", ""}, {"targetlib", "c_lib", ""}});
    EXPECT_EQ(records(options), (Records{{"b", "1", "tip b"}, {"TargetLib", "b_lib", ""},
        {"c", "3", ""}, {"targetlib", "c_lib", ""}}));
    // clang-format on
    EXPECT_EQ(options.get_option_tip(QStringLiteral("b")), QStringLiteral("tip b"));
    options.clear_options();
    EXPECT_TRUE(records(options).empty());
}

// The plug-in reads only booleans typed; any spelling of "true", exactly.
TEST(Options, ABooleanIsTrueOnlyForTrueInAnyCase)
{
    Options options;
    EXPECT_FALSE(options.get_bool_option_value(QStringLiteral("x")));
    EXPECT_TRUE(records(options).empty()) << "a read inserted";
    for (const auto& [value, boolean] :
         {std::pair("tRuE", true), std::pair(" true", false), std::pair("1", false)}) {
        options.set_option(QStringLiteral("x"), QString::fromUtf8(value), QString());
        EXPECT_EQ(options.get_bool_option_value(QStringLiteral("x")), boolean) << value;
    }
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
    };
    Tessel::IFFOptions options;
    for (const auto& [set, expected] : cases) {
        SCOPED_TRACE(expected);
        options.clear_options();
        setRecords(options, set);
        EXPECT_TRUE(options.write_IFF_options_file(path));
        EXPECT_EQ(readFile(path), QByteArray(expected));
    }
    for (const QString& unwritable : {dir.filePath(QStringLiteral("missing/iff.txt")), dir.path()})
        EXPECT_FALSE(options.write_IFF_options_file(unwritable)) << unwritable.toStdString();
}
