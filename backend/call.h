#pragma once

#include "backend/accounts.h"
#include "backend/http/engine.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

// One request, as the handlers see it: nothing of the network reaches them.
struct Call
{
    QByteArray method; // a HEAD arrives as GET
    QByteArray path;
    QByteArray token;       // of "Authorization: Bearer ..."
    QByteArray contentType; // without parameters, in lower case
    QByteArray ifNoneMatch;
    QByteArray range;
    QByteArray ifRange;
    qint64 bodyBytes = 0; // as announced
    QByteArray body;
    QString address; // who asks
    // Set for routes that need a session.
    Account account;
};

using Reply = http::Reply;

namespace reply {

Reply json(const QJsonObject& object);
// {"error": ..., "reasons": [...]}; the second only when there are reasons.
Reply refused(const Refusal& refusal);
// The body with its tag, or 304 when the client holds it already.
Reply tagged(const Call& call, const QByteArray& contentType, const QByteArray& body,
             const QByteArray& etag, const QByteArray& cacheControl);
bool matches(const QByteArray& ifNoneMatch, const QByteArray& etag);

} // namespace reply
