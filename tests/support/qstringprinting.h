#pragma once
// Lets GoogleTest print texts readably in failure messages.

#include <ostream>

#include <QString>

inline void PrintTo(const QString& text, std::ostream* out)
{
    *out << '"' << text.toStdString() << '"';
}
