#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QPair>
#include <QSslConfiguration>
#include <QString>

#include <functional>
#include <optional>

class QTcpServer;
class QTcpSocket;

struct HttpRequest
{
    QByteArray method;
    QByteArray path; // with its query
    QList<QPair<QByteArray, QByteArray>> headers;
    QByteArray body;

    // Null when absent; names compare without case.
    QByteArray header(const QByteArray& name) const;
};

// What the server sends. The defaults are an honest answer; each further member is one way to go
// wrong. Make one with the functions below and set members on it.
struct HttpAnswer
{
    enum class Framing {
        Length,       // Content-Length
        Chunked,      // Transfer-Encoding: chunked
        BadChunkSize, // chunked; after the body a chunk that claims 0x7fffffff bytes, then the end
        UntilClose,   // no length at all
    };

    int status = 200;
    QByteArray body;
    QByteArray contentType = "application/octet-stream";
    QList<QPair<QByteArray, QByteArray>> headers;
    Framing framing = Framing::Length;
    std::optional<qint64> announcedLength; // in place of the body's
    std::optional<qint64> cutAfter;        // body bytes, then the connection ends
    std::optional<qint64> stallAfter;      // body bytes, then silence; -1: not even a status line
    bool trickles = false;                 // no silence after stallAfter: a byte now and then
    bool endless = false;                  // the body again and again
    std::optional<QByteArray> raw;         // these bytes instead of all that, then the end

    HttpAnswer& addHeader(const QByteArray& name, const QByteArray& value);

    static HttpAnswer ok(const QByteArray& body);
    static HttpAnswer json(const QByteArray& body, int status = 200);
    static HttpAnswer htmlError(int status = 500);
    static HttpAnswer redirect(const QString& target, int status = 302);
    static HttpAnswer silence();
};

// A web server for tests, on a loopback port of its own. It lives in the test's thread and answers
// while the event loop turns (QTRY_*, QSignalSpy::wait). Records every request; a path without an
// answer gets 404. One answer per connection.
class HttpServer : public QObject
{
    Q_OBJECT

public:
    using Handler = std::function<HttpAnswer(const HttpRequest&)>;

    explicit HttpServer(QObject* parent = nullptr);
    // Speaks TLS; for the configuration see TestAuthority.
    explicit HttpServer(const QSslConfiguration& tls, QObject* parent = nullptr);
    ~HttpServer() override;

    // Paths come without a query. A later call for the same path replaces the earlier.
    void answer(const QByteArray& path, const HttpAnswer& answer);
    void answer(const QByteArray& path, Handler handler);

    quint16 port() const;
    QString origin() const; // "http://127.0.0.1:<port>"
    QString url(const QString& path) const { return QString(origin() + path); }

    // In the order they arrived; each is recorded before it is answered.
    const QList<HttpRequest>& requests() const { return m_requests; }
    qsizetype requestCount(const QByteArray& path) const;
    void forgetRequests() { m_requests.clear(); }
    // Of the requests for the path that are met with HttpAnswer::silence, those whose client still
    // waits, as far as it is known.
    qsizetype heldCount(const QByteArray& path) const;
    // Answers the oldest of them; false when there is none.
    bool answerHeld(const QByteArray& path, const HttpAnswer& answer);
    // The newest instead.
    bool answerNewestHeld(const QByteArray& path, const HttpAnswer& answer);
    // Connections that neither side has closed yet.
    qsizetype connectionCount() const { return m_received.size(); }

    // From now on connections are refused, and those under way are cut.
    void goOffline();

private:
    void listen();
    void accept();
    void readFrom(QTcpSocket* socket);
    HttpAnswer answerTo(const HttpRequest& request) const;
    bool answerHeldAt(qsizetype index, const HttpAnswer& answer);

    QTcpServer* m_server;
    bool m_tls;
    QHash<QByteArray, Handler> m_handlers;
    QList<HttpRequest> m_requests;
    QHash<QTcpSocket*, QByteArray> m_received;    // what a connection sent so far
    QList<QPair<QByteArray, QTcpSocket*>> m_held; // the path and who waits
};
