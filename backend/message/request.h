#pragma once

#include <QByteArrayList>
#include <QElapsedTimer>
#include <QHash>
#include <QString>

#include <memory>

namespace server {

// What a client asks: a head, and its body once that has come. Belongs to one thread after the
// other.
struct Request
{
    QByteArray method;
    QByteArray path;                          // decoded, without what follows a "?"
    QHash<QByteArray, QByteArrayList> fields; // by their names in lower case
    QString address; // who asks; behind a trusted proxy, whom the proxy names
    QElapsedTimer timer;
    bool keepsAlive = false;
    bool expectsLeave = false; // to send its body
    qint64 bodyBytes = 0;      // as announced
    QByteArray body;
    std::shared_ptr<void> context; // the application's own

    // All values of that name, whatever its case, separated by commas.
    QByteArray field(const char* name) const
    {
        return fields.value(QByteArray(name).toLower()).join(',');
    }
};
using RequestPtr = std::shared_ptr<Request>;

} // namespace server
