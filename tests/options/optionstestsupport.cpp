#include "optionstestsupport.h"

#include <algorithm>
#include <clocale>

#include <QFile>
#include <QLocale>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include "options/option.h"
#include "options/options.h"

void PrintTo(const QString& text, std::ostream* out)
{
    *out << '"' << text.toStdString() << '"';
}

namespace OptionsTestSupport {

std::vector<Record> records(const Tessel::Options& options)
{
    std::vector<Record> result;
    for (auto it = options.get_option_begin(); it != options.get_option_end(); ++it)
        result.emplace_back((*it)->get_name(), (*it)->get_value(), (*it)->get_tip());
    return result;
}

std::vector<QString> names(const Tessel::Options& options)
{
    std::vector<QString> result;
    for (auto it = options.get_option_begin(); it != options.get_option_end(); ++it)
        result.push_back((*it)->get_name());
    return result;
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
    return file.readAll();
}

void writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate)) << path.toStdString();
    ASSERT_EQ(file.write(bytes), bytes.size());
}

QString dataPath(const char* name)
{
    return QStringLiteral(KIVA_OPTIONS_TEST_DATA "/") + QLatin1String(name);
}

QStringList withSortedAttributes(const QByteArray& text)
{
    static const QRegularExpression element(
        QStringLiteral(R"(^( *<[A-Za-z_]+)((?: [A-Za-z_]+="[^"]*")+)(/?>)$)"));
    static const QRegularExpression attribute(QStringLiteral(R"( [A-Za-z_]+="[^"]*")"));
    QStringList lines = QString::fromUtf8(text).split(QLatin1Char('\n'));
    for (QString& line : lines) {
        const QRegularExpressionMatch match = element.match(line);
        if (!match.hasMatch())
            continue;
        QStringList attributes;
        auto it = attribute.globalMatch(match.captured(2));
        while (it.hasNext())
            attributes << it.next().captured(0);
        attributes.sort();
        line = match.captured(1) + attributes.join(QString()) + match.captured(3);
    }
    return lines;
}

namespace {

QStringList& recordedMessages()
{
    static QStringList messages;
    return messages;
}

void recordMessage(QtMsgType, const QMessageLogContext&, const QString& text)
{
    recordedMessages() << text;
}

} // namespace

MessageRecorder::MessageRecorder()
{
    recordedMessages().clear();
    qInstallMessageHandler(recordMessage);
}

MessageRecorder::~MessageRecorder()
{
    qInstallMessageHandler(nullptr);
}

QStringList MessageRecorder::messages() const
{
    return recordedMessages();
}

CommaLocale::CommaLocale()
{
    m_previousNumeric = std::setlocale(LC_NUMERIC, nullptr);
    for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "de_DE", "fr_FR.UTF-8", "fr_FR.utf8",
                             "nl_NL.UTF-8", "it_IT.UTF-8", "es_ES.UTF-8", "ru_RU.UTF-8"}) {
        if (std::setlocale(LC_NUMERIC, name) && *std::localeconv()->decimal_point == ',') {
            m_cLocaleName = name;
            break;
        }
    }
    if (m_cLocaleName.empty())
        std::setlocale(LC_NUMERIC, m_previousNumeric.c_str());
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
}

CommaLocale::~CommaLocale()
{
    std::setlocale(LC_NUMERIC, m_previousNumeric.c_str());
    QLocale::setDefault(m_previousDefault);
}

} // namespace OptionsTestSupport
