#include "backend/file_reply.h"

#include "backend/store.h"

#include <QFile>

using namespace Qt::StringLiterals;

namespace file_reply {

Reply make(const Call& call, const Store& store, const QByteArray& sha256, const Reply& how)
{
    const QString path = store.pathOf(sha256);
    if (!QFile::exists(path))
        return none();
    const QByteArray etag = '"' + sha256 + '"';
    Reply reply = how;
    reply.headers.emplaceBack("ETag", etag);
    if (reply::matches(call.ifNoneMatch, etag))
        reply.status = 304;
    else
        reply.file = path;
    return reply;
}

Reply none()
{
    return reply::refused({404, u"There is no such file."_s});
}

} // namespace file_reply
