#include <memory>
#include <set>
#include <string>

#include <QAbstractItemView>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFile>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTranslator>

#include <gtest/gtest.h>

#include "fakehost.h"
#include "options/optionnames.h"
#include "options/tesseloptions.h"
#include "ui/kivasettingsdialog.h"

#include "optionstestsupport.h"

namespace OptionName = Tessel::OptionName;

using OptionsTestSupport::Sets;
using OptionsTestSupport::sets;

namespace {

// Notes the texts asked for in the form's context and leaves every text as it is.
class ContextTranslator : public QTranslator
{
public:
    QString translate(const char* context, const char* text, const char*, int) const override
    {
        if (std::string(context) == "KivaUISettingsDialog")
            asked.insert(text);
        return QString();
    }
    bool isEmpty() const override { return false; }
    mutable std::set<std::string> asked;
};

} // namespace

class KivaSettingsDialogTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        static int argc = 1;
        static char name[] = "kivasettingsdialog_test";
        static char* argv[] = {name, nullptr};
        static QApplication application(argc, argv);
    }

    void SetUp() override
    {
        host.setLibraries({"Local_Components_lib", "a_lib", "b_lib", "c_lib"});
        options.set_option_file_name(file.toStdString());
        options.set_options_to_default();
    }

    void open()
    {
        dialog = std::make_unique<KivaSettingsDialog>(options);
        dialog->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(dialog.get(), 5000));
    }

    // What a fresh load of the options file gives.
    Sets fileSets() const
    {
        Tessel::TesselOptions fromFile;
        fromFile.set_option_file_name(file.toStdString());
        fromFile.load();
        return sets(fromFile);
    }
    template <typename Widget> Widget* widget(const char* name) const
    {
        return dialog->findChild<Widget*>(QLatin1String(name)); // null: the test crashes
    }
    QComboBox* comboBox() const { return widget<QComboBox>("comboBoxTargetLibrary"); }
    QLineEdit* lineEdit() const { return widget<QLineEdit>("lineEditExcludeLibrary"); }
    QCheckBox* checkBox() const { return widget<QCheckBox>("checkBoxOverwriteDesigns"); }
    QString general(const char* name) { return options.general().get_option_value(name); }

    FakeHost host;
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("Tessel.opt"));
    Tessel::TesselOptions options;
    std::unique_ptr<KivaSettingsDialog> dialog;
};

// Filling the controls must change no option, and the options file is
// rewritten from memory even over an earlier one. Toggling the box changes
// both overwrite options, each in its own spelling; Ok then stores the
// library shown and saves. (Cancel and the exclusion are in the end-to-end
// dialog test.)
TEST_F(KivaSettingsDialogTest, OpeningChangesNoOptionAndOkStoresTheLibraryShown)
{
    // libraries open, target, overwrite, library shown, checked
    const std::tuple<bool, const char*, const char*, const char*, bool> cases[] = {
        {true, "b_lib", "TRUE", "b_lib", true},
        {true, "B_LIB", "false", "a_lib", false}, // the target matched with case
        {false, "gone_lib", "1", "", false},
    };
    for (const auto& [librariesOpen, target, overwrite, shown, checked] : cases) {
        SCOPED_TRACE(target);
        if (!librariesOpen)
            host.setLibraries({});
        for (const auto& [name, value] : {std::pair(OptionName::TargetLib, target),
                                          std::pair(OptionName::OverwriteDesigns, overwrite)})
            options.general().set_option(name, value, options.general().get_option_tip(name));
        const Sets before = sets(options);
        ASSERT_TRUE(QFile(file).open(QIODevice::WriteOnly)); // an empty file from an earlier run

        open();
        // The open libraries, sorted, the excluded one left out.
        EXPECT_EQ(comboBox()->count(), librariesOpen ? 3 : 0);
        EXPECT_EQ(comboBox()->itemText(2), librariesOpen ? "c_lib" : "");
        EXPECT_EQ(comboBox()->currentText(), QString::fromUtf8(shown));
        EXPECT_EQ(lineEdit()->text(), QStringLiteral("Local_Components_lib"));
        EXPECT_EQ(checkBox()->isChecked(), checked);
        EXPECT_EQ(sets(options), before);
        EXPECT_EQ(fileSets(), before);

        QTest::keyClick(checkBox(), Qt::Key_Space);
        EXPECT_EQ(general(OptionName::OverwriteDesigns), checked ? "false" : "true");
        EXPECT_EQ(options.iff().get_option_value(OptionName::ImportOverwriteExistingDesign),
                  checked ? "FALSE" : "TRUE");
        // The form's own accept() closes the dialog first: it finishes twice, accepted.
        QSignalSpy finished(dialog.get(), &QDialog::finished);
        QTest::mouseClick(widget<QDialogButtonBox>("buttonBox")->button(QDialogButtonBox::Ok),
                          Qt::LeftButton);
        ASSERT_EQ(finished.count(), 2);
        EXPECT_EQ(finished.first().first(), QDialog::Accepted);
        EXPECT_EQ(general(OptionName::TargetLib), QString::fromUtf8(shown));
        EXPECT_EQ(fileSets(), sets(options));
    }
}

