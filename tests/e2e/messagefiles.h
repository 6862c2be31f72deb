#pragma once
// Message descriptions for mgc-peer: copies of examples/ (with the files they
// name) and descriptions written by a test, in a temporary folder.

#include <QJsonObject>
#include <QString>
#include <QTemporaryDir>

#include <functional>

class MessageFiles
{
public:
    MessageFiles();

    // The copy of examples/NAME.
    QString example(const QString& name) const;
    // The copy of examples/NAME with `change` applied to its description.
    QString exampleWith(const QString& name, const std::function<void(QJsonObject&)>& change);
    // Writes `description` as NAME.json and returns its path.
    QString write(const QString& name, const QJsonObject& description);
    QString path(const QString& relative) const { return m_dir.filePath(relative); }

private:
    QTemporaryDir m_dir;
};
