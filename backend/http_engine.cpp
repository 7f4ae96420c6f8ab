#include "backend/http_engine.h"

#include "backend/byte_range.h"
#include "backend/connection.h"
#include "backend/exchange.h"
#include "backend/log.h"
#include "backend/router.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QFile>
#include <QLocale>

#include <fcntl.h>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

// The library hands its handlers the request alone; this is the exchange it belongs to.
thread_local Exchange* currentExchange = nullptr;

QByteArray headerOf(const httplib::Request& request, const char* name)
{
    return QByteArray::fromStdString(request.get_header_value(name));
}

Call callOf(const httplib::Request& request)
{
    Call call;
    call.method =
        request.method == "HEAD" ? QByteArray("GET") : QByteArray::fromStdString(request.method);
    call.path = QByteArray::fromStdString(request.path);
    // A launcher whose server address ends in "/" asks for "//auth/login".
    while (call.path.startsWith("//"))
        call.path.remove(0, 1);
    const QByteArray authorization = headerOf(request, "Authorization");
    if (authorization.left(7).toLower() == "bearer ")
        call.token = authorization.mid(7).trimmed();
    call.contentType = headerOf(request, "Content-Type").split(';').first().trimmed().toLower();
    call.ifNoneMatch = headerOf(request, "If-None-Match");
    return call;
}

// Bodies come plain and with their length: what else there is could be measured only by reading it.
std::optional<Refusal> faultOfFraming(const httplib::Request& request, qint64& bodyBytes)
{
    if (request.has_header("Transfer-Encoding"))
        return Refusal{411, u"The body must come with its length, not in chunks."_s};
    if (request.has_header("Content-Encoding"))
        return Refusal{415, u"The body must not be compressed."_s};
    const size_t count = request.get_header_value_count("Content-Length");
    if (count == 0)
        return {};
    const QByteArray text = headerOf(request, "Content-Length");
    const bool digits =
        !text.isEmpty() && text.size() < 16 &&
        std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (count != 1 || !digits)
        return Refusal{400, u"The Content-Length makes no sense."_s};
    bodyBytes = text.toLongLong();
    return {};
}

Reply serverFault(const Fault& fault)
{
    logging::error(fault.text());
    return reply::refused({500, u"The server had a problem. Try again later."_s});
}

QByteArray httpDate()
{
    return QLocale::c()
        .toString(QDateTime::currentDateTimeUtc(), u"ddd, dd MMM yyyy hh:mm:ss 'GMT'"_s)
        .toLatin1();
}

QByteArray valueOf(const Reply& reply, const QByteArray& name)
{
    for (const auto& [key, value] : reply.headers) {
        if (key == name)
            return value;
    }
    return {};
}

// Opens the reply's file and narrows it to the range that was asked for.
void openFile(const httplib::Request& request, httplib::Response& response, Exchange& exchange,
              const Reply& reply)
{
    exchange.fileHandle = ::open(QFile::encodeName(reply.file).constData(), O_RDONLY | O_CLOEXEC);
    if (exchange.fileHandle < 0)
        throw Fault(u"cannot read "_s + reply.file);
    struct stat about = {};
    if (::fstat(exchange.fileHandle, &about) != 0)
        throw Fault(u"cannot read "_s + reply.file);
    const qint64 size = about.st_size;
    const QByteArray ifRange = headerOf(request, "If-Range");
    const bool asked =
        !exchange.range.isEmpty() && (ifRange.isEmpty() || ifRange == valueOf(reply, "ETag"));
    const auto part = asked ? byte_range::parse(exchange.range, size) : ByteRange{0, size};
    response.set_header("Accept-Ranges", "bytes");
    exchange.contentLength = part ? part->bytes : 0;
    exchange.fileOffset = part ? part->offset : 0;
    if (!part) {
        response.status = 416;
        response.set_header("Content-Range", "bytes */" + std::to_string(size));
    } else if (part->bytes < size) {
        response.status = 206;
        response.set_header("Content-Range", "bytes " + std::to_string(part->offset) + '-' +
                                                 std::to_string(part->offset + part->bytes - 1) +
                                                 '/' + std::to_string(size));
    }
}

} // namespace

HttpEngine::HttpEngine(const Router& router, QStringList trustedProxies)
    : m_router(router), m_trustedProxies(std::move(trustedProxies))
{
    set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        Exchange& exchange = *currentExchange;
        exchange.isUnderstood = true;
        put(request, response, exchange, replyTo(request, exchange));
        return HandlerResponse::Handled;
    });
    // For what the library turns away by itself: a head that makes no sense.
    const HandlerWithResponse refuse = [this](const httplib::Request& request,
                                              httplib::Response& response) {
        if (currentExchange->isUnderstood)
            return HandlerResponse::Unhandled;
        put(request, response, *currentExchange,
            reply::refused({response.status, u"The request makes no sense."_s}));
        return HandlerResponse::Handled;
    };
    set_error_handler(refuse);
    set_post_routing_handler([](const httplib::Request&, httplib::Response& response) {
        const Exchange& exchange = *currentExchange;
        for (const char* name : {"Content-Length", "Keep-Alive", "Connection"})
            response.headers.erase(name);
        if (exchange.contentLength >= 0)
            response.set_header("Content-Length", std::to_string(exchange.contentLength));
        if (exchange.closes)
            response.set_header("Connection", "close");
    });
}

