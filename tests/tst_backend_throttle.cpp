#include "backend/accounts/hourly_count.h"
#include "backend/accounts/throttle.h"

#include "tests/support/backend_process.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

// Guessing gets slower: the counting on a clock of its own, and the server's answers.
class TestBackendThrottle : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void doublesDelayUpToTheLongest();
    void forgetsAfterAnHour();
    void forgivesAndForgets();
    void keepsNamesApart();
    void boundsItsMemory();
    void countsWithinAnHour();
    void boundsMemoryOfHourlyCount();
    void answersTooManyFailures();
    void countsUnknownNamesAlike();
    void believesTrustedProxyOnly();
};

namespace {

class Clock
{
public:
    Throttle::Clock::time_point now() const { return m_now; }
    void pass(std::chrono::seconds time) { m_now += time; }

private:
    Throttle::Clock::time_point m_now = Throttle::Clock::now();
};

RawReply login(const BackendProcess& backend, const QString& name, const QString& password,
               const raw_http::Headers& headers = {})
{
    const QByteArray body =
        u"{\"username\":\"%1\",\"password\":\"%2\"}"_s.arg(name, password).toUtf8();
    return raw_http::post(backend.port(), "/auth/login", "application/json", body, headers);
}

bool enroll(const BackendProcess& backend, const QString& name)
{
    return raw_http::postJson(backend.port(), "/auth/register",
                              {{u"username"_s, name}, {u"password"_s, u"correct horse"_s}})
               .status == 200;
}

} // namespace

void TestBackendThrottle::doublesDelayUpToTheLongest()
{
    Clock clock;
    Throttle throttle({3, 10s}, [&clock] { return clock.now(); });
    for (int i = 0; i < 3; ++i)
        QCOMPARE(throttle.tryNow(u"a"_s), 0);
    for (const int delay : {1, 2, 4, 8, 10, 10}) {
        QCOMPARE(throttle.tryNow(u"a"_s), delay);
        // Asking too early does not make it longer.
        QCOMPARE(throttle.tryNow(u"a"_s), delay);
        clock.pass(std::chrono::seconds(delay) - 1s);
        QCOMPARE(throttle.tryNow(u"a"_s), 1);
        clock.pass(1s);
        QCOMPARE(throttle.tryNow(u"a"_s), 0);
    }
}

void TestBackendThrottle::forgetsAfterAnHour()
{
    Clock clock;
    Throttle throttle({1, 900s}, [&clock] { return clock.now(); });
    QCOMPARE(throttle.tryNow(u"a"_s), 0);
    QCOMPARE(throttle.tryNow(u"a"_s), 1);
    clock.pass(3601s);
    QCOMPARE(throttle.tryNow(u"a"_s), 0);
    QCOMPARE(throttle.tryNow(u"a"_s), 1);
}

void TestBackendThrottle::forgivesAndForgets()
{
    Clock clock;
    Throttle throttle({2, 900s}, [&clock] { return clock.now(); });
    for (int i = 0; i < 10; ++i) {
        QCOMPARE(throttle.tryNow(u"a"_s), 0);
        throttle.forgive(u"a"_s);
    }
    QCOMPARE(throttle.tryNow(u"a"_s), 0);
    QCOMPARE(throttle.tryNow(u"a"_s), 0);
    QVERIFY(throttle.tryNow(u"a"_s) > 0);
    throttle.forget(u"a"_s);
    QCOMPARE(throttle.tryNow(u"a"_s), 0);
}

void TestBackendThrottle::keepsNamesApart()
{
    Throttle throttle({1, 900s});
    QCOMPARE(throttle.tryNow(u"a"_s), 0);
    QVERIFY(throttle.tryNow(u"a"_s) > 0);
    QCOMPARE(throttle.tryNow(u"b"_s), 0);
}

