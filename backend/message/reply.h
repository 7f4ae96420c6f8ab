#pragma once

#include <QByteArray>
#include <QFile>
#include <QList>

#include <memory>
#include <utility>

namespace server {

using Header = std::pair<QByteArray, QByteArray>;

// What goes back: a body, or a part of an open file.
struct Reply
{
    int status = 200;
    QByteArray contentType = {};
    QByteArray body = {};
    QList<Header> headers = {};
    std::shared_ptr<QFile> file = {};
    qint64 offset = 0;
    qint64 fileBytes = 0;
};

// {"error": what the status means}; of 503 also when to try again.
Reply failure(int status);

// Up to the empty line, with these headers before the reply's own.
QByteArray headOf(const Reply& reply, const QList<Header>& headers, bool keepsAlive);

} // namespace server
