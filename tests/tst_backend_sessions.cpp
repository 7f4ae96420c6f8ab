#include "tests/support/backend_process.h"

#include <QJsonDocument>
#include <QTcpSocket>
#include <QTest>

#include <memory>
#include <vector>

using namespace Qt::StringLiterals;

// How long a session lasts, and that many people can start one at the same time. Time passes by
// moving the stored times back.
class TestBackendSessions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lastsThirtyDaysFromItsLastUse();
    void forgetsExpiredSessions();
    void answersLoginsAtTheSameTime();
    void turnsAwayMoreThanItCanHash();

private:
    QList<RawReply> postTogether(const QByteArray& path, const QStringList& names);

    BackendProcess m_backend;
};

namespace {

constexpr int hour = 60 * 60;
constexpr int day = 24 * hour;

QByteArray bodyOf(const QString& name)
{
    return QJsonDocument({{u"username"_s, name}, {u"password"_s, u"correct horse"_s}}).toJson();
}

QByteArray enroll(const BackendProcess& backend, const QString& name)
{
    const RawReply reply =
        raw_http::post(backend.port(), "/auth/register", "application/json", bodyOf(name));
    return reply.json()[u"token"_s].toString().toLatin1();
}

int validate(const BackendProcess& backend, const QByteArray& token)
{
    return raw_http::get(backend.port(), "/auth/validate", {raw_http::bearer(token)}).status;
}

bool pass(const BackendProcess& backend, int seconds)
{
    return backend.runSql(u"UPDATE sessions SET last_used = last_used - %1"_s.arg(seconds));
}

} // namespace

// All requests are on their way before the first answer is read.
QList<RawReply> TestBackendSessions::postTogether(const QByteArray& path, const QStringList& names)
{
    std::vector<std::unique_ptr<QTcpSocket>> sockets;
    for (const QString& name : names) {
        const QByteArray body = bodyOf(name);
        auto& socket = sockets.emplace_back(std::make_unique<QTcpSocket>());
        socket->connectToHost(u"127.0.0.1"_s, m_backend.port());
        socket->write("POST " + path +
                      " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n"
                      "Content-Type: application/json\r\nContent-Length: " +
                      QByteArray::number(body.size()) + "\r\n\r\n" + body);
        socket->waitForBytesWritten();
    }
    QList<RawReply> replies;
    for (const auto& socket : sockets) {
        while (socket->state() == QAbstractSocket::ConnectedState && socket->waitForReadyRead()) {
        }
        const QByteArray whole = socket->readAll();
        RawReply& reply = replies.emplaceBack();
        reply.whole = whole;
        reply.status = whole.mid(9, 3).toInt();
        reply.body = whole.mid(whole.indexOf("\r\n\r\n") + 4);
    }
    return replies;
}

void TestBackendSessions::lastsThirtyDaysFromItsLastUse()
{
    BackendProcess backend;
    QVERIFY2(backend.start(), backend.output().constData());
    const QByteArray token = enroll(backend, u"Patient"_s);
    QVERIFY(pass(backend, 30 * day - hour));
    QCOMPARE(validate(backend, token), 200);
    // That was a use: it counts anew from here.
    QVERIFY(pass(backend, 30 * day - hour));
    QCOMPARE(validate(backend, token), 200);
    QVERIFY(pass(backend, 30 * day));
    QCOMPARE(validate(backend, token), 401);
    // A use that was refused is none.
    QCOMPARE(validate(backend, token), 401);
}

void TestBackendSessions::forgetsExpiredSessions()
{
    BackendProcess backend;
    QVERIFY(backend.start());
    QVERIFY(!enroll(backend, u"Gone"_s).isEmpty());
    QVERIFY(pass(backend, 30 * day));
    const QByteArray token = enroll(backend, u"Stays"_s);
    QCOMPARE(backend.stop(), 0);
    QVERIFY(backend.start());
    const auto sessions = [&backend](const QString& name) {
        const QStringList words{u"accounts"_s, u"list"_s, u"--match"_s, name};
        return backend.command(words).output.contains("1 sessions");
    };
    QTRY_VERIFY(!sessions(u"Gone"_s));
    QVERIFY(sessions(u"Stays"_s));
    QCOMPARE(validate(backend, token), 200);
}

// While one password is hashed, other sessions are written.
void TestBackendSessions::answersLoginsAtTheSameTime()
{
    QVERIFY(m_backend.start());
    QStringList names;
    for (int i = 0; i < 6; ++i) {
        names.append(u"Player%1"_s.arg(i));
        QVERIFY(!enroll(m_backend, names.constLast()).isEmpty());
    }
    const QList<RawReply> replies = postTogether("/auth/login", names);
    for (const RawReply& reply : replies)
        QVERIFY2(reply.status == 200, reply.whole.constData());
    QCOMPARE(m_backend.stop(), 0);
}

void TestBackendSessions::turnsAwayMoreThanItCanHash()
{
    QVERIFY(m_backend.start({u"--max-address-registrations"_s, u"0"_s}));
    QStringList names;
    for (int i = 0; i < 40; ++i)
        names.append(u"Crowd%1"_s.arg(i));
    int registered = 0;
    const QList<RawReply> replies = postTogether("/auth/register", names);
    for (const RawReply& reply : replies) {
        registered += reply.status == 200 ? 1 : 0;
        if (reply.status == 200)
            continue;
        QVERIFY2(reply.status == 503, reply.whole.constData());
        QCOMPARE(reply.error(), u"The server is busy. Try again in a moment."_s);
        QVERIFY(reply.whole.contains("\r\nRetry-After: 1\r\n"));
    }
    // Two at work and eight waiting, at the least.
    QVERIFY2(registered >= 10, QByteArray::number(registered).constData());
    QVERIFY(registered < names.size());
    const auto listed = m_backend.command({u"accounts"_s, u"list"_s, u"--match"_s, u"Crowd"_s});
    QCOMPARE(listed.output.count('\n'), registered);
    QCOMPARE(raw_http::get(m_backend.port(), "/healthz").status, 200);
}

QTEST_GUILESS_MAIN(TestBackendSessions)
#include "tst_backend_sessions.moc"
