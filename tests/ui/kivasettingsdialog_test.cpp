#include <memory>
#include <vector>

#include <QAbstractItemView>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFile>
#include <QFontMetrics>
#include <QFormLayout>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QPixmap>
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

// Tags every translated text with its context, to show which context is asked.
class ContextTranslator : public QTranslator
{
public:
    QString translate(const char* context, const char* text, const char*, int) const override
    {
        return QLatin1String(context) + QLatin1Char('|') + QString::fromUtf8(text);
    }
    bool isEmpty() const override { return false; }
};

} // namespace

class KivaSettingsDialogTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "offscreen");
        static int argc = 1;
        static char name[] = "kivasettingsdialog_test";
        static char* argv[] = {name, nullptr};
        static QApplication application(argc, argv);
    }

    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
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
        Widget* found = dialog->findChild<Widget*>(QLatin1String(name));
        EXPECT_NE(found, nullptr) << name;
        return found;
    }
    QComboBox* comboBox() const { return widget<QComboBox>("comboBoxTargetLibrary"); }
    QLineEdit* lineEdit() const { return widget<QLineEdit>("lineEditExcludeLibrary"); }
    QCheckBox* checkBox() const { return widget<QCheckBox>("checkBoxOverwriteDesigns"); }
    void click(QDialogButtonBox::StandardButton which) const
    {
        QTest::mouseClick(widget<QDialogButtonBox>("buttonBox")->button(which), Qt::LeftButton);
    }
    QStringList listed() const
    {
        QStringList result;
        for (int i = 0; i < comboBox()->count(); ++i)
            result << comboBox()->itemText(i);
        return result;
    }

    QString general(const char* name)
    {
        return options.general().get_option_value(QLatin1String(name));
    }
    QString iff(const char* name) { return options.iff().get_option_value(QLatin1String(name)); }
    void setGeneral(const char* name, const char* value)
    {
        options.general().set_option(QLatin1String(name), QString::fromUtf8(value),
                                     options.general().get_option_tip(QLatin1String(name)));
    }

    FakeHost host;
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("Tessel.opt"));
    Tessel::TesselOptions options;
    std::unique_ptr<KivaSettingsDialog> dialog;
};

// Filling the controls must change no option, and the options file is
// rewritten from memory even over an earlier one; Ok then stores the library shown.
TEST_F(KivaSettingsDialogTest, OpeningChangesNoOptionAndOkStoresTheLibraryShown)
{
    const struct
    {
        const char* name;
        bool librariesOpen;
        const char* target;
        const char* overwrite;
        const char* shown;
        bool checked;
    } cases[] = {
        {"listed target", true, "b_lib", "TRUE", "b_lib", true},
        {"unlisted target", true, "closed_lib", "false", "a_lib", false},
        {"target in another case", true, "B_LIB", "tRUE", "a_lib", true},
        {"no library open", false, "gone_lib", "1", "", false},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        const QStringList libraries = {"a_lib", "b_lib", "c_lib"};
        if (!row.librariesOpen)
            host.setLibraries({});
        setGeneral(OptionName::TargetLib, row.target);
        setGeneral(OptionName::OverwriteDesigns, row.overwrite);
        const Sets before = sets(options);
        ASSERT_TRUE(QFile(file).open(QIODevice::WriteOnly)); // an empty file from an earlier run

        open();
        EXPECT_EQ(listed(), row.librariesOpen ? libraries : QStringList());
        EXPECT_EQ(comboBox()->currentText(), QString::fromUtf8(row.shown));
        EXPECT_EQ(lineEdit()->text(), QStringLiteral("Local_Components_lib"));
        EXPECT_EQ(checkBox()->isChecked(), row.checked);
        EXPECT_EQ(sets(options), before);
        EXPECT_EQ(fileSets(), before);

        // The form's own accept() comes first: the dialog never finishes rejected.
        QSignalSpy finished(dialog.get(), &QDialog::finished);
        click(QDialogButtonBox::Ok);
        ASSERT_EQ(finished.count(), 2);
        EXPECT_EQ(finished.first().first(), QDialog::Accepted);
        EXPECT_EQ(general(OptionName::TargetLib), QString::fromUtf8(row.shown));
        EXPECT_EQ(fileSets(), sets(options));
    }
}

TEST_F(KivaSettingsDialogTest, EveryKeystrokeInTheExclusionRefillsTheListAndTargetsItsFirstEntry)
{
    open();
    const QString tip = options.general().get_option_tip(QLatin1String(OptionName::ExcludeLibrary));
    const struct
    {
        Qt::Key key;
        const char* excluded;
        QStringList listed;
    } steps[] = {
        {Qt::Key_X, "Local_Components_libx", {"Local_Components_lib", "a_lib", "b_lib", "c_lib"}},
        {Qt::Key_Backspace, "Local_Components_lib", {"a_lib", "b_lib", "c_lib"}},
    };
    QTest::keyClick(lineEdit(), Qt::Key_End);
    for (const auto& step : steps) {
        SCOPED_TRACE(step.excluded);
        comboBox()->setCurrentIndex(comboBox()->count() - 1);
        ASSERT_EQ(general(OptionName::TargetLib), QStringLiteral("c_lib"));
        QTest::keyClick(lineEdit(), step.key);
        EXPECT_EQ(listed(), step.listed);
        EXPECT_EQ(comboBox()->currentIndex(), 0);
        EXPECT_EQ(general(OptionName::TargetLib), step.listed.front());
        EXPECT_EQ(general(OptionName::ExcludeLibrary), QString::fromUtf8(step.excluded));
        EXPECT_EQ(options.general().get_option_tip(QLatin1String(OptionName::ExcludeLibrary)), tip);
    }
}

