#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

// Empty when there is no such file.
QByteArray contentOf(const QString& path);
// With all missing parent directories. Ends the test program when that fails.
void writeFile(const QString& path, const QByteArray& content);
// A shell script as an executable file.
void writeScript(const QString& path, const QByteArray& commands);
// The names in a directory, hidden and dangling ones included, sorted.
QStringList namesIn(const QString& directory);
