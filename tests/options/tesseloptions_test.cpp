#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>

#include "fakehost.h"
#include "options/tesseloptions.h"

#include "optionstestsupport.h"

using OptionsTestSupport::readFile;
using OptionsTestSupport::Records;
using OptionsTestSupport::Sets;
using OptionsTestSupport::sets;
using OptionsTestSupport::writeFile;
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

// Collects every Qt message while it lives, to show that nothing was said.
struct MessageRecorder
{
    static QStringList& messages()
    {
        static QStringList recorded;
        return recorded;
    }
    MessageRecorder()
    {
        messages().clear();
        qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext&, const QString& text) { messages() << text; });
    }
    ~MessageRecorder() { qInstallMessageHandler(nullptr); }
};

} // namespace

class TesselOptionsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
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

TEST_F(TesselOptionsTest, FirstLoadGivesDefaultsWhoseFileEqualsTheReference)
{
    options.load();
    EXPECT_FALSE(QFile::exists(file)) << "load must not write the defaults back";
    ASSERT_TRUE(options.save());
    EXPECT_EQ(
        withSortedAttributes(readFile(file)),
        withSortedAttributes(readFile(QStringLiteral(KIVA_OPTIONS_TEST_DATA "/defaults.opt"))));
}

TEST_F(TesselOptionsTest, WrittenAndReadBackTheSetsKeepRecordsOrderValuesAndTips)
{
    const Records general = {
        {"TargetLib", "R&D <lib>", "Import \"here\""},
        {"Zeta", "100% sure %1", "50%"},
        {"ExcludeLibrary", "Biblioth\u00e8que \u03a9 \u65e5\u672c", "\u00fcber & <\u00e4>"},
        {"OverwriteDesigns", "", ""},
        {"Quotes", "it's \"quoted\" 'twice'  ", "> & < \" '"},
        {"Entities", "&amp; &lt; &#x41;", "&quot;"},
        {"A&B<\"C\">", "name with markup", ""},
    };
    const Records iff = {
        {"ExportProjects", "projA projB \u00e9t\u00e9", ""},
        {"Unknown", "\U0001F600 outside the BMP", "tip"},
    };
    OptionsTestSupport::setRecords(options.general(), general);
    OptionsTestSupport::setRecords(options.iff(), iff);
    // The file name is narrow text taken as UTF-8.
    const std::string name = dir.filePath(QStringLiteral("\u00e4\u00f6 \u03a9.opt")).toStdString();
    options.set_option_file_name(name);
    ASSERT_TRUE(options.save());
    EXPECT_TRUE(QFile::exists(QString::fromUtf8(name.c_str())));

    TesselOptions reread;
    reread.set_option_file_name(name);
    reread.load();
    EXPECT_EQ(sets(reread), Sets(general, iff));
}

