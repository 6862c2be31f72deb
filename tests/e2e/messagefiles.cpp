#include "messagefiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

#include <gtest/gtest.h>

#include "hostsession.h"

MessageFiles::MessageFiles()
{
    const QDir examples(E2E::examplesPath());
    const QStringList names = examples.entryList(QDir::Files);
    EXPECT_FALSE(names.isEmpty()) << "no examples in " << examples.path().toStdString();
    for (const QString& name : names)
        EXPECT_TRUE(QFile::copy(examples.filePath(name), m_dir.filePath(name)))
            << "cannot copy " << name.toStdString();
}

QString MessageFiles::example(const QString& name) const
{
    return m_dir.filePath(name);
}

QString MessageFiles::exampleWith(const QString& name,
                                  const std::function<void(QJsonObject&)>& change)
{
    QJsonObject description = QJsonDocument::fromJson(E2E::readFile(example(name))).object();
    change(description);
    return write("changed_" + QFileInfo(name).completeBaseName(), description);
}

QString MessageFiles::write(const QString& name, const QJsonObject& description)
{
    const QString file = m_dir.filePath(name + ".json");
    QFile out(file);
    EXPECT_TRUE(out.open(QIODevice::WriteOnly | QIODevice::Truncate)) << file.toStdString();
    out.write(QJsonDocument(description).toJson());
    return file;
}
