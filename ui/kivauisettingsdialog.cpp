#include "ui/kivauisettingsdialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMetaObject>
#include <QTabWidget>
#include <QVBoxLayout>
#include <QWidget>

namespace Ui {

namespace {
// Labels wrap within this width, leaving the fields room for a library name.
constexpr int LabelWidth = 130;
} // namespace

void KivaUISettingsDialog::setupUi(QDialog* dialog)
{
    if (dialog->objectName().isEmpty())
        dialog->setObjectName(QStringLiteral("KivaUISettingsDialog"));
    dialog->resize(376, 275);

    verticalLayout = new QVBoxLayout(dialog);
    verticalLayout->setObjectName(QStringLiteral("verticalLayout"));
    tabWidget = new QTabWidget(dialog);
    tabWidget->setObjectName(QStringLiteral("tabWidget"));

    generalOptionsTab = new QWidget();
    generalOptionsTab->setObjectName(QStringLiteral("generalOptionsTab"));
    formLayoutWidget = new QWidget(generalOptionsTab);
    formLayoutWidget->setObjectName(QStringLiteral("formLayoutWidget"));
    formLayoutWidget->setGeometry(QRect(0, 0, 351, 201));
    formLayout = new QFormLayout(formLayoutWidget);
    formLayout->setObjectName(QStringLiteral("formLayout"));
    formLayout->setContentsMargins(0, 0, 0, 0);

    labelTargetLibrary = new QLabel(formLayoutWidget);
    labelTargetLibrary->setObjectName(QStringLiteral("labelTargetLibrary"));
    labelTargetLibrary->setWordWrap(true);
    labelTargetLibrary->setFixedWidth(LabelWidth);
    formLayout->setWidget(0, QFormLayout::LabelRole, labelTargetLibrary);
    comboBoxTargetLibrary = new QComboBox(formLayoutWidget);
    comboBoxTargetLibrary->setObjectName(QStringLiteral("comboBoxTargetLibrary"));
    formLayout->setWidget(0, QFormLayout::FieldRole, comboBoxTargetLibrary);

    labelExcludeLibrary = new QLabel(formLayoutWidget);
    labelExcludeLibrary->setObjectName(QStringLiteral("labelExcludeLibrary"));
    labelExcludeLibrary->setWordWrap(true);
    labelExcludeLibrary->setFixedWidth(LabelWidth);
    formLayout->setWidget(1, QFormLayout::LabelRole, labelExcludeLibrary);
    lineEditExcludeLibrary = new QLineEdit(formLayoutWidget);
    lineEditExcludeLibrary->setObjectName(QStringLiteral("lineEditExcludeLibrary"));
    formLayout->setWidget(1, QFormLayout::FieldRole, lineEditExcludeLibrary);

    labelOverwriteDesigns = new QLabel(formLayoutWidget);
    labelOverwriteDesigns->setObjectName(QStringLiteral("labelOverwriteDesigns"));
    labelOverwriteDesigns->setWordWrap(true);
    labelOverwriteDesigns->setFixedWidth(LabelWidth);
    formLayout->setWidget(2, QFormLayout::LabelRole, labelOverwriteDesigns);
    checkBoxOverwriteDesigns = new QCheckBox(formLayoutWidget);
    checkBoxOverwriteDesigns->setObjectName(QStringLiteral("checkBoxOverwriteDesigns"));
    formLayout->setWidget(2, QFormLayout::FieldRole, checkBoxOverwriteDesigns);

    tabWidget->addTab(generalOptionsTab, QString());
    iffOptionsTab = new QWidget();
    iffOptionsTab->setObjectName(QStringLiteral("iffOptionsTab"));
    tabWidget->addTab(iffOptionsTab, QString());
    verticalLayout->addWidget(tabWidget);

    buttonBox = new QDialogButtonBox(dialog);
    buttonBox->setObjectName(QStringLiteral("buttonBox"));
    buttonBox->setOrientation(Qt::Horizontal);
    buttonBox->setStandardButtons(QDialogButtonBox::Cancel | QDialogButtonBox::Ok);
    verticalLayout->addWidget(buttonBox);

    retranslateUi(dialog);
    QObject::connect(buttonBox, &QDialogButtonBox::accepted, dialog, &QDialog::accept);
    QObject::connect(buttonBox, &QDialogButtonBox::rejected, dialog, &QDialog::reject);

    tabWidget->setCurrentIndex(0);
    QMetaObject::connectSlotsByName(dialog);
}

void KivaUISettingsDialog::retranslateUi(QDialog* dialog)
{
    dialog->setWindowTitle(
        QCoreApplication::translate("KivaUISettingsDialog", "Tessel Settings", nullptr));
    labelTargetLibrary->setText(
        QCoreApplication::translate("KivaUISettingsDialog", "Import Target Library", nullptr));
    labelExcludeLibrary->setText(QCoreApplication::translate(
        "KivaUISettingsDialog", "Exclude from Target Library List", nullptr));
    labelOverwriteDesigns->setText(QCoreApplication::translate(
        "KivaUISettingsDialog", "Overwrite Designs on Import", nullptr));
    checkBoxOverwriteDesigns->setText(QString());
    tabWidget->setTabText(
        tabWidget->indexOf(generalOptionsTab),
        QCoreApplication::translate("KivaUISettingsDialog", "General Options", nullptr));
    tabWidget->setTabText(
        tabWidget->indexOf(iffOptionsTab),
        QCoreApplication::translate("KivaUISettingsDialog", "IFF Options", nullptr));
}

} // namespace Ui
