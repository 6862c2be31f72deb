#include "dialoganswerer.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDir>
#include <QEvent>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineEdit>
#include <QPixmap>
#include <QPushButton>
#include <QTimer>

#include <filesystem>
#include <system_error>

#include "hostoptions.h"
#include "journal.h"
#include "journalrecord.h"
#include "terminal.h"

namespace {

// Every named combo box, line edit and check box of the dialog with what it shows.
QJsonObject controlsOf(const QDialog* dialog)
{
    QJsonObject controls;
    for (const QWidget* widget : dialog->findChildren<QWidget*>()) {
        const QString name = widget->objectName();
        if (name.isEmpty())
            continue;
        if (const auto* comboBox = qobject_cast<const QComboBox*>(widget)) {
            QJsonArray entries;
            for (int index = 0; index < comboBox->count(); ++index)
                entries.append(comboBox->itemText(index));
            controls.insert(
                name, QJsonObject{{"entries", entries}, {"current", comboBox->currentText()}});
        } else if (const auto* lineEdit = qobject_cast<const QLineEdit*>(widget)) {
            controls.insert(name, lineEdit->text());
        } else if (const auto* checkBox = qobject_cast<const QCheckBox*>(widget)) {
            controls.insert(name, checkBox->isChecked());
        }
    }
    return controls;
}

} // namespace

DialogAnswerer::DialogAnswerer(const HostOptions& options, Journal& journal, QObject* parent)
    : QObject(parent), m_options(options), m_journal(journal)
{
}

bool DialogAnswerer::start(std::string* error)
{
    const std::string& folder = m_options.dialogSnapshots;
    std::error_code code;
    if (!folder.empty() && !std::filesystem::create_directories(folder, code) && code) {
        *error = "cannot make the snapshot folder " + folder + ": " + code.message();
        return false;
    }
    qApp->installEventFilter(this);
    return true;
}

bool DialogAnswerer::eventFilter(QObject* watched, QEvent* event)
{
    const QEvent::Type type = event->type();
    if (type == QEvent::Hide) {
        // Modal no longer once its event loop has ended: it is known by having been shown.
        if (m_open.count(watched))
            closed(static_cast<QDialog*>(watched));
        return false;
    }
    if (type != QEvent::Show)
        return false;
    auto* dialog = qobject_cast<QDialog*>(watched);
    if (dialog && dialog->isWindow() && dialog->isModal() && m_open.insert(dialog).second) {
        connect(dialog, &QObject::destroyed, this, &DialogAnswerer::forget, Qt::UniqueConnection);
        // Once the dialog's own event loop runs, as a person would meet it.
        QTimer::singleShot(0, dialog, [this, dialog] { opened(dialog); });
    }
    return false;
}

void DialogAnswerer::opened(QDialog* dialog)
{
    if (!m_open.count(dialog))
        return;
    ++m_shown;
    if (!m_options.dialogSnapshots.empty())
        saveSnapshot(dialog);
    journal(dialog, "opened", nullptr);
    if (m_options.dialogAnswer.empty())
        return;
    for (const auto& [name, value] : m_options.dialogEdits)
        applyEdit(dialog, name, value);
    answer(dialog);
}

void DialogAnswerer::closed(QDialog* dialog)
{
    journal(dialog, "closed", m_answering);
    m_open.erase(dialog);
}

void DialogAnswerer::forget(QObject* dialog)
{
    m_open.erase(dialog);
}

void DialogAnswerer::saveSnapshot(QDialog* dialog)
{
    const QString path = QDir(QString::fromStdString(m_options.dialogSnapshots))
                             .filePath(QStringLiteral("dialog-%1.png").arg(m_shown));
    if (!dialog->grab().save(path, "PNG"))
        reportError("--dialog-snapshot: cannot write " + path.toStdString());
}

void DialogAnswerer::applyEdit(QDialog* dialog, const std::string& name, const std::string& value)
{
    const QString objectName = QString::fromStdString(name);
    const QString text = QString::fromStdString(value);
    const std::string edit = "--dialog-edit " + name + "=" + value + ": ";
    if (auto* comboBox = dialog->findChild<QComboBox*>(objectName)) {
        const int index = comboBox->findText(text, Qt::MatchExactly | Qt::MatchCaseSensitive);
        if (index < 0)
            return reportError(edit + "the combo box has no such entry");
        comboBox->setCurrentIndex(index);
    } else if (auto* lineEdit = dialog->findChild<QLineEdit*>(objectName)) {
        lineEdit->setText(text);
    } else if (auto* checkBox = dialog->findChild<QCheckBox*>(objectName)) {
        if (value != "true" && value != "false")
            return reportError(edit + "a check box takes true or false");
        checkBox->setChecked(value == "true");
    } else {
        reportError(edit + "the dialog \"" + dialog->windowTitle().toStdString() +
                    "\" has no combo box, line edit or check box of that name");
    }
}

void DialogAnswerer::answer(QDialog* dialog)
{
    const std::string& how = m_options.dialogAnswer;
    m_answering = how.c_str();
    if (how == "close") {
        // What the window's close button sends: a close event, so reject() only.
        dialog->close();
    } else {
        auto* buttons = dialog->findChild<QDialogButtonBox*>();
        QPushButton* button =
            buttons ? buttons->button(how == "ok" ? QDialogButtonBox::Ok : QDialogButtonBox::Cancel)
                    : nullptr;
        if (button) {
            button->click();
        } else {
            reportError("--dialogs " + how + ": the dialog \"" +
                        dialog->windowTitle().toStdString() + "\" has no such button; closed");
            dialog->close();
        }
    }
    m_answering = nullptr;
}

void DialogAnswerer::journal(QDialog* dialog, const char* when, const char* answer)
{
    const QByteArray controls = QJsonDocument(controlsOf(dialog)).toJson(QJsonDocument::Compact);
    JournalRecord record("dialog");
    record.add("when", when).add("answer", answer);
    m_journal.write(record.addJson("controls", controls.toStdString()));
}

void DialogAnswerer::reportError(const std::string& text)
{
    m_failed = true;
    m_journal.write(JournalRecord("dialog_error").add("text", text));
    Terminal::printMessage(text);
}
