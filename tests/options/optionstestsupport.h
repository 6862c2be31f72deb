#pragma once
// Small helpers shared by the option tests.

#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include <QByteArray>
#include <QLocale>
#include <QString>
#include <QStringList>

namespace Tessel {
class Options;
}

// Lets GoogleTest print texts readably in failure messages.
void PrintTo(const QString& text, std::ostream* out);

namespace OptionsTestSupport {

// name, value, tip
using Record = std::tuple<QString, QString, QString>;

std::vector<Record> records(const Tessel::Options& options);
std::vector<QString> names(const Tessel::Options& options);

QByteArray readFile(const QString& path);
void writeFile(const QString& path, const QByteArray& bytes);
QString dataPath(const char* name);

// The lines of an options file, each element's attributes sorted by name, so
// that two files compare equal exactly when they differ at most in attribute
// order inside an element. A last empty entry stands for a final line end.
QStringList withSortedAttributes(const QByteArray& text);

// Switches the C library and Qt to a locale with a decimal comma for the
// lifetime of the object, when the machine has one (the Qt default is always
// switched); the previous locales come back on destruction.
class CommaLocale
{
public:
    CommaLocale();
    ~CommaLocale();
    CommaLocale(const CommaLocale&) = delete;
    CommaLocale& operator=(const CommaLocale&) = delete;

    // Name of the C library locale in force, or empty when none was found.
    const std::string& cLocaleName() const { return m_cLocaleName; }

private:
    std::string m_previousNumeric;
    QLocale m_previousDefault;
    std::string m_cLocaleName;
};

// Collects every Qt message (warnings included) while it lives, so that a test
// can show that nothing was said.
class MessageRecorder
{
public:
    MessageRecorder();
    ~MessageRecorder();
    MessageRecorder(const MessageRecorder&) = delete;
    MessageRecorder& operator=(const MessageRecorder&) = delete;

    QStringList messages() const;
};

} // namespace OptionsTestSupport
