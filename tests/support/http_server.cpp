#include "tests/support/http_server.h"

#include <QSslServer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <algorithm>
#include <utility>

namespace {

constexpr qint64 writeAheadBytes = 256 * 1024;

// The request once it is there whole.
std::optional<HttpRequest> parseRequest(const QByteArray& received)
{
    const qsizetype headEnd = received.indexOf("\r\n\r\n");
    if (headEnd < 0)
        return {};
    QByteArrayList lines = received.left(headEnd + 1).split('\n');
    const QByteArrayList first = lines.takeFirst().split(' ');
    HttpRequest request{first.value(0), first.value(1), {}, received.mid(headEnd + 4)};
    for (const QByteArray& line : std::as_const(lines)) {
        const qsizetype colon = line.indexOf(':');
        // One blank after the colon and the line's end go; blanks that belong to the value stay.
        const bool blank = line.mid(colon + 1, 1) == " ";
        request.headers.append(
            qMakePair(line.left(colon), line.mid(colon + (blank ? 2 : 1)).chopped(1)));
    }
    if (request.body.size() < request.header("Content-Length").toLongLong())
        return {};
    return request;
}

QByteArray headOf(const HttpAnswer& answer)
{
    QByteArray head = "HTTP/1.1 " + QByteArray::number(answer.status) + " Scripted\r\n";
    head += "Connection: close\r\nContent-Type: " + answer.contentType + "\r\n";
    for (const auto& [name, value] : answer.headers)
        head += name + ": " + value + "\r\n";
    if (answer.framing == HttpAnswer::Framing::Length && !answer.endless) {
        const qint64 length = answer.announcedLength.value_or(answer.body.size());
        head += "Content-Length: " + QByteArray::number(length) + "\r\n";
    } else if (answer.framing == HttpAnswer::Framing::Chunked ||
               answer.framing == HttpAnswer::Framing::BadChunkSize) {
        head += "Transfer-Encoding: chunked\r\n";
    }
    return head + "\r\n";
}

// What goes out after the head, cut or stalled as the script wants.
QByteArray payloadOf(const HttpAnswer& answer)
{
    const qint64 size = answer.body.size();
    QByteArray body = answer.body.left(
        std::min(answer.cutAfter.value_or(size), answer.stallAfter.value_or(size)));
    const QByteArray chunk = QByteArray::number(answer.body.size(), 16) + "\r\n" + body;
    const bool whole = body.size() == size && !answer.stallAfter;
    switch (answer.framing) {
    case HttpAnswer::Framing::Chunked:
        return whole ? chunk + "\r\n0\r\n\r\n" : chunk;
    case HttpAnswer::Framing::BadChunkSize:
        return chunk + "\r\n7fffffff\r\n";
    default:
        return body;
    }
}

void send(QTcpSocket* socket, const HttpAnswer& answer)
{
    if (answer.stallAfter && *answer.stallAfter < 0)
        return;
    if (answer.raw) {
        socket->write(*answer.raw);
        socket->disconnectFromHost();
        return;
    }
    socket->write(headOf(answer));
    if (answer.endless) {
        const auto refill = [socket, body = answer.body] {
            if (socket->bytesToWrite() < writeAheadBytes)
                socket->write(body);
        };
        // Queued: a TLS socket reports what it wrote from within write().
        QObject::connect(socket, &QTcpSocket::bytesWritten, socket, refill, Qt::QueuedConnection);
        refill();
        return;
    }
    socket->write(payloadOf(answer));
    if (answer.trickles) {
        auto* timer = new QTimer(socket);
        QObject::connect(timer, &QTimer::timeout, socket, [socket] { socket->write("x"); });
        timer->start(20);
    } else if (!answer.stallAfter) {
        socket->disconnectFromHost(); // once all is written
    }
}

} // namespace

QByteArray HttpRequest::header(const QByteArray& name) const
{
    const auto it = std::ranges::find_if(headers, [&name](const auto& header) {
        return header.first.compare(name, Qt::CaseInsensitive) == 0;
    });
    return it == headers.cend() ? QByteArray() : it->second;
}

HttpAnswer& HttpAnswer::addHeader(const QByteArray& name, const QByteArray& value)
{
    headers.append(qMakePair(name, value));
    return *this;
}

HttpAnswer HttpAnswer::ok(const QByteArray& body)
{
    HttpAnswer answer;
    answer.body = body;
    return answer;
}

