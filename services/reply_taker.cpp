#include "services/reply_taker.h"

#include "services/body_hash.h"

#include <QNetworkAccessManager>
#include <QNetworkProxyFactory>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>
#include <QRegularExpression>

#include <algorithm>
#include <optional>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

// How much may wait for a busy window. Compressed, it can become forty times as much, which the
// network layer unpacks in one turn of the event loop; beyond that it gives up by itself.
constexpr qint64 readAheadBytes = 256 * 1024;
// What one turn of the event loop copies.
constexpr qint64 sliceBytes = 4 * 1024 * 1024;
// A body that becomes longer without announcing it is given all the room that it may take: pages
// that nobody touches cost nothing, but a body that moves to a larger place is held twice.
constexpr qint64 roomBytes = 1024 * 1024;

// Through a web proxy the network layer loses what is left of a body when the server closes before
// all of it is read, and waits for it without end: there nothing may be left to read.
bool isProxied(const QNetworkReply* reply)
{
    const auto proxies = QNetworkProxyFactory::proxyForQuery(QNetworkProxyQuery(reply->url()));
    return std::ranges::any_of(
        proxies, [](const QNetworkProxy& proxy) { return proxy.type() != QNetworkProxy::NoProxy; });
}

// Absent for other protocols than HTTP.
std::optional<int> statusOf(const QNetworkReply* reply)
{
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    return status.isValid() ? std::optional(status.toInt()) : std::nullopt;
}

bool isCompressed(const QNetworkReply* reply)
{
    const QByteArray encoding = reply->rawHeader("Content-Encoding").trimmed().toLower();
    return !encoding.isEmpty() && encoding != "identity";
}

// As announced; -1 when there is no announcement, absent when it makes no sense. The network layer
// takes what it cannot read for no announcement, and moves that of a compressed body elsewhere.
std::optional<qint64> announcedLength(const QNetworkReply* reply)
{
    const QVariant original = reply->attribute(QNetworkRequest::OriginalContentLengthAttribute);
    if (original.isValid())
        return original.toLongLong() < 0 ? std::nullopt : std::optional(original.toLongLong());
    qint64 length = -1;
    const QByteArray header = reply->rawHeader("Content-Length");
    for (const QByteArray& value : header.isEmpty() ? QByteArrayList() : header.split(',')) {
        bool valid = false;
        const qint64 number = value.trimmed().toLongLong(&valid);
        if (!valid || number < 0 || (length >= 0 && length != number))
            return std::nullopt;
        length = number;
    }
    return length;
}

// Nobody here asks for a range, but some servers answer so with the whole.
bool isWholeRange(const QNetworkReply* reply, qint64 size)
{
    static const QRegularExpression pattern(u"^bytes 0-(\\d+)/(\\d+)$"_s);
    const auto match =
        pattern.match(QString::fromLatin1(reply->rawHeader("Content-Range").trimmed()));
    return match.hasMatch() && match.captured(1).toLongLong() == size - 1 &&
           match.captured(2).toLongLong() == size;
}

// From the event loop: the network layer cannot stand an abort from within its own signals. Nor
// when it has failed already; what it would still say of this reply goes with it.
void endLater(QNetworkReply* reply)
{
    QMetaObject::invokeMethod(
        reply->manager(),
        [ended = QPointer(reply)] {
            QNetworkReply* const still = ended.data();
            if (still && still->error() == QNetworkReply::NoError)
                still->abort();
            delete ended.data();
        },
        Qt::QueuedConnection);
}

} // namespace

ReplyTaker::ReplyTaker(QNetworkReply* reply, http::Exchange exchange)
    : QObject(reply), m_reply(reply), m_exchange(std::move(exchange))
{
    if (!isProxied(reply))
        reply->setReadBufferSize(readAheadBytes);
    connect(reply, &QNetworkReply::metaDataChanged, this, &ReplyTaker::onHead);
    connect(reply, &QNetworkReply::readyRead, this, &ReplyTaker::onData);
    connect(reply, &QNetworkReply::finished, this, &ReplyTaker::onFinished);
    connect(reply, &QNetworkReply::errorOccurred, this, &ReplyTaker::onError, Qt::QueuedConnection);
    connect(m_exchange.context, &QObject::destroyed, this, &ReplyTaker::onContextEnd);
    if (m_exchange.progress)
        connect(reply, &QNetworkReply::downloadProgress, this,
                [this](qint64 received, qint64 total) {
                    // A copy: it may end the context, and this exchange with it.
                    if (const auto progress = m_exchange.progress)
                        progress(received, total);
                });
    // The queue is passed twice: what follows may end this taker, and the hash with it.
    if (m_exchange.hashes)
        m_hash = std::make_unique<BodyHash>(
            [this] { QMetaObject::invokeMethod(this, &ReplyTaker::goOn, Qt::QueuedConnection); });
}

ReplyTaker::~ReplyTaker() = default;

void ReplyTaker::onHead()
{
    const qint64 length = announcedLength(m_reply).value_or(-1);
    if (!fits(length))
        refuseLength();
    else if (!isCompressed(m_reply) && !m_exchange.sink)
        m_body.reserve(std::max<qint64>(length, 0));
}

