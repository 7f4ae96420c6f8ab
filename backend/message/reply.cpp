#include "backend/message/reply.h"

#include <boost/beast/http/status.hpp>

#include <QDateTime>
#include <QLocale>

using namespace Qt::StringLiterals;

namespace {

QByteArray reasonOf(int status)
{
    const auto known = boost::beast::http::int_to_status(static_cast<unsigned>(status));
    return QByteArray::fromStdString(std::string(obsolete_reason(known)));
}

} // namespace

QByteArray server::headOf(const Reply& reply, const QList<Header>& headers, bool keepsAlive)
{
    const QString now = QLocale::c().toString(QDateTime::currentDateTimeUtc(),
                                              u"ddd, dd MMM yyyy hh:mm:ss 'GMT'"_s);
    QList<Header> all{{"Date", now.toLatin1()}};
    all += headers + reply.headers;
    if (!reply.contentType.isEmpty())
        all.emplaceBack("Content-Type", reply.contentType);
    if (reply.status != 304)
        all.emplaceBack("Content-Length", QByteArray::number(reply.body.size() + reply.fileBytes));
    all.emplaceBack("Connection", keepsAlive ? "keep-alive" : "close");
    QByteArray head = "HTTP/1.1 " + QByteArray::number(reply.status) + ' ' + reasonOf(reply.status);
    for (const auto& [name, value] : std::as_const(all))
        head += "\r\n" + name + ": " + value;
    return head + "\r\n\r\n";
}

server::Reply server::failure(int status)
{
    const bool isBusy = status == 503;
    const QByteArray text = isBusy          ? "The server is busy. Try again in a moment."
                            : status == 500 ? "The server had a problem. Try again later."
                                            : reasonOf(status);
    Reply reply{.status = status, .contentType = "application/json"};
    reply.body = R"({"error":")" + text + R"("})";
    reply.headers.emplaceBack("Cache-Control", "no-store");
    if (isBusy)
        reply.headers.emplaceBack("Retry-After", "1");
    return reply;
}