// Cancel takes back the changes from the file written on opening; the form's
// own connection to reject() closes the dialog first, so it finishes twice.
TEST_F(KivaSettingsDialogTest, TogglingOverwriteChangesBothOptionsInTheirOwnSpellingUntilCancel)
{
    open();
    const Sets before = sets(options);
    for (const auto& [general, iff] :
         {std::pair("true", "TRUE"), std::pair("false", "FALSE"), std::pair("true", "TRUE")}) {
        SCOPED_TRACE(general);
        QTest::keyClick(checkBox(), Qt::Key_Space);
        EXPECT_EQ(this->general(OptionName::OverwriteDesigns), QLatin1String(general));
        EXPECT_EQ(this->iff(OptionName::ImportOverwriteExistingDesign), QLatin1String(iff));
    }
    QSignalSpy finished(dialog.get(), &QDialog::finished);
    click(QDialogButtonBox::Cancel);
    EXPECT_EQ(finished.count(), 2);
    EXPECT_EQ(dialog->result(), QDialog::Rejected);
    EXPECT_EQ(sets(options), before);
    EXPECT_EQ(fileSets(), before);
}

TEST_F(KivaSettingsDialogTest, HelpShowsTheBareTextInTheHostInformationWindow)
{
    open();
    ASSERT_TRUE(QMetaObject::invokeMethod(dialog.get(), "help"));
    const auto calls = host.calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].function, "de_info");
    EXPECT_EQ(calls[0].args,
              std::vector<BRIOValue>{BRIOValue("Tessel Settings Help button clicked")});
}

// Every text is asked for in the form's translation context.
TEST_F(KivaSettingsDialogTest, FormHoldsTheNamedWidgetsAndTranslatedTexts)
{
    ContextTranslator translator;
    QCoreApplication::installTranslator(&translator);
    open();
    QCoreApplication::removeTranslator(&translator);
    const QString context = QStringLiteral("KivaUISettingsDialog|");
    EXPECT_EQ(dialog->objectName(), QStringLiteral("KivaUISettingsDialog"));
    EXPECT_EQ(dialog->windowTitle(), context + "Tessel Settings");

    auto* tabs = widget<QTabWidget>("tabWidget");
    ASSERT_EQ(tabs->count(), 2);
    EXPECT_EQ(tabs->currentIndex(), 0);
    EXPECT_EQ(tabs->tabText(0), context + "General Options");
    EXPECT_EQ(tabs->tabText(1), context + "IFF Options");
    EXPECT_TRUE(tabs->widget(1)->findChildren<QWidget*>().isEmpty());

    auto* layout = widget<QFormLayout>("formLayout");
    const char* rows[][3] = {
        {"labelTargetLibrary", "Import Target Library", "comboBoxTargetLibrary"},
        {"labelExcludeLibrary", "Exclude from Target Library List", "lineEditExcludeLibrary"},
        {"labelOverwriteDesigns", "Overwrite Designs on Import", "checkBoxOverwriteDesigns"}};
    for (int row = 0; row < 3; ++row) {
        SCOPED_TRACE(rows[row][0]);
        auto* label = widget<QLabel>(rows[row][0]);
        EXPECT_EQ(label->text(), context + rows[row][1]);
        EXPECT_EQ(layout->itemAt(row, QFormLayout::LabelRole)->widget(), label);
        EXPECT_EQ(layout->itemAt(row, QFormLayout::FieldRole)->widget(),
                  widget<QWidget>(rows[row][2]));
    }
    EXPECT_TRUE(checkBox()->text().isEmpty());
    EXPECT_EQ(widget<QDialogButtonBox>("buttonBox")->standardButtons(),
              QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
}

// Within the fixed size every text shows from its beginning, nothing is
// clipped, and each control tells its option's tip; leaves a picture of what
// the user sees, for people to look at.
TEST_F(KivaSettingsDialogTest, DefaultDialogShowsEveryTextWholeWithTheTipsAsToolTips)
{
    host.setLibraries({"Local_Components_lib", "rflib", "tessel_library_for_imports"});
    options.set_options_to_default();
    open();
    EXPECT_EQ(comboBox()->currentText(), QStringLiteral("rflib"));
    EXPECT_EQ(lineEdit()->cursorPosition(), 0);
    EXPECT_EQ(lineEdit()->text(), QStringLiteral("Local_Components_lib"));

    const QFontMetrics comboMetrics(comboBox()->font());
    for (int index = 0; index < comboBox()->count(); ++index) {
        SCOPED_TRACE(comboBox()->itemText(index).toStdString());
        EXPECT_GE(comboBox()->view()->minimumWidth(),
                  comboMetrics.horizontalAdvance(comboBox()->itemText(index)));
    }
    for (QLabel* label : dialog->findChildren<QLabel*>()) {
        SCOPED_TRACE(label->objectName().toStdString());
        EXPECT_GE(label->height(), label->heightForWidth(label->width()));
        EXPECT_GE(label->width(), label->minimumSizeHint().width());
    }

    const std::pair<QWidget*, const char*> tips[] = {
        {comboBox(), "Import designs into this library"},
        {lineEdit(), "Exclude this library from the list of available libraries"},
        {checkBox(), "Overwrite existing cells on design import"}};
    for (const auto& [control, tip] : tips) {
        SCOPED_TRACE(tip);
        EXPECT_EQ(control->toolTip(), QLatin1String(tip));
    }

    EXPECT_EQ(widget<QWidget>("formLayoutWidget")->geometry(), QRect(0, 0, 351, 201));
    const QImage picture = dialog->grab().toImage();
    ASSERT_EQ(picture.size(), QSize(376, 275) * picture.devicePixelRatio());
    EXPECT_TRUE(picture.save(QStringLiteral(KIVA_DIALOG_PNG), "PNG")) << KIVA_DIALOG_PNG;
}
