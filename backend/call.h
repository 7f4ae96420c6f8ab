#pragma once

#include "backend/accounts.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <utility>

// One request, as the handlers see it: nothing of the HTTP library reaches them.
struct Call
{
    QByteArray method; // a HEAD arrives as GET
    QByteArray path;
    QByteArray token;       // of "Authorization: Bearer ..."
    QByteArray contentType; // without parameters, in lower case
    QByteArray ifNoneMatch;
    qint64 bodyBytes = 0; // as announced
    QByteArray body;
    QString address; // who asks
    // Set for routes that need a session.
    Account account;
};

// What goes back: a body, or a file of the store by its path.
struct Reply
{
    using Header = std::pair<QByteArray, QByteArray>;

    int status = 200;
    QByteArray contentType = {};
    QByteArray body = {};
    QString file = {};
    QList<Header> headers = {};
};

namespace reply {

Reply json(const QJsonObject& object);
// {"error": ..., "reasons": [...]}; the second only when there are reasons.
Reply refused(const Refusal& refusal);
// The body with its tag, or 304 when the client holds it already.
Reply tagged(const Call& call, const QByteArray& contentType, const QByteArray& body,
             const QByteArray& etag, const QByteArray& cacheControl);
bool matches(const QByteArray& ifNoneMatch, const QByteArray& etag);

} // namespace reply
