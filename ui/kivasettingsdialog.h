#pragma once

#include <memory>
#include <set>
#include <string>

#include <QDialog>

namespace Tessel {
class TesselOptions;
}

namespace Ui {
class KivaUISettingsDialog;
}

// Host preference keys kept beside the dialog; the dialog itself neither reads
// nor writes them.
namespace PreferenceKey {
inline constexpr char LastLibrarySelected[] = "LAST_LIBRARY_SELECTED";
inline constexpr char IncludeLumoLibrariesInOpenDesignDialog[] =
    "INCLUDE_LUMO_LIBRARIES_IN_OPEN_DESIGN_DIALOG";
inline constexpr char IncludeLumoLibrariesInCopyLibraryDialog[] =
    "INCLUDE_LUMO_LIBRARIES_IN_COPY_LIBRARY_DIALOG";
} // namespace PreferenceKey

// The modal settings dialog for the general options. It edits the live options
// in place: every change in a control reaches them at once. Opening saves the
// options file, Ok saves it again, Cancel reloads the state saved on opening;
// Escape or the window's close button only reject, leaving edits in memory.
// Runs on the host's user-interface thread.
class KivaSettingsDialog : public QDialog
{
    Q_OBJECT

public:
    // `options` is not owned and must outlive the dialog.
    KivaSettingsDialog(Tessel::TesselOptions& options, QWidget* parent = nullptr,
                       Qt::WindowFlags flags = Qt::WindowFlags());
    ~KivaSettingsDialog() override;

signals:
    void exclude_library_changed();

public slots:
    void ok();
    void cancel();
    // Tells the host's information window that help was asked for; no button
    // of the form calls it.
    void help();
    // Refills the library list from the host, less ExcludeLibrary.
    void update_combo_box_target_library();
    void update_target_library(int index);
    void update_exclude_library(const QString& exclude_lib);
    void update_overwrite_designs(int state);

private:
    void init_combo_box_target_library(std::set<std::string> libraries);
    void load_options();
    void save_options();
    void update_line_edit_exclude_library();
    // Sets the overwrite box from OverwriteDesigns.
    void update_check_box_close_open_cells();
    // Each control's tool tip is the tip of the option it edits.
    void showTipsAsToolTips();

    std::unique_ptr<Ui::KivaUISettingsDialog> m_ui;
    Tessel::TesselOptions& m_options;
};
