#include "backend/base/log.h"

#include "backend/base/outcome.h"

#include <QDateTime>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <fcntl.h>
#include <string_view>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

int accessLog = -1;
QString accessLogPath; // empty: no file

int openToAppend(const QString& path)
{
    const int handle = ::open(QFile::encodeName(path).constData(),
                              O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640);
    if (handle < 0)
        throw Fault(u"cannot write "_s + path);
    return handle;
}

void write(int handle, QJsonObject line)
{
    line.insert(u"time"_s, QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs));
    const QByteArray bytes = QJsonDocument(line).toJson(QJsonDocument::Compact) + '\n';
    // One call, so that lines of several threads do not mix. A full disk loses log lines, not
    // requests.
    [[maybe_unused]] const ssize_t written =
        ::write(handle, bytes.constData(), static_cast<size_t>(bytes.size()));
}

} // namespace

namespace logging {

void openAccessLog(const QString& path)
{
    if (path == "-"_L1) {
        accessLog = STDERR_FILENO;
        return;
    }
    accessLog = openToAppend(path);
    accessLogPath = path;
}

void reopenAccessLog()
{
    if (accessLogPath.isEmpty())
        return;
    const int handle = openToAppend(accessLogPath);
    // In one step, whoever is writing.
    ::dup3(handle, accessLog, O_CLOEXEC);
    ::close(handle);
}

void request(const Request& request)
{
    if (accessLog < 0)
        return;
    write(accessLog, {{u"event"_s, u"request"_s},
                      {u"address"_s, request.address},
                      {u"method"_s, QString::fromUtf8(request.method)},
                      {u"path"_s, QString::fromUtf8(request.path)},
                      {u"status"_s, request.status},
                      {u"bytes"_s, request.bytes},
                      {u"ms"_s, double(request.microseconds) / 1000}});
}

void error(const QString& text)
{
    write(STDERR_FILENO, {{u"event"_s, u"error"_s}, {u"text"_s, text}});
}

void error(const std::exception& error) noexcept
{
    try {
        logging::error(QString::fromUtf8(error.what()));
    } catch (const std::exception&) {
        constexpr std::string_view line = "{\"event\":\"error\",\"text\":\"out of memory\"}\n";
        [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
    }
}

} // namespace logging
