#pragma once

#include <QByteArray>
#include <QString>

// One JSON object per line on standard error, with the time in UTC. Tokens, passwords and bodies
// never get here: requests are logged by their path, without what follows a "?".
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

void request(const Request& request);
void error(const QString& text);
// Leaves errors alone to be logged.
void setQuiet(bool quiet);

} // namespace logging
