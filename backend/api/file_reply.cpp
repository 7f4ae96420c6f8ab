#include "backend/api/file_reply.h"

#include "backend/api/byte_range.h"
#include "backend/api/call.h"
#include "backend/base/outcome.h"
#include "backend/data/store.h"

#include <QFile>

using namespace Qt::StringLiterals;

namespace {

// To the range that was asked for.
void narrow(Reply& reply, const Call& call, const QByteArray& etag)
{
    const qint64 size = reply.file->size();
    const bool isAsked = call.ifRange.isEmpty() || call.ifRange == etag;
    const auto part = byte_range::parse(isAsked ? call.range : QByteArray(), size);
    const QByteArray ofSize = '/' + QByteArray::number(size);
    reply.headers.emplaceBack("Accept-Ranges", "bytes");
    reply.offset = part ? part->offset : 0;
    reply.fileBytes = part ? part->bytes : 0;
    if (!part) {
        reply.status = 416;
        reply.headers.emplaceBack("Content-Range", "bytes *" + ofSize);
    } else if (part->bytes < size) {
        reply.status = 206;
        const QByteArray last = QByteArray::number(part->offset + part->bytes - 1);
        reply.headers.emplaceBack("Content-Range", "bytes " + QByteArray::number(part->offset) +
                                                       '-' + last + ofSize);
    }
}

} // namespace

namespace file_reply {

Outcome<Reply> make(const Call& call, const Store& store, const QByteArray& sha256,
                    const Reply& how)
{
    const auto file = std::make_shared<QFile>(store.pathOf(sha256));
    if (!file->exists())
        return none();
    const QByteArray etag = '"' + sha256 + '"';
    Reply reply = how;
    reply.headers.emplaceBack("ETag", etag);
    if (reply::matches(call.ifNoneMatch, etag)) {
        reply.status = 304;
        return reply;
    }
    const bool isOpen = file->open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    if (!isOpen && !file->exists())
        return none();
    if (!isOpen)
        throw Fault(u"cannot read %1: %2"_s.arg(file->fileName(), file->errorString()));
    reply.file = file;
    narrow(reply, call, etag);
    return reply;
}

Refusal none()
{
    return {404, u"There is no such file."_s};
}

} // namespace file_reply