void TestBackendThrottle::boundsItsMemory()
{
    Clock clock;
    Throttle throttle({1, 900s}, [&clock] { return clock.now(); });
    QCOMPARE(throttle.tryNow(u"kept"_s), 0);
    for (int i = 0; i < 120'000; ++i)
        throttle.tryNow(QString::number(i));
    QVERIFY(throttle.size() <= 50'000);
}

void TestBackendThrottle::countsWithinAnHour()
{
    Clock clock;
    HourlyCount count(2, [&clock] { return clock.now(); });
    QCOMPARE(count.tryNow(u"a"_s), 0);
    clock.pass(600s);
    QCOMPARE(count.tryNow(u"a"_s), 0);
    QCOMPARE(count.tryNow(u"a"_s), 3000);
    QCOMPARE(count.tryNow(u"b"_s), 0);
    // What came to nothing makes room.
    count.forgive(u"a"_s);
    QCOMPARE(count.tryNow(u"a"_s), 0);
    clock.pass(2999s);
    QCOMPARE(count.tryNow(u"a"_s), 1);
    clock.pass(1s);
    QCOMPARE(count.tryNow(u"a"_s), 0);
    QCOMPARE(count.tryNow(u"a"_s), 0);
    QCOMPARE(count.tryNow(u"a"_s), 3600);
    // Forgiving what is forgotten already does no harm.
    count.forgive(u"nobody"_s);
    QCOMPARE(HourlyCount(0).tryNow(u"a"_s), 0);
}

void TestBackendThrottle::boundsMemoryOfHourlyCount()
{
    Clock clock;
    HourlyCount count(2, [&clock] { return clock.now(); });
    QCOMPARE(count.tryNow(u"full"_s) + count.tryNow(u"full"_s), 0);
    for (int i = 0; i < 60'000; ++i)
        count.tryNow(QString::number(i));
    QVERIFY(count.size() <= 50'000);
    // Those that have had all of theirs are the last to be forgotten.
    QVERIFY(count.tryNow(u"full"_s) > 0);
    for (int i = 0; i < 120'000; ++i) {
        count.tryNow(QString::number(i));
        count.tryNow(QString::number(i));
    }
    QVERIFY(count.size() <= 50'000);
}

void TestBackendThrottle::answersTooManyFailures()
{
    BackendProcess backend;
    QVERIFY(backend.start());
    QVERIFY(enroll(backend, u"Target"_s));
    for (int i = 0; i < 5; ++i)
        QCOMPARE(login(backend, u"Target"_s, u"wrong password"_s).status, 401);
    // Not even the right password is looked at now.
    const RawReply slowed = login(backend, u"tARGET"_s, u"correct horse"_s);
    QCOMPARE(slowed.status, 429);
    QCOMPARE(slowed.error(), u"Too many failed logins. Try again in 1 second."_s);
    QCOMPARE(slowed.headers.value("retry-after"), "1");
    QTRY_COMPARE(login(backend, u"Target"_s, u"correct horse"_s).status, 200);
    // A login wipes the slate.
    for (int i = 0; i < 5; ++i)
        QCOMPARE(login(backend, u"Target"_s, u"wrong password"_s).status, 401);
}

void TestBackendThrottle::countsUnknownNamesAlike()
{
    BackendProcess backend;
    QVERIFY(backend.start());
    for (int i = 0; i < 5; ++i)
        QCOMPARE(login(backend, u"Nobody"_s, u"wrong password"_s).status, 401);
    QCOMPARE(login(backend, u"Nobody"_s, u"wrong password"_s).status, 429);
    // The address has its own count: other names go on for a while, then it waits as well.
    int status = 0;
    int tries = 0;
    for (; status != 429 && tries < 40; ++tries)
        status = login(backend, u"Other%1"_s.arg(tries), u"wrong password"_s).status;
    QCOMPARE(status, 429);
    QCOMPARE(tries, 16);
}

void TestBackendThrottle::believesTrustedProxyOnly()
{
    const auto failFrom = [](const BackendProcess& backend, const QByteArray& address) {
        int status = 0;
        for (int i = 0; i < 25 && status != 429; ++i)
            status = login(backend, u"N%1x%2"_s.arg(i).arg(address.size()), u"wrong password"_s,
                           {{"X-Forwarded-For", address}})
                         .status;
        return status;
    };
    const auto statusFrom = [](const BackendProcess& backend, const QByteArray& address) {
        return login(backend, u"Someone"_s, u"wrong password"_s, {{"X-Forwarded-For", address}})
            .status;
    };
    BackendProcess direct;
    QVERIFY(direct.start());
    QCOMPARE(failFrom(direct, "192.0.2.1"), 429);
    QCOMPARE(statusFrom(direct, "192.0.2.77"), 429);

    BackendProcess behind;
    QVERIFY(behind.start({u"--trusted-proxy"_s, u"127.0.0.1"_s}));
    QCOMPARE(failFrom(behind, "192.0.2.1"), 429);
    QCOMPARE(statusFrom(behind, "192.0.2.77"), 401);
    // What a client claims itself stands before what the proxy saw.
    QCOMPARE(statusFrom(behind, "192.0.2.99, 192.0.2.1"), 429);
    // One IPv6 customer has a whole network of addresses.
    QCOMPARE(failFrom(behind, "2001:db8:1:2::1"), 429);
    QCOMPARE(statusFrom(behind, "2001:db8:1:2:aaaa::9"), 429);
    QCOMPARE(statusFrom(behind, "2001:db8:1:3::1"), 401);
}

QTEST_GUILESS_MAIN(TestBackendThrottle)
#include "tst_backend_throttle.moc"
