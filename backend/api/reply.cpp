#include "backend/api/reply.h"

#include "backend/api/call.h"

#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace reply {

Reply json(const QJsonObject& object)
{
    return {.contentType = "application/json",
            .body = QJsonDocument(object).toJson(QJsonDocument::Compact),
            .headers = {{"Cache-Control", "no-store"}}};
}

Reply refused(const Refusal& refusal)
{
    QJsonObject object{{u"error"_s, refusal.error}};
    if (!refusal.reasons.isEmpty())
        object.insert(u"reasons"_s, QJsonArray::fromStringList(refusal.reasons));
    Reply reply = json(object);
    reply.status = refusal.status;
    if (refusal.status == 429 || refusal.status == 503)
        reply.headers.emplaceBack("Retry-After",
                                  QByteArray::number(std::max(refusal.retryAfterSeconds, 1)));
    if (refusal.status == 401)
        reply.headers.emplaceBack("WWW-Authenticate", "Bearer");
    return reply;
}

Reply tagged(const Call& call, const QByteArray& contentType, const QByteArray& body,
             const QByteArray& etag, const QByteArray& cacheControl)
{
    Reply reply{.contentType = contentType,
                .body = body,
                .headers = {{"ETag", etag}, {"Cache-Control", cacheControl}}};
    if (matches(call.ifNoneMatch, etag)) {
        reply.status = 304;
        reply.contentType.clear();
        reply.body.clear();
    }
    return reply;
}

bool matches(const QByteArray& ifNoneMatch, const QByteArray& etag)
{
    const QList<QByteArray> held = ifNoneMatch.split(',');
    for (const QByteArray& one : held) {
        QByteArray tag = one.trimmed();
        if (tag.startsWith("W/"))
            tag.remove(0, 2);
        if (tag == "*" || tag == etag)
            return true;
    }
    return false;
}

} // namespace reply
