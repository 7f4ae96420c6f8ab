#include "backend/log.h"

#include <QDateTime>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

void write(QLatin1StringView level, const QString& text)
{
    QString line =
        QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs) + u' ' + level + u' ';
    for (const QChar c : text)
        line += c.isPrint() ? c : u'?';
    line += u'\n';
    const QByteArray bytes = line.toUtf8();
    // One call, so that lines of several threads do not mix.
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stderr);
}

} // namespace

namespace logging {

void info(const QString& text)
{
    write("info"_L1, text);
}

void error(const QString& text)
{
    write("error"_L1, text);
}

} // namespace logging
