#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFile>
#include <QFormLayout>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QMetaMethod>
#include <QPixmap>
#include <QPushButton>
#include <QSignalSpy>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QTranslator>
#include <QVBoxLayout>

#include <gtest/gtest.h>

#include "fakehost.h"
#include "options/option.h"
#include "options/optionnames.h"
#include "options/tesseloptions.h"
#include "ui/kivasettingsdialog.h"
#include "ui/kivauisettingsdialog.h"

namespace OptionName = Tessel::OptionName;

void PrintTo(const QString& text, std::ostream* out)
{
    *out << '"' << text.toStdString() << '"';
}

namespace {

using Record = std::tuple<QString, QString, QString>;
using Records = std::vector<Record>;

Records records(const Tessel::Options& options)
{
    Records result;
    for (auto it = options.get_option_begin(); it != options.get_option_end(); ++it)
        result.emplace_back((*it)->get_name(), (*it)->get_value(), (*it)->get_tip());
    return result;
}

struct Snapshot
{
    Records general;
    Records iff;
    bool operator==(const Snapshot& other) const
    {
        return general == other.general && iff == other.iff;
    }
};

Snapshot snapshot(Tessel::TesselOptions& options)
{
    return {records(options.general()), records(options.iff())};
}

// What a fresh load of the options file gives.
Snapshot fileSnapshot(const std::string& fileName)
{
    Tessel::TesselOptions fromFile;
    fromFile.set_option_file_name(fileName);
    fromFile.load();
    return snapshot(fromFile);
}

QByteArray fileBytes(const std::string& fileName)
{
    QFile file(QString::fromStdString(fileName));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QStringList items(const QComboBox* comboBox)
{
    QStringList result;
    for (int i = 0; i < comboBox->count(); ++i)
        result << comboBox->itemText(i);
    return result;
}

// Tags every translated text with its context, to show which context is asked.
class ContextTranslator : public QTranslator
{
public:
    QString translate(const char* context, const char* sourceText, const char*, int) const override
    {
        return QStringLiteral("%1|%2").arg(QLatin1String(context), QString::fromUtf8(sourceText));
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
        options.set_option_file_name(dir.filePath(QStringLiteral("Tessel.opt")).toStdString());
        options.set_options_to_default();
    }

    void open()
    {
        dialog = std::make_unique<KivaSettingsDialog>(options);
        dialog->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(dialog.get(), 5000));
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
    QPushButton* button(QDialogButtonBox::StandardButton which) const
    {
        return widget<QDialogButtonBox>("buttonBox")->button(which);
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

    // Edits every control as a user would: box ticked, exclusion extended by
    // "x" (which refills the list), then the last library chosen.
    void editEveryControl()
    {
        QTest::keyClick(checkBox(), Qt::Key_Space);
        QTest::keyClick(lineEdit(), Qt::Key_End);
        QTest::keyClicks(lineEdit(), QStringLiteral("x"));
        QTest::keyClick(comboBox(), Qt::Key_End);
        ASSERT_EQ(general(OptionName::TargetLib), QStringLiteral("c_lib"));
        ASSERT_EQ(general(OptionName::ExcludeLibrary), QStringLiteral("Local_Components_libx"));
        ASSERT_EQ(general(OptionName::OverwriteDesigns), QStringLiteral("true"));
    }

    FakeHost host;
    QTemporaryDir dir;
    Tessel::TesselOptions options;
    std::unique_ptr<KivaSettingsDialog> dialog;
};

TEST_F(KivaSettingsDialogTest, OpeningShowsTheOptionsSavesThemAndChangesNone)
{
    setGeneral(OptionName::TargetLib, "b_lib");
    setGeneral(OptionName::OverwriteDesigns, "TRUE");
    const Snapshot before = snapshot(options);
    // A file from an earlier run, different from memory: opening replaces it.
    QFile stale(dir.filePath(QStringLiteral("Tessel.opt")));
    ASSERT_TRUE(stale.open(QIODevice::WriteOnly));
    stale.write("<TesselOptions><GeneralOptions/></TesselOptions>");
    stale.close();

    open();
    EXPECT_EQ(items(comboBox()), (QStringList{"a_lib", "b_lib", "c_lib"}));
    EXPECT_EQ(comboBox()->currentText(), QStringLiteral("b_lib"));
    EXPECT_EQ(lineEdit()->text(), QStringLiteral("Local_Components_lib"));
    EXPECT_TRUE(checkBox()->isChecked());
    EXPECT_TRUE(snapshot(options) == before);
    EXPECT_TRUE(fileSnapshot(options.get_option_file_name()) == before);
}

TEST_F(KivaSettingsDialogTest, OverwriteBoxFollowsTheOptionInAnyCase)
{
    const struct
    {
        const char* value;
        bool checked;
    } cases[] = {{"true", true},   {"TRUE", true}, {"tRUE", true},
                 {"false", false}, {"1", false},   {"", false}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.value);
        setGeneral(OptionName::OverwriteDesigns, row.value);
        open();
        EXPECT_EQ(checkBox()->isChecked(), row.checked);
        EXPECT_EQ(general(OptionName::OverwriteDesigns), QString::fromUtf8(row.value));
        EXPECT_EQ(iff(OptionName::ImportOverwriteExistingDesign), QStringLiteral("FALSE"));
    }
}

TEST_F(KivaSettingsDialogTest, UnlistedTargetLibraryStaysUntilOkStoresTheFirstItem)
{
    // The match is exact, so another letter case names no listed library either.
    for (const char* target : {"closed_lib", "C_LIB"}) {
        SCOPED_TRACE(target);
        setGeneral(OptionName::TargetLib, target);
        open();
        EXPECT_EQ(comboBox()->currentText(), QStringLiteral("a_lib"));
        EXPECT_EQ(general(OptionName::TargetLib), QString::fromUtf8(target));

        QTest::mouseClick(button(QDialogButtonBox::Ok), Qt::LeftButton);
        EXPECT_EQ(general(OptionName::TargetLib), QStringLiteral("a_lib"));
        EXPECT_EQ(fileSnapshot(options.get_option_file_name()).general, records(options.general()));
    }
}

TEST_F(KivaSettingsDialogTest, EveryKeystrokeInTheExclusionRefillsTheListAndTargetsItsFirstEntry)
{
    setGeneral(OptionName::TargetLib, "c_lib");
    open();
    const QString tip = options.general().get_option_tip(QLatin1String(OptionName::ExcludeLibrary));

    const struct
    {
        const char* name;
        std::function<void(QLineEdit*)> type;
        const char* excluded;
        QStringList listed;
    } steps[] = {
        {"a key appended",
         [](QLineEdit* edit) {
             QTest::keyClick(edit, Qt::Key_End);
             QTest::keyClick(edit, Qt::Key_X);
         },
         "Local_Components_libx",
         {"Local_Components_lib", "a_lib", "b_lib", "c_lib"}},
        {"backspace",
         [](QLineEdit* edit) { QTest::keyClick(edit, Qt::Key_Backspace); },
         "Local_Components_lib",
         {"a_lib", "b_lib", "c_lib"}},
        {"retyped to exclude another",
         [](QLineEdit* edit) {
             edit->selectAll();
             QTest::keyClicks(edit, QStringLiteral("a_lib"));
         },
         "a_lib",
         {"Local_Components_lib", "b_lib", "c_lib"}},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.name);
        comboBox()->setCurrentIndex(comboBox()->count() - 1);
        step.type(lineEdit());
        EXPECT_EQ(items(comboBox()), step.listed);
        EXPECT_EQ(comboBox()->currentIndex(), 0);
        EXPECT_EQ(general(OptionName::TargetLib), step.listed.front());
        EXPECT_EQ(general(OptionName::ExcludeLibrary), QString::fromUtf8(step.excluded));
        EXPECT_EQ(options.general().get_option_tip(QLatin1String(OptionName::ExcludeLibrary)), tip);
    }
}

TEST_F(KivaSettingsDialogTest, ExcludingTheOnlyLibraryEmptiesTheTarget)
{
    host.setLibraries({"only_lib"});
    setGeneral(OptionName::TargetLib, "only_lib");
    setGeneral(OptionName::ExcludeLibrary, "");
    open();
    QTest::keyClicks(lineEdit(), QStringLiteral("only_lib"));
    EXPECT_EQ(comboBox()->count(), 0);
    EXPECT_EQ(general(OptionName::TargetLib), QString());
}

TEST_F(KivaSettingsDialogTest, TogglingOverwriteChangesBothOptionsInTheirOwnSpelling)
{
    open();
    const QString generalTip =
        options.general().get_option_tip(QLatin1String(OptionName::OverwriteDesigns));
    const Snapshot before = snapshot(options);

    const struct
    {
        const char* name;
        const char* general;
        const char* iff;
    } steps[] = {{"ticked", "true", "TRUE"}, {"cleared", "false", "FALSE"}};
    for (const auto& step : steps) {
        SCOPED_TRACE(step.name);
        QTest::keyClick(checkBox(), Qt::Key_Space);
        EXPECT_EQ(general(OptionName::OverwriteDesigns), QString::fromUtf8(step.general));
        EXPECT_EQ(iff(OptionName::ImportOverwriteExistingDesign), QString::fromUtf8(step.iff));
        EXPECT_EQ(options.general().get_option_tip(QLatin1String(OptionName::OverwriteDesigns)),
                  generalTip);
    }
    // Back where it started, nothing else was touched on the way.
    EXPECT_TRUE(snapshot(options) == before);
}

TEST_F(KivaSettingsDialogTest, OkSavesTheEditsAndAccepts)
{
    open();
    editEveryControl();
    const Snapshot edited = snapshot(options);
    QSignalSpy accepted(dialog.get(), &QDialog::accepted);

    QTest::mouseClick(button(QDialogButtonBox::Ok), Qt::LeftButton);
    EXPECT_EQ(dialog->result(), QDialog::Accepted);
    EXPECT_FALSE(dialog->isVisible());
    EXPECT_TRUE(snapshot(options) == edited);
    EXPECT_TRUE(fileSnapshot(options.get_option_file_name()) == edited);
    // The form's own accept() runs first, then ok() accepts after saving.
    EXPECT_EQ(accepted.count(), 2);
}

TEST_F(KivaSettingsDialogTest, OkWithoutWritableLibrariesStoresAnEmptyTarget)
{
    host.setLibraries({});
    setGeneral(OptionName::TargetLib, "gone_lib");
    open();
    EXPECT_EQ(comboBox()->count(), 0);
    QTest::mouseClick(button(QDialogButtonBox::Ok), Qt::LeftButton);
    EXPECT_EQ(general(OptionName::TargetLib), QString());
    EXPECT_EQ(fileSnapshot(options.get_option_file_name()).general, records(options.general()));
}

TEST_F(KivaSettingsDialogTest, CancelRestoresMemoryAndFileToTheirStateAtOpening)
{
    setGeneral(OptionName::TargetLib, "b_lib");
    const Snapshot atOpening = snapshot(options);
    open();
    const QByteArray fileAtOpening = fileBytes(options.get_option_file_name());
    editEveryControl();
    ASSERT_EQ(iff(OptionName::ImportOverwriteExistingDesign), QStringLiteral("TRUE"));

    QTest::mouseClick(button(QDialogButtonBox::Cancel), Qt::LeftButton);
    EXPECT_EQ(dialog->result(), QDialog::Rejected);
    EXPECT_FALSE(dialog->isVisible());
    EXPECT_TRUE(snapshot(options) == atOpening);
    EXPECT_EQ(general(OptionName::TargetLib), QStringLiteral("b_lib"));
    EXPECT_EQ(iff(OptionName::ImportOverwriteExistingDesign), QStringLiteral("FALSE"));
    EXPECT_EQ(fileBytes(options.get_option_file_name()), fileAtOpening);
}

TEST_F(KivaSettingsDialogTest, EscapeOrClosingKeepsEditsInMemoryOnlyAndLeavesTheFile)
{
    const struct
    {
        const char* name;
        std::function<void()> leave;
    } ways[] = {
        {"Escape key", [this] { QTest::keyClick(lineEdit(), Qt::Key_Escape); }},
        {"window closed", [this] { dialog->close(); }},
    };
    for (const auto& way : ways) {
        SCOPED_TRACE(way.name);
        options.set_options_to_default();
        open();
        const QByteArray fileAtOpening = fileBytes(options.get_option_file_name());
        editEveryControl();
        const Snapshot edited = snapshot(options);

        way.leave();
        EXPECT_EQ(dialog->result(), QDialog::Rejected);
        EXPECT_FALSE(dialog->isVisible());
        EXPECT_TRUE(snapshot(options) == edited);
        EXPECT_EQ(fileBytes(options.get_option_file_name()), fileAtOpening);
    }
}

TEST_F(KivaSettingsDialogTest, ModalRunEndsWithTheButtonPressed)
{
    const struct
    {
        QDialogButtonBox::StandardButton button;
        int result;
    } cases[] = {{QDialogButtonBox::Ok, QDialog::Accepted},
                 {QDialogButtonBox::Cancel, QDialog::Rejected}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.result);
        KivaSettingsDialog modal(options);
        QTimer::singleShot(0, &modal, [&] {
            QTest::mouseClick(modal.findChild<QDialogButtonBox*>()->button(row.button),
                              Qt::LeftButton);
        });
        // Guard against a dialog that does not close: the run ends anyway.
        QTimer::singleShot(10000, &modal, [&] { modal.done(-1); });
        EXPECT_EQ(modal.exec(), row.result);
    }
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

TEST_F(KivaSettingsDialogTest, FormHoldsTheNamedWidgetsAndTexts)
{
    open();
    EXPECT_EQ(dialog->objectName(), QStringLiteral("KivaUISettingsDialog"));
    EXPECT_EQ(dialog->windowTitle(), QStringLiteral("Tessel Settings"));
    EXPECT_EQ(dialog->size(), QSize(376, 275));
    EXPECT_EQ(dialog->layout(), widget<QVBoxLayout>("verticalLayout"));

    auto* tabs = widget<QTabWidget>("tabWidget");
    ASSERT_EQ(tabs->count(), 2);
    EXPECT_EQ(tabs->currentIndex(), 0);
    EXPECT_EQ(tabs->widget(0), widget<QWidget>("generalOptionsTab"));
    EXPECT_EQ(tabs->tabText(0), QStringLiteral("General Options"));
    EXPECT_EQ(tabs->widget(1), widget<QWidget>("iffOptionsTab"));
    EXPECT_EQ(tabs->tabText(1), QStringLiteral("IFF Options"));
    EXPECT_TRUE(widget<QWidget>("iffOptionsTab")->findChildren<QWidget*>().isEmpty());

    auto* form = widget<QWidget>("formLayoutWidget");
    EXPECT_EQ(form->parentWidget(), widget<QWidget>("generalOptionsTab"));
    EXPECT_EQ(form->geometry(), QRect(0, 0, 351, 201));
    auto* layout = widget<QFormLayout>("formLayout");
    EXPECT_EQ(form->layout(), layout);
    const struct
    {
        const char* label;
        const char* text;
        const char* field;
    } rows[] = {
        {"labelTargetLibrary", "Import Target Library", "comboBoxTargetLibrary"},
        {"labelExcludeLibrary", "Exclude from Target Library List", "lineEditExcludeLibrary"},
        {"labelOverwriteDesigns", "Overwrite Designs on Import", "checkBoxOverwriteDesigns"}};
    for (int row = 0; row < 3; ++row) {
        SCOPED_TRACE(rows[row].label);
        auto* label = widget<QLabel>(rows[row].label);
        EXPECT_EQ(label->text(), QString::fromUtf8(rows[row].text));
        EXPECT_EQ(layout->itemAt(row, QFormLayout::LabelRole)->widget(), label);
        EXPECT_EQ(layout->itemAt(row, QFormLayout::FieldRole)->widget(),
                  widget<QWidget>(rows[row].field));
    }
    EXPECT_TRUE(checkBox()->text().isEmpty());

    auto* buttons = widget<QDialogButtonBox>("buttonBox");
    EXPECT_EQ(buttons->orientation(), Qt::Horizontal);
    EXPECT_EQ(buttons->standardButtons(), QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
}

TEST_F(KivaSettingsDialogTest, FormNamesOnlyAnUnnamedDialog)
{
    const struct
    {
        const char* given;
        const char* expected;
    } cases[] = {{"", "KivaUISettingsDialog"}, {"mine", "mine"}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.given);
        QDialog plain;
        plain.setObjectName(QLatin1String(row.given));
        Ui::KivaUISettingsDialog form;
        form.setupUi(&plain);
        EXPECT_EQ(plain.objectName(), QLatin1String(row.expected));
    }
}

TEST_F(KivaSettingsDialogTest, TextsAreTranslatedInTheFormContext)
{
    ContextTranslator translator;
    QCoreApplication::installTranslator(&translator);
    open();
    QCoreApplication::removeTranslator(&translator);
    EXPECT_EQ(dialog->windowTitle(), QStringLiteral("KivaUISettingsDialog|Tessel Settings"));
    EXPECT_EQ(widget<QLabel>("labelTargetLibrary")->text(),
              QStringLiteral("KivaUISettingsDialog|Import Target Library"));
    EXPECT_EQ(widget<QTabWidget>("tabWidget")->tabText(1),
              QStringLiteral("KivaUISettingsDialog|IFF Options"));
}

TEST_F(KivaSettingsDialogTest, MetaObjectListsTheSignalThenTheSlotsInOrder)
{
    const QMetaObject& meta = KivaSettingsDialog::staticMetaObject;
    std::vector<std::pair<QMetaMethod::MethodType, QByteArray>> methods;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        methods.emplace_back(meta.method(i).methodType(), meta.method(i).methodSignature());
    using M = QMetaMethod;
    EXPECT_EQ(methods, (std::vector<std::pair<QMetaMethod::MethodType, QByteArray>>{
                           {M::Signal, "exclude_library_changed()"},
                           {M::Slot, "ok()"},
                           {M::Slot, "cancel()"},
                           {M::Slot, "help()"},
                           {M::Slot, "update_combo_box_target_library()"},
                           {M::Slot, "update_target_library(int)"},
                           {M::Slot, "update_exclude_library(QString)"},
                           {M::Slot, "update_overwrite_designs(int)"}}));
}

// Leaves a picture of what the user sees, for people to look at.
TEST_F(KivaSettingsDialogTest, DefaultDialogRendersToAPicture)
{
    host.setLibraries({"Local_Components_lib", "rflib", "tessel_lib"});
    options.set_options_to_default();
    open();
    const QImage picture = dialog->grab().toImage();
    ASSERT_EQ(picture.size(), QSize(376, 275) * picture.devicePixelRatio());
    EXPECT_TRUE(picture.save(QStringLiteral(KIVA_DIALOG_PNG), "PNG")) << KIVA_DIALOG_PNG;
    EXPECT_EQ(comboBox()->currentText(), QStringLiteral("rflib"));
}