void HttpEngine::process(Connection& connection)
{
    Exchange exchange(connection);
    currentExchange = &exchange;
    QElapsedTimer timer;
    timer.start();
    std::string method;
    std::string path;
    bool clientCloses = false;
    process_request(exchange, false, clientCloses, [&](httplib::Request& request) {
        exchange.range = headerOf(request, "Range");
        exchange.expectsContinue = request.has_header("Expect");
        // Each of these would make the library act by itself.
        for (const char* name : {"Range", "Expect", "Accept-Encoding"})
            request.headers.erase(name);
        request.ranges.clear();
        exchange.closes = request.get_header_value("Connection") == "close";
        method = request.method;
        path = request.path;
    });
    currentExchange = nullptr;
    if (exchange.needsBody) {
        connection.needBody(exchange.bodyBytes);
        connection.setOutput(exchange.expectsContinue ? "HTTP/1.1 100 Continue\r\n\r\n" : "");
        return;
    }
    connection.setOutput(exchange.answer());
    if (exchange.fileHandle >= 0)
        connection.setFile(exchange.fileHandle, exchange.fileOffset,
                           method == "HEAD" ? 0 : exchange.contentLength);
    connection.closesAfterwards = exchange.closes || clientCloses;
    connection.consume(
        std::min<qsizetype>(connection.input().size(), connection.headEnd() + exchange.bodyBytes));
    logging::request({exchange.client, QByteArray::fromStdString(method),
                      QByteArray::fromStdString(path), exchange.status, connection.bytesToSend(),
                      timer.nsecsElapsed() / 1000});
}

Reply HttpEngine::replyTo(const httplib::Request& request, Exchange& exchange) const
{
    const Connection& connection = exchange.connection();
    const qsizetype arrived = connection.input().size() - connection.headEnd();
    Call call = callOf(request);
    call.address = exchange.client = clientOf(request, connection);
    if (const auto fault = faultOfFraming(request, exchange.bodyBytes)) {
        // Nobody knows where the next request begins.
        exchange.closes = true;
        return reply::refused(*fault);
    }
    call.bodyBytes = exchange.bodyBytes;
    try {
        const auto match = m_router.match(call);
        const Reply* refusal = std::get_if<Reply>(&match);
        // A body that is turned away is not waited for.
        exchange.closes = exchange.closes || (refusal && arrived < call.bodyBytes);
        if (refusal)
            return *refusal;
        exchange.needsBody = arrived < call.bodyBytes;
        if (exchange.needsBody)
            return {};
        call.body = connection.input().mid(connection.headEnd(), call.bodyBytes);
        const auto& found = std::get<Router::Match>(match);
        return found.route->handler(call, found.parameter);
    } catch (const Fault& fault) {
        exchange.closes = exchange.closes || arrived < call.bodyBytes;
        return serverFault(fault);
    }
}

// A proxy that we trust appends the address that it saw; what stands before it is the client's own
// word.
QString HttpEngine::clientOf(const httplib::Request& request, const Connection& connection) const
{
    if (!m_trustedProxies.contains(connection.address()))
        return connection.address();
    const QString seen = QString::fromLatin1(headerOf(request, "X-Forwarded-For"));
    const QString last = seen.section(u',', -1).trimmed();
    return last.isEmpty() ? connection.address() : last;
}

void HttpEngine::put(const httplib::Request& request, httplib::Response& response,
                     Exchange& exchange, const Reply& reply) const
{
    exchange.closes = exchange.closes || !exchange.isUnderstood;
    response.status = reply.status;
    for (const auto& [name, value] : reply.headers)
        response.set_header(name.toStdString(), value.toStdString());
    response.set_header("Date", httpDate().toStdString());
    response.set_header("X-Content-Type-Options", "nosniff");
    response.set_header("Content-Security-Policy", "default-src 'none'; frame-ancestors 'none'");
    response.set_header("Referrer-Policy", "no-referrer");
    if (exchange.connection().isSecure())
        response.set_header("Strict-Transport-Security", "max-age=31536000");
    if (!reply.contentType.isEmpty())
        response.set_header("Content-Type", reply.contentType.toStdString());
    if (!reply.file.isEmpty()) {
        openFile(request, response, exchange, reply);
    } else {
        response.body = reply.body.toStdString();
        exchange.contentLength = reply.status == 304 ? -1 : reply.body.size();
    }
    exchange.status = response.status;
}

void HttpEngine::refuseHead(Connection& connection)
{
    const QByteArray body = reply::refused({431, u"The request's head is too large."_s}).body;
    connection.setOutput("HTTP/1.1 431 Request Header Fields Too Large\r\n"
                         "Content-Type: application/json\r\nConnection: close\r\nContent-Length: " +
                         QByteArray::number(body.size()) + "\r\n\r\n" + body);
    connection.closesAfterwards = true;
    connection.consume(connection.input().size());
}
