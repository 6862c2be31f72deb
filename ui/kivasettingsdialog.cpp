#include "ui/kivasettingsdialog.h"

#include <QAbstractItemView>
#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFontMetrics>
#include <QLineEdit>
#include <QStringList>
#include <QStyle>

#include <algorithm>
#include <utility>

#include "lumo/brioscript.h"

#include "options/optionnames.h"
#include "options/tesseloptions.h"
#include "ui/kivauisettingsdialog.h"

namespace OptionName = Tessel::OptionName;

KivaSettingsDialog::KivaSettingsDialog(Tessel::TesselOptions& options, QWidget* parent,
                                       Qt::WindowFlags flags)
    : QDialog(parent, flags), m_ui(new Ui::KivaUISettingsDialog), m_options(options)
{
    // The state on opening goes to the file first, so that Cancel can return to it.
    save_options();
    m_ui->setupUi(this);

    // The controls are filled before anything is connected to them, so that
    // filling them changes no option.
    update_combo_box_target_library();
    update_line_edit_exclude_library();
    update_check_box_close_open_cells();
    showTipsAsToolTips();

    connect(m_ui->buttonBox, &QDialogButtonBox::accepted, this, &KivaSettingsDialog::ok);
    connect(m_ui->buttonBox, &QDialogButtonBox::rejected, this, &KivaSettingsDialog::cancel);
    connect(m_ui->comboBoxTargetLibrary, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &KivaSettingsDialog::update_target_library);
    connect(m_ui->lineEditExcludeLibrary, &QLineEdit::textChanged, this,
            &KivaSettingsDialog::update_exclude_library);
    connect(m_ui->checkBoxOverwriteDesigns, &QCheckBox::stateChanged, this,
            &KivaSettingsDialog::update_overwrite_designs);
    connect(this, &KivaSettingsDialog::exclude_library_changed, this,
            &KivaSettingsDialog::update_combo_box_target_library);
}

KivaSettingsDialog::~KivaSettingsDialog() = default;

void KivaSettingsDialog::ok()
{
    // A target library that names no listed library becomes the item shown.
    update_target_library(m_ui->comboBoxTargetLibrary->currentIndex());
    close();
    save_options();
    accept();
}

void KivaSettingsDialog::cancel()
{
    load_options();
    reject();
}

void KivaSettingsDialog::help()
{
    CallBRIO call("de_info");
    call.add_arg(BRIOValue("Tessel Settings Help button clicked"));
    call.execute();
}

void KivaSettingsDialog::update_combo_box_target_library()
{
    Tessel::GeneralOptions& general = m_options.general();
    const std::string excluded =
        general.get_option_value(QLatin1String(OptionName::ExcludeLibrary)).toUtf8().toStdString();
    std::set<std::string> libraries;
    general.get_writable_libraries_except(&libraries, excluded);
    init_combo_box_target_library(libraries);
}

void KivaSettingsDialog::init_combo_box_target_library(std::set<std::string> libraries)
{
    QStringList names;
    for (const std::string& library : libraries)
        names << QString::fromStdString(library);

    // Once connected, clearing and refilling each move the current item, so the
    // target library becomes the first of the new list.
    QComboBox* comboBox = m_ui->comboBoxTargetLibrary;
    comboBox->clear();
    comboBox->addItems(names);
    // The list opens wide enough for every name, however narrow the box,
    // with room for a scroll bar.
    QAbstractItemView* list = comboBox->view();
    const QFontMetrics metrics(list->font());
    int widest = 0;
    for (const QString& name : names)
        widest = std::max(widest, metrics.horizontalAdvance(name));
    list->setMinimumWidth(widest + metrics.averageCharWidth() + 2 * list->frameWidth() +
                          list->style()->pixelMetric(QStyle::PM_ScrollBarExtent));

    const QString target =
        m_options.general().get_option_value(QLatin1String(OptionName::TargetLib));
    const int index = comboBox->findText(target, Qt::MatchExactly | Qt::MatchCaseSensitive);
    if (index >= 0)
        comboBox->setCurrentIndex(index);
}

void KivaSettingsDialog::update_target_library(int index)
{
    Tessel::GeneralOptions& general = m_options.general();
    const QString name = QLatin1String(OptionName::TargetLib);
    const QString library = index < 0 ? QString() : m_ui->comboBoxTargetLibrary->itemText(index);
    general.set_option(name, library, general.get_option_tip(name));
}

void KivaSettingsDialog::update_exclude_library(const QString& exclude_lib)
{
    Tessel::GeneralOptions& general = m_options.general();
    const QString name = QLatin1String(OptionName::ExcludeLibrary);
    general.set_option(name, exclude_lib, general.get_option_tip(name));
    emit exclude_library_changed();
}

void KivaSettingsDialog::update_overwrite_designs(int state)
{
    // Each set keeps its own spelling of a boolean.
    const bool overwrite = state != 0;
    Tessel::GeneralOptions& general = m_options.general();
    const QString generalName = QLatin1String(OptionName::OverwriteDesigns);
    general.set_option(generalName, overwrite ? QStringLiteral("true") : QStringLiteral("false"),
                       general.get_option_tip(generalName));

    Tessel::IFFOptions& iff = m_options.iff();
    const QString iffName = QLatin1String(OptionName::ImportOverwriteExistingDesign);
    iff.set_option(iffName, overwrite ? QStringLiteral("TRUE") : QStringLiteral("FALSE"),
                   iff.get_option_tip(iffName));
}

void KivaSettingsDialog::load_options()
{
    m_options.load();
}

void KivaSettingsDialog::save_options()
{
    m_options.save();
}

void KivaSettingsDialog::update_line_edit_exclude_library()
{
    QLineEdit* lineEdit = m_ui->lineEditExcludeLibrary;
    lineEdit->setText(
        m_options.general().get_option_value(QLatin1String(OptionName::ExcludeLibrary)));
    // A long name is shown from its beginning, not scrolled to its end.
    lineEdit->setCursorPosition(0);
}

void KivaSettingsDialog::update_check_box_close_open_cells()
{
    m_ui->checkBoxOverwriteDesigns->setChecked(
        m_options.general().get_bool_option_value(QLatin1String(OptionName::OverwriteDesigns)));
}

void KivaSettingsDialog::showTipsAsToolTips()
{
    const Tessel::GeneralOptions& general = m_options.general();
    const std::pair<QWidget*, const char*> controls[] = {
        {m_ui->comboBoxTargetLibrary, OptionName::TargetLib},
        {m_ui->lineEditExcludeLibrary, OptionName::ExcludeLibrary},
        {m_ui->checkBoxOverwriteDesigns, OptionName::OverwriteDesigns},
    };
    for (const auto& [control, name] : controls)
        control->setToolTip(general.get_option_tip(QLatin1String(name)));
}
