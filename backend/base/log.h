#pragma once

#include <QByteArray>
#include <QString>

#include <exception>

// One JSON object per line, with the time in UTC: errors on standard error, requests where
// openAccessLog() says. Tokens, passwords and bodies never get here: requests are logged by their
// path, without what follows a "?".
namespace logging {

struct Request
{
    QString address;
    QByteArray method;
    QByteArray path;
    int status = 0;
    qint64 bytes = 0;
    qint64 microseconds = 0;
};

// A file that lines are appended to, or "-" for standard error. Without it no requests are logged.
// Throws Fault when the file cannot be written.
void openAccessLog(const QString& path);
// The same name anew, after the file was moved away. Throws Fault, and goes on with what it has.
void reopenAccessLog();
void request(const Request& request);
void error(const QString& text);
// Also when there is no memory to say it in: what ends in a log must not end the server.
void error(const std::exception& error) noexcept;

} // namespace logging