// Every text is asked for in the form's translation context and shows whole
// within the fixed size; each control tells its option's tip.
TEST_F(KivaSettingsDialogTest, FormShowsTheTranslatedTextsWholeAndTheTipsAsToolTips)
{
    host.setLibraries({"Local_Components_lib", "rflib", "tessel_library_for_imports"});
    options.set_options_to_default();
    ContextTranslator translator;
    QCoreApplication::installTranslator(&translator);
    open();
    QCoreApplication::removeTranslator(&translator);
    EXPECT_EQ(translator.asked, (std::set<std::string>{"Tessel Settings", "Import Target Library",
                                                       "Exclude from Target Library List",
                                                       "Overwrite Designs on Import",
                                                       "General Options", "IFF Options"}));
    EXPECT_EQ(dialog->windowTitle(), "Tessel Settings");
    auto* tabs = widget<QTabWidget>("tabWidget");
    ASSERT_EQ(tabs->count(), 2);
    EXPECT_EQ(tabs->tabText(0), "General Options");
    EXPECT_EQ(tabs->tabText(1), "IFF Options");
    auto* layout = widget<QFormLayout>("formLayout");
    const char* rows[][4] = {
        {"labelTargetLibrary", "Import Target Library", "comboBoxTargetLibrary",
         "Import designs into this library"},
        {"labelExcludeLibrary", "Exclude from Target Library List", "lineEditExcludeLibrary",
         "Exclude this library from the list of available libraries"},
        {"labelOverwriteDesigns", "Overwrite Designs on Import", "checkBoxOverwriteDesigns",
         "Overwrite existing cells on design import"}};
    for (int row = 0; row < 3; ++row) {
        SCOPED_TRACE(rows[row][0]);
        auto* label = widget<QLabel>(rows[row][0]);
        EXPECT_EQ(label->text(), rows[row][1]);
        EXPECT_EQ(layout->itemAt(row, QFormLayout::LabelRole)->widget(), label);
        EXPECT_GE(label->height(), label->heightForWidth(label->width()));
        EXPECT_GE(label->width(), label->minimumSizeHint().width());
        auto* control = widget<QWidget>(rows[row][2]);
        EXPECT_EQ(layout->itemAt(row, QFormLayout::FieldRole)->widget(), control);
        EXPECT_EQ(control->toolTip(), rows[row][3]);
    }
    EXPECT_EQ(dialog->size(), QSize(376, 275));
    EXPECT_EQ(widget<QWidget>("formLayoutWidget")->geometry(), QRect(0, 0, 351, 201));

    // A long name shows from its beginning, and the list opens wide enough for each.
    EXPECT_EQ(comboBox()->currentText(), QStringLiteral("rflib"));
    EXPECT_EQ(lineEdit()->cursorPosition(), 0);
    EXPECT_GE(
        comboBox()->view()->minimumWidth(),
        comboBox()->fontMetrics().horizontalAdvance(QStringLiteral("tessel_library_for_imports")));

    ASSERT_TRUE(QMetaObject::invokeMethod(dialog.get(), "help"));
    const auto calls = host.calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].function, "de_info");
    EXPECT_EQ(calls[0].args, decltype(calls[0].args){"Tessel Settings Help button clicked"});
}