// As it comes: to copy all of it at the end would take too long for one turn of the event loop.
void ReplyTaker::onData()
{
    if (!m_exchange.done || m_isFinished)
        return;
    if (!fits(m_reply->bytesAvailable()))
        return refuseLength();
    if (isFull())
        return;
    take(std::min(m_reply->bytesAvailable(), sliceBytes));
    if (m_reply->bytesAvailable() > 0 && !isFull())
        QMetaObject::invokeMethod(this, &ReplyTaker::onData, Qt::QueuedConnection);
}

void ReplyTaker::take(qint64 most)
{
    if (most <= 0)
        return;
    const qint64 before = m_size;
    if (m_exchange.sink) {
        const QByteArray piece = m_reply->read(most);
        m_size += piece.size();
        m_isSinking = true;
        m_exchange.sink(piece, [taker = QPointer(this)] {
            if (taker)
                taker->onSunk();
        });
        return;
    }
    if (before + most > std::max<qint64>(m_body.capacity(), roomBytes))
        m_body.reserve(m_exchange.maxBytes);
    m_body.resize(before + most);
    m_size += std::max<qint64>(m_reply->read(m_body.data() + before, most), 0);
    m_body.truncate(m_size);
    if (m_hash)
        m_hash->add(QByteArrayView(m_body).sliced(before));
}

void ReplyTaker::onSunk()
{
    m_isSinking = false;
    goOn();
}

// Some of what was taken is done with.
void ReplyTaker::goOn()
{
    if (m_isFinished)
        finishUnlessDone();
    else
        onData();
}

bool ReplyTaker::isFull() const
{
    return m_isSinking || (m_hash && m_hash->isFull());
}

bool ReplyTaker::isAtWork() const
{
    return m_isSinking || (m_hash && !m_hash->isDone());
}

void ReplyTaker::onFinished()
{
    m_isFinished = true;
    const qint64 rest = m_reply->isOpen() ? m_reply->bytesAvailable() : 0;
    if (!fits(rest))
        return refuseLength();
    const bool failed = m_reply->error() != QNetworkReply::NoError;
    if (isAtWork() && !failed)
        return;
    if (rest > 0 && !(m_exchange.sink && failed))
        take(m_exchange.sink ? std::min(rest, sliceBytes) : rest);
    if (isAtWork() && !failed)
        return;
    m_reply->deleteLater();
    deliver(errorText());
}

// When a body cannot be unpacked, the network layer fails, and fails again with all that still
// arrives, which it complains about; and because nobody reads that, it may never finish.
void ReplyTaker::onError()
{
    if (isCompressed(m_reply) && statusOf(m_reply).value_or(200) < 300)
        m_reply->QIODevice::close(); // the network layer's own would fail once more
    QMetaObject::invokeMethod(this, &ReplyTaker::finishUnlessDone, Qt::QueuedConnection);
}

void ReplyTaker::finishUnlessDone()
{
    if (m_exchange.done)
        onFinished();
}

void ReplyTaker::onContextEnd()
{
    m_exchange = {};
    m_reply->disconnect(this);
    endLater(m_reply);
}

bool ReplyTaker::fits(qint64 more) const
{
    return more <= m_exchange.maxBytes - m_size;
}

void ReplyTaker::refuseLength()
{
    m_body = {};
    refuse(u"The server sent more than %1 MB"_s.arg(m_exchange.maxBytes / (1024 * 1024)));
}

// Ends the request with this text, from the event loop.
void ReplyTaker::refuse(const QString& error)
{
    m_reply->disconnect(this);
    QMetaObject::invokeMethod(this, [this, error] { deliver(error); }, Qt::QueuedConnection);
    endLater(m_reply);
}

QString ReplyTaker::errorText() const
{
    if (m_reply->error() != QNetworkReply::NoError)
        return m_explanation.isEmpty() ? m_reply->errorString() : m_explanation;
    const int status = statusOf(m_reply).value_or(200);
    if (status == 304)
        return u"The server says that nothing has changed"_s;
    if (status < 200 || status > 299)
        return u"The server's answer cannot be used"_s;
    const std::optional<qint64> announced = announcedLength(m_reply);
    if (!announced)
        return u"The server announced an impossible length"_s;
    const bool compressed = isCompressed(m_reply);
    if (!compressed && *announced >= 0 && *announced != m_size)
        return u"The server closed the connection early"_s;
    if (status == 206 && !isWholeRange(m_reply, compressed ? *announced : m_size))
        return u"The server sent only a part of the file"_s;
    // Neither its length nor its chunks tell: the network layer counts what it unpacked, and is
    // content with chunks that break off.
    if (compressed && *announced != 0 && !(m_exchange.isWhole && m_exchange.isWhole(m_body)))
        return u"The server's compressed answer may be cut"_s;
    return {};
}

void ReplyTaker::deliver(const QString& error)
{
    m_reply->disconnect(this);
    const auto done = std::exchange(m_exchange.done, {});
    if (!done)
        return;
    http::Answer answer{std::exchange(m_body, {}), error,
                        m_reply->error() == QNetworkReply::ContentNotFoundError};
    if (m_hash && error.isEmpty())
        answer.sha256 = m_hash->result();
    done(answer);
}