// A file that cannot be read or parsed gives the defaults; one the parser reads
// is taken as it is, without defaults, however odd. Either way nothing is said,
// nothing hangs and the file is left alone; a save afterwards never writes over
// what is not a regular options file, and a failed save keeps the sets.
TEST_F(TesselOptionsTest, LoadGivesTheFileAsItIsOrElseTheDefaultsSilently)
{
    const QByteArray reference = readFile(QStringLiteral(KIVA_OPTIONS_TEST_DATA "/defaults.opt"));
    QByteArray entityBomb = "<!DOCTYPE T [<!ENTITY a0 \"lollollollollollollollollollol\">";
    for (int i = 1; i < 10; ++i)
        entityBomb += "<!ENTITY a" + QByteArray::number(i) + " \"" +
                      ("&a" + QByteArray::number(i - 1) + ";").repeated(10) + "\">";
    entityBomb += "]><T><GeneralOptions><Option name=\"x\" value=\"&a9;\"/></GeneralOptions></T>";
    // Past the nesting limit of 256 open elements, and just within it.
    const auto nested = [](int depth) {
        return QByteArray("<a>").repeated(depth) + QByteArray("</a>").repeated(depth);
    };
    const QByteArray markupInText = "<!-- " + QByteArray("<a>").repeated(300) + " --><![CDATA[" +
                                    QByteArray("<b>").repeated(300) + "]]><?pi <c><c> ?>";
    const Records target = {{"TargetLib", "lib", "t"}};
    const QByteArray targetRecord = R"(<Option name="TargetLib" value="lib" tip="t"/>)";
    const QByteArray targetFile = "<T><GeneralOptions>" + targetRecord + "</GeneralOptions></T>";
    // The plug-in writes what it holds, control characters included.
    TesselOptions withControlCharacter;
    withControlCharacter.iff().set_option(QStringLiteral("ExportProjects"),
                                          QStringLiteral("a\u0001b"), QString());
    withControlCharacter.set_option_file_name(
        dir.filePath(QStringLiteral("written")).toStdString());
    ASSERT_TRUE(withControlCharacter.save());
    enum Place { File, NoFile, NoFolder, Folder, Fifo, DeviceLink, TooLarge };

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
        {"in a missing folder", {}, false, {}, {}, NoFolder, false},
        {"a folder in its place", {}, false, {}, {}, Folder, false},
        {"a FIFO in its place", {}, false, {}, {}, Fifo, false},
        {"a link to an endless device", {}, false, {}, {}, DeviceLink, false},
        // Sparse: its size costs nothing to write.
        {"usable, but larger than 16 MiB", targetFile, false, {}, {}, TooLarge, false},
        {"empty file", ""},
        {"mismatched tags", "<TesselOptions><GeneralOptions></TesselOptions>"},
        {"unescaped ampersand", R"(<T><GeneralOptions><Option value="R&D"/></GeneralOptions></T>)"},
        {"truncated", reference.left(reference.size() - 3)},
        {"binary bytes", QByteArray("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\xff\xfe\0", 19)},
        {"entities expanding to billions of characters", entityBomb},
        {"nested too deep, after a declaration and document type",
         "<?xml version=\"1.0\"?><!DOCTYPE T><T>" + nested(256) + "<GeneralOptions/></T>"},
        // In UTF-16, U+2F3C and ">" are the bytes of an end tag, and every tag looks open.
        {"nested too deep in UTF-16, behind text whose bytes look like end tags",
         utf16(QStringLiteral("<T>") + QString(QChar(0x2f3c)).append('>').repeated(700) +
               QString::fromLatin1(nested(300)) + QStringLiteral("<GeneralOptions/></T>"))},
        {"an entity expanding to deep nesting",
         "<!DOCTYPE T [<!ENTITY e \"" + nested(300) + "\">]><T>&e;<GeneralOptions/></T>"},
        {"an entity expanding to deep nesting through character references",
         "<!DOCTYPE T [<!ENTITY e \"" + QByteArray("&#60;a>").repeated(300) +
             "\">]><T>&e;<GeneralOptions/></T>"},
        // Files the parser reads, though a strict reader would not.
        {"nested as deep as allowed", "<T>" + nested(255) + "<GeneralOptions/></T>", true},
        {"a control character in a value",
         "<T><GeneralOptions><Option name=\"TargetLib\" value=\"l\x01ib\" tip=\"t\"/></GeneralOptions></T>",
         true, {{"TargetLib", "l\u0001ib", "t"}}},
        {"a Latin-1 byte",
         "<T><GeneralOptions><Option name=\"TargetLib\" value=\"caf\xe9\" tip=\"t\"/></GeneralOptions></T>",
         true, {{"TargetLib", "caf\ufffd", "t"}}},
        {"an XML 1.1 declaration", R"(<?xml version="1.1"?>)" + targetFile, true, target},
        {"a duplicate attribute",
         R"(<T><GeneralOptions><Option name="TargetLib" value="other" value="lib" tip="t"/>)"
         "</GeneralOptions></T>", true, target},
        {"an undeclared prefix",
         R"(<T q:a="1"><q:x/><GeneralOptions>)" + targetRecord + "</GeneralOptions></T>", true, target},
        {"markup-like text in comments, CDATA and instructions",
         "<T>" + markupInText + "<GeneralOptions>" + targetRecord + "</GeneralOptions></T>", true, target},
        {"an internal subset without markup in its entities",
         R"(<!DOCTYPE T [<!-- <!ENTITY x "<a>"> --><!ENTITY lib "lib"><!ELEMENT T ANY>]><T><GeneralOptions>)"
         R"(<Option name="TargetLib" value="&lib;" tip="t"/></GeneralOptions></T>)", true, target},
        {"written by the plug-in with a control character",
         readFile(dir.filePath(QStringLiteral("written"))), true, sets(withControlCharacter).first,
         sets(withControlCharacter).second},
        {"empty general group only", "<TesselOptions><GeneralOptions/></TesselOptions>", true},
        {"root element of another name, other document type and a declaration",
         R"(<?xml version="1.0" encoding="UTF-8"?><!DOCTYPE Something><Other><GeneralOptions>)"
         R"(<Option name="TargetLib" value="x" tip=""/></GeneralOptions></Other>)",
         true, {{"TargetLib", "x", ""}}},
        {"unknown and duplicate records, missing attributes",
         R"(<TesselOptions><GeneralOptions><Option name="Later" value="1"/>)"
         R"(<Option name="TargetLib" value="a" tip="t"/><Option name="Later" value="2" tip="x"/>)"
         R"(<Option name="NoValue"/></GeneralOptions><IFFOptions><Option value="nameless"/>)"
         R"(</IFFOptions></TesselOptions>)",
         true, {{"Later", "2", "x"}, {"TargetLib", "a", "t"}, {"NoValue", "", ""}}, {{"", "nameless", ""}}},
        {"first group at any depth, only its own Option children",
         R"(<TesselOptions><IFFOptions>text<option name="lower"/><Sub><Option name="deep"/></Sub>)"
         R"(<Option name="i" value="1" tip=""/></IFFOptions><Deep><GeneralOptions>)"
         R"(<Option name="g" value="2" tip=""/></GeneralOptions></Deep>)"
         R"(<GeneralOptions><Option name="ignored" value="3"/></GeneralOptions></TesselOptions>)",
         true, {{"g", "2", ""}}, {{"i", "1", ""}}},
    };
    // clang-format on
    const MessageRecorder recorder;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        QString path = dir.filePath(QString::fromUtf8(row.name));
        if (row.place == NoFolder)
            path += QStringLiteral("/Tessel.opt");
        else if (row.place == Folder)
            ASSERT_TRUE(QDir().mkpath(path));
        else if (row.place == Fifo)
            ASSERT_EQ(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);
        else if (row.place == DeviceLink)
            ASSERT_TRUE(QFile::link(QStringLiteral("/dev/zero"), path));
        else if (row.place != NoFile)
            writeFile(path, row.content);
        if (row.place == TooLarge) {
            ASSERT_TRUE(QFile::resize(path, 16 * 1024 * 1024 + 1));
        }
        const QByteArray content = row.place == File || row.place == TooLarge ? readFile(path) : "";

        options.set_option_file_name(path.toStdString());
        options.general().set_option(QStringLiteral("Stale"), QStringLiteral("1"), QString());
        options.iff().set_option(QStringLiteral("Stale"), QStringLiteral("2"), QString());
        options.load();
        const Sets expected = row.usable ? Sets(row.general, row.iff) : defaults;
        EXPECT_EQ(sets(options), expected);
        EXPECT_EQ(QFileInfo(path).exists() || QFileInfo(path).isSymLink(),
                  row.place != NoFile && row.place != NoFolder);
        EXPECT_EQ(options.save(), row.saves);
        EXPECT_EQ(sets(options), expected);
        if (row.place != File && row.place != NoFile && row.place != TooLarge) {
            options.set_option_file_name(path.toStdString()); // not refused by a load
            EXPECT_FALSE(options.save());
        }
        if (!row.saves && (row.place == File || row.place == TooLarge)) {
            EXPECT_TRUE(readFile(path) == content) << "a refused file was written over";
        }
    }
    options.set_option_file_name("");
    EXPECT_FALSE(options.save());
    EXPECT_FALSE(options.iff().write_IFF_options_file(QString()));
    EXPECT_EQ(MessageRecorder::messages(), QStringList());
}
