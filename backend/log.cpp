#include "backend/log.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>

#include <atomic>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

std::atomic<bool> isQuiet = false;

void write(QJsonObject line)
{
    line.insert(u"time"_s, QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs));
    const QByteArray bytes = QJsonDocument(line).toJson(QJsonDocument::Compact) + '\n';
    // One call, so that lines of several threads do not mix.
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stderr);
}

} // namespace

namespace logging {

void request(const Request& request)
{
    if (isQuiet)
        return;
    write({{u"event"_s, u"request"_s},
           {u"address"_s, request.address},
           {u"method"_s, QString::fromUtf8(request.method)},
           {u"path"_s, QString::fromUtf8(request.path)},
           {u"status"_s, request.status},
           {u"bytes"_s, request.bytes},
           {u"ms"_s, double(request.microseconds) / 1000}});
}

void error(const QString& text)
{
    write({{u"event"_s, u"error"_s}, {u"text"_s, text}});
}

void setQuiet(bool quiet)
{
    isQuiet = quiet;
}

} // namespace logging