HttpAnswer HttpAnswer::json(const QByteArray& body, int status)
{
    HttpAnswer answer = ok(body);
    answer.status = status;
    answer.contentType = "application/json";
    return answer;
}

HttpAnswer HttpAnswer::htmlError(int status)
{
    HttpAnswer answer = ok("<html><body><h1>Something broke</h1></body></html>");
    answer.status = status;
    answer.contentType = "text/html";
    return answer;
}

HttpAnswer HttpAnswer::redirect(const QString& target, int status)
{
    HttpAnswer answer;
    answer.status = status;
    return answer.addHeader("Location", target.toUtf8());
}

HttpAnswer HttpAnswer::silence()
{
    HttpAnswer answer;
    answer.stallAfter = -1;
    return answer;
}

HttpServer::HttpServer(QObject* parent)
    : QObject(parent), m_server(new QTcpServer(this)), m_tls(false)
{
    listen();
}

HttpServer::HttpServer(const QSslConfiguration& tls, QObject* parent) : QObject(parent), m_tls(true)
{
    auto* server = new QSslServer(this);
    server->setSslConfiguration(tls);
    m_server = server;
    listen();
}

HttpServer::~HttpServer()
{
    goOffline();
}

void HttpServer::listen()
{
    // Without a loopback port no test that uses the server can say anything.
    if (!m_server->listen(QHostAddress::LocalHost))
        qFatal("The test server cannot listen: %s", qPrintable(m_server->errorString()));
    connect(m_server, &QTcpServer::pendingConnectionAvailable, this, &HttpServer::accept);
}

void HttpServer::answer(const QByteArray& path, const HttpAnswer& answer)
{
    m_handlers[path] = [answer](const HttpRequest&) { return answer; };
}

void HttpServer::answer(const QByteArray& path, Handler handler)
{
    m_handlers[path] = std::move(handler);
}

quint16 HttpServer::port() const
{
    return m_server->serverPort();
}

QString HttpServer::origin() const
{
    return QStringLiteral("%1://127.0.0.1:%2")
        .arg(m_tls ? QStringLiteral("https") : QStringLiteral("http"))
        .arg(port());
}

qsizetype HttpServer::requestCount(const QByteArray& path) const
{
    return std::ranges::count(m_requests, path, &HttpRequest::path);
}

void HttpServer::goOffline()
{
    m_server->close();
    const QList<QTcpSocket*> sockets = m_received.keys();
    for (QTcpSocket* socket : sockets)
        socket->abort();
}

void HttpServer::accept()
{
    while (QTcpSocket* socket = m_server->nextPendingConnection()) {
        m_received.insert(socket, {});
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { readFrom(socket); });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
            m_received.remove(socket);
            m_held.removeIf([socket](const auto& held) { return held.second == socket; });
            socket->deleteLater();
        });
        readFrom(socket);
    }
}

void HttpServer::readFrom(QTcpSocket* socket)
{
    QByteArray& received = m_received[socket];
    received += socket->readAll();
    const auto request = parseRequest(received);
    if (!request)
        return;
    received.clear();
    m_requests.append(*request);
    const HttpAnswer answer = answerTo(*request);
    if (answer.stallAfter && *answer.stallAfter < 0)
        m_held.append(qMakePair(request->path, socket));
    send(socket, answer);
}

qsizetype HttpServer::heldCount(const QByteArray& path) const
{
    return std::ranges::count(m_held, path, &QPair<QByteArray, QTcpSocket*>::first);
}

bool HttpServer::answerHeld(const QByteArray& path, const HttpAnswer& answer)
{
    const auto held = std::ranges::find(m_held, path, &QPair<QByteArray, QTcpSocket*>::first);
    return answerHeldAt(held == m_held.end() ? -1 : held - m_held.begin(), answer);
}

bool HttpServer::answerNewestHeld(const QByteArray& path, const HttpAnswer& answer)
{
    qsizetype index = m_held.size() - 1;
    while (index >= 0 && m_held[index].first != path)
        --index;
    return answerHeldAt(index, answer);
}

bool HttpServer::answerHeldAt(qsizetype index, const HttpAnswer& answer)
{
    if (index < 0)
        return false;
    send(m_held.takeAt(index).second, answer);
    return true;
}

HttpAnswer HttpServer::answerTo(const HttpRequest& request) const
{
    const Handler handler = m_handlers.value(request.path.split('?').constFirst());
    if (handler)
        return handler(request);
    HttpAnswer answer = HttpAnswer::ok("Not found");
    answer.status = 404;
    return answer;
}
