#pragma once
// The settings dialog's widget layout, in the shape of a Designer form: the
// owning dialog calls setupUi() once and reaches the widgets through the
// members. The widgets belong to the dialog.

class QComboBox;
class QCheckBox;
class QDialog;
class QDialogButtonBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QTabWidget;
class QVBoxLayout;
class QWidget;

namespace Ui {

class KivaUISettingsDialog
{
public:
    QVBoxLayout* verticalLayout = nullptr;
    QTabWidget* tabWidget = nullptr;
    QWidget* generalOptionsTab = nullptr;
    QWidget* formLayoutWidget = nullptr;
    QFormLayout* formLayout = nullptr;
    QLabel* labelTargetLibrary = nullptr;
    QComboBox* comboBoxTargetLibrary = nullptr;
    QLabel* labelExcludeLibrary = nullptr;
    QLineEdit* lineEditExcludeLibrary = nullptr;
    QLabel* labelOverwriteDesigns = nullptr;
    QCheckBox* checkBoxOverwriteDesigns = nullptr;
    QWidget* iffOptionsTab = nullptr;
    QDialogButtonBox* buttonBox = nullptr;

    // Builds the widgets on `dialog`, connects the button box to accept() and
    // reject(), and connects slots by name.
    void setupUi(QDialog* dialog);
    // Sets every visible text, translated in the context "KivaUISettingsDialog".
    void retranslateUi(QDialog* dialog);
};

} // namespace Ui
