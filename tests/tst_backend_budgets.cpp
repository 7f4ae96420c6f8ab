#include "tests/support/backend_process.h"
#include "tests/support/raw_client.h"

#include <QJsonDocument>
#include <QRegularExpression>
#include <QSet>
#include <QTest>

#include <memory>
#include <vector>

using namespace Qt::StringLiterals;

// What one account or one address may do within some time. Time passes by moving the stored times
// back.
class TestBackendBudgets : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void countsUploadsByTheHour();
    void countsBytesOfUploads();
    void letsOneOfManyUploadsHaveTheLastPlace();
    void endsSessionUsedLeastLately();
    void keepsSessionsWithinBudgetTogether();
    void countsRegistrationsOfAddress();
    void countsRegistrationsOfNetwork();
    void letsOneOfManyRegistrationsHaveTheLastPlace();
    void countsRenamesOfDay();
    void letsOneOfManyRenamesHaveTheLastPlace();
    void letsOneOfManyHaveTheName();
    void keepsFormerNameForItsOwner();
    void freesFormerNameAfterThirtyDays();
    void letsNobodySlipIntoNameThatIsGivenUp();
    void toleratesClockThatJumps();
    void knowsNoLimitAtZero();
    void refusesOddBudgets_data();
    void refusesOddBudgets();

private:
    QByteArray enroll(const QString& name);
    RawReply login(const QString& name);
    RawReply upload(const QByteArray& token, int number = 0);
    RawReply rename(const QByteArray& token, const QString& name);
    int validate(const QByteArray& token);
    QByteArrayList together(const QByteArrayList& requests);

    std::unique_ptr<BackendProcess> m_backend;
};

namespace {

constexpr int day = 24 * 60 * 60;

QByteArray model(int number)
{
    return R"({"elements":[{"box_uv":true,"from":[0,0,0],"to":[1,1,)" + QByteArray::number(number) +
           "]}]}";
}

QJsonObject credentials(const QString& name)
{
    return {{u"username"_s, name}, {u"password"_s, u"correct horse"_s}};
}

QByteArray tokenOf(const RawReply& reply)
{
    return reply.json()[u"token"_s].toString().toLatin1();
}

QByteArray request(const QByteArray& path, const QByteArray& body, const QByteArray& token = {})
{
    const QByteArray bearer =
        token.isEmpty() ? QByteArray() : "Authorization: Bearer " + token + "\r\n";
    return "POST " + path + " HTTP/1.1\r\nHost: x\r\n" + bearer +
           "Content-Type: application/json\r\nContent-Length: " + QByteArray::number(body.size()) +
           "\r\n\r\n" + body;
}

QByteArray request(const QByteArray& path, const QJsonObject& body, const QByteArray& token = {})
{
    return request(path, QJsonDocument(body).toJson(QJsonDocument::Compact), token);
}

// Whether it tells when to come again, within that time.
bool isLater(const RawReply& reply, int longest)
{
    const int seconds = reply.headers.value("retry-after").toInt();
    return reply.status == 429 && seconds > 0 && seconds <= longest;
}

} // namespace

void TestBackendBudgets::init()
{
    m_backend = std::make_unique<BackendProcess>();
}

QByteArray TestBackendBudgets::enroll(const QString& name)
{
    return tokenOf(raw_http::postJson(m_backend->port(), "/auth/register", credentials(name)));
}

RawReply TestBackendBudgets::login(const QString& name)
{
    return raw_http::postJson(m_backend->port(), "/auth/login", credentials(name));
}

RawReply TestBackendBudgets::upload(const QByteArray& token, int number)
{
    return raw_http::post(m_backend->port(), "/models/upload", "application/json", model(number),
                          {raw_http::bearer(token)});
}

RawReply TestBackendBudgets::rename(const QByteArray& token, const QString& name)
{
    return raw_http::postJson(m_backend->port(), "/auth/rename", {{u"username"_s, name}}, token);
}

int TestBackendBudgets::validate(const QByteArray& token)
{
    return raw_http::get(m_backend->port(), "/auth/validate", {raw_http::bearer(token)}).status;
}

// All requests are on their way before the first answer is read.
QByteArrayList TestBackendBudgets::together(const QByteArrayList& requests)
{
    std::vector<std::unique_ptr<RawClient>> clients;
    for (const QByteArray& one : requests) {
        clients.push_back(std::make_unique<RawClient>(m_backend->port()));
        clients.back()->send(one);
    }
    QByteArrayList statuses;
    for (const auto& client : clients)
        statuses.append(client->readUntil("}").mid(9, 3));
    return statuses;
}

void TestBackendBudgets::countsUploadsByTheHour()
{
    const QStringList options{u"--max-account-uploads"_s, u"3"_s};
    QVERIFY2(m_backend->start(options), m_backend->output().constData());
    const QByteArray token = enroll(u"Eager"_s);
    const QByteArray other = enroll(u"Other"_s);
    QCOMPARE(upload(token, 1).status, 200);
    // Looking at it is what costs: one that is refused counts too.
    QCOMPARE(raw_http::post(m_backend->port(), "/skins/upload", "image/png", "no picture",
                            {raw_http::bearer(token)})
                 .status,
             422);
    QCOMPARE(upload(token, 3).status, 200);
    const RawReply refused = upload(token, 4);
    QVERIFY2(isLater(refused, 3600), refused.whole.constData());
    const QRegularExpression form(u"^Too many uploads\\. Try again in (59|60) minutes\\.$"_s);
    QVERIFY2(form.match(refused.error()).hasMatch(), refused.whole.constData());
    QCOMPARE(upload(other).status, 200);
    // A restart forgets nothing.
    QCOMPARE(m_backend->stop(), 0);
    QVERIFY(m_backend->start(options));
    QVERIFY(isLater(upload(token, 4), 3600));
    QVERIFY(m_backend->runSql(u"UPDATE spendings SET spent_at = spent_at - 3540"_s));
    QVERIFY(isLater(upload(token, 4), 60));
    QVERIFY(m_backend->runSql(u"UPDATE spendings SET spent_at = spent_at - 60"_s));
    QCOMPARE(upload(token, 4).status, 200);
}

void TestBackendBudgets::countsBytesOfUploads()
{
    QVERIFY(m_backend->start({u"--max-account-upload-volume"_s, u"1"_s}));
    const QByteArray token = enroll(u"Heavy"_s);
    const QByteArray padded =
        model(1).chopped(1) + R"(,"more":")" + QByteArray(700'000, 'x') + "\"}";
    const auto send = [&] {
        return raw_http::post(m_backend->port(), "/models/upload", "application/json", padded,
                              {raw_http::bearer(token)});
    };
    // The one that exceeds it is the last: nobody is kept from an upload by its size alone.
    QCOMPARE(send().status, 200);
    QCOMPARE(send().status, 200);
    QVERIFY(isLater(send(), 3600));
    QVERIFY(isLater(upload(token), 3600));
}

void TestBackendBudgets::letsOneOfManyUploadsHaveTheLastPlace()
{
    QVERIFY(m_backend->start({u"--max-account-uploads"_s, u"3"_s}));
    const QByteArray token = enroll(u"Hasty"_s);
    QByteArrayList requests;
    for (int i = 0; i < 12; ++i)
        requests.append(request("/models/upload", model(i), token));
    const QByteArrayList statuses = together(requests);
    QVERIFY2(statuses.count("200") == 3 && statuses.count("429") == 9,
             statuses.join(' ').constData());
}

void TestBackendBudgets::endsSessionUsedLeastLately()
{
    QVERIFY(m_backend->start({u"--max-account-sessions"_s, u"3"_s}));
    const QByteArray first = enroll(u"Traveller"_s);
    const QByteArray second = tokenOf(login(u"Traveller"_s));
    const QByteArray other = enroll(u"Neighbour"_s);
    QVERIFY(m_backend->runSql(u"UPDATE sessions SET last_used = last_used - 7200"_s));
    // A use makes it younger than the second.
    QCOMPARE(validate(first), 200);
    const QByteArray third = tokenOf(login(u"Traveller"_s));
    QCOMPARE(validate(second), 200);
    QVERIFY(m_backend->runSql(u"UPDATE sessions SET last_used = last_used - 7200"_s));
    QCOMPARE(validate(first), 200);
    QCOMPARE(validate(third), 200);
    // The newest stays, even where a clock that was put back makes it the oldest.
    QVERIFY(m_backend->runSql(u"UPDATE sessions SET last_used = last_used + 86400"_s));
    const QByteArray fourth = tokenOf(login(u"Traveller"_s));
    QCOMPARE(validate(second), 401);
    QCOMPARE(validate(first), 200);
    QCOMPARE(validate(third), 200);
    QCOMPARE(validate(fourth), 200);
    QCOMPARE(validate(other), 200);
}

void TestBackendBudgets::keepsSessionsWithinBudgetTogether()
{
    QVERIFY(m_backend->start({u"--max-account-sessions"_s, u"2"_s}));
    QVERIFY(!enroll(u"Popular"_s).isEmpty());
    const QByteArrayList statuses =
        together(QByteArrayList(10, request("/auth/login", credentials(u"Popular"_s))));
    QVERIFY2(statuses.count("200") > 2, statuses.join(' ').constData());
    const auto listed = m_backend->command({u"accounts"_s, u"list"_s});
    QVERIFY2(listed.output.contains(" 2 sessions"), listed.output.constData());
}

void TestBackendBudgets::countsRegistrationsOfAddress()
{
    QVERIFY(m_backend->start({u"--max-address-registrations"_s, u"2"_s}));
    QVERIFY(!enroll(u"First"_s).isEmpty());
    // What comes to nothing does not count.
    for (const QString& name : {u"First"_s, u"no"_s}) {
        const int status =
            raw_http::postJson(m_backend->port(), "/auth/register", credentials(name)).status;
        QVERIFY(status == 400 || status == 409);
    }
    QVERIFY(!enroll(u"Second"_s).isEmpty());
    const RawReply refused =
        raw_http::postJson(m_backend->port(), "/auth/register", credentials(u"Third"_s));
    QVERIFY2(isLater(refused, 3600), refused.whole.constData());
    QCOMPARE(refused.error(),
             u"Too many registrations from this address. Try again in 60 minutes."_s);
    // Logging in has a budget of its own, and so has another address.
    QCOMPARE(login(u"First"_s).status, 200);
    const RawClient elsewhere(m_backend->port(), "127.0.0.2");
    elsewhere.send(request("/auth/register", credentials(u"Third"_s)));
    QVERIFY(elsewhere.readUntil("}").startsWith("HTTP/1.1 200"));
}

void TestBackendBudgets::countsRegistrationsOfNetwork()
{
    QVERIFY(m_backend->start(
        {u"--max-address-registrations"_s, u"1"_s, u"--trusted-proxy"_s, u"127.0.0.1"_s}));
    const auto from = [this](const QByteArray& address) {
        static int number = 0;
        const QByteArray body =
            QJsonDocument(credentials(u"Net%1"_s.arg(++number))).toJson(QJsonDocument::Compact);
        return raw_http::post(m_backend->port(), "/auth/register", "application/json", body,
                              {{"X-Forwarded-For", address}})
            .status;
    };
    QCOMPARE(from("2001:db8:1:2::1"), 200);
    QCOMPARE(from("2001:db8:1:2:aaaa::9"), 429);
    QCOMPARE(from("192.0.2.9, 2001:db8:1:2::3"), 429);
    QCOMPARE(from("2001:db8:1:3::1"), 200);
    QCOMPARE(from("192.0.2.1"), 200);
    QCOMPARE(from("::ffff:192.0.2.1"), 429);
}

void TestBackendBudgets::letsOneOfManyRegistrationsHaveTheLastPlace()
{
    QVERIFY(m_backend->start({u"--max-address-registrations"_s, u"2"_s}));
    QByteArrayList requests;
    for (int i = 0; i < 8; ++i)
        requests.append(request("/auth/register", credentials(u"Crowd%1"_s.arg(i))));
    const QByteArrayList statuses = together(requests);
    QVERIFY2(statuses.count("200") == 2 && statuses.count("429") == 6,
             statuses.join(' ').constData());
}

void TestBackendBudgets::countsRenamesOfDay()
{
    const QStringList options{u"--max-account-renames"_s, u"2"_s};
    QVERIFY(m_backend->start(options));
    const QByteArray token = enroll(u"Fickle"_s);
    QCOMPARE(rename(token, u"Fickle1"_s).status, 200);
    // What comes to nothing does not count.
    QVERIFY(!enroll(u"Taken"_s).isEmpty());
    QCOMPARE(rename(token, u"taken"_s).status, 409);
    QCOMPARE(rename(token, u"Fickle2"_s).status, 200);
    const RawReply refused = rename(token, u"Fickle3"_s);
    QVERIFY2(isLater(refused, day), refused.whole.constData());
    QCOMPARE(refused.error(), u"Too many changes of the username. Try again in 24 hours."_s);
    QCOMPARE(login(u"Fickle2"_s).status, 200);
    QCOMPARE(m_backend->stop(), 0);
    QVERIFY(m_backend->start(options));
    QVERIFY(isLater(rename(token, u"Fickle3"_s), day));
    QVERIFY(m_backend->runSql(u"UPDATE spendings SET spent_at = spent_at - 86400"_s));
    QCOMPARE(rename(token, u"Fickle3"_s).status, 200);
}

void TestBackendBudgets::letsOneOfManyRenamesHaveTheLastPlace()
{
    QVERIFY(m_backend->start({u"--max-account-renames"_s, u"1"_s}));
    const QByteArray token = enroll(u"Undecided"_s);
    QByteArrayList requests;
    for (int i = 0; i < 8; ++i)
        requests.append(
            request("/auth/rename", QJsonObject{{u"username"_s, u"Decided%1"_s.arg(i)}}, token));
    const QByteArrayList statuses = together(requests);
    QVERIFY2(statuses.count("200") == 1 && statuses.count("429") == 7,
             statuses.join(' ').constData());
}

void TestBackendBudgets::letsOneOfManyHaveTheName()
{
    QVERIFY(m_backend->start());
    QByteArrayList requests;
    for (int i = 0; i < 6; ++i)
        requests.append(request("/auth/rename", QJsonObject{{u"username"_s, u"Wanted"_s}},
                                enroll(u"Wanting%1"_s.arg(i))));
    const QByteArrayList statuses = together(requests);
    QVERIFY2(statuses.count("200") == 1 && statuses.count("409") == 5,
             statuses.join(' ').constData());
}

void TestBackendBudgets::keepsFormerNameForItsOwner()
{
    QVERIFY(m_backend->start());
    const QByteArray owner = enroll(u"Famous"_s);
    const QByteArray stranger = enroll(u"Stranger"_s);
    QCOMPARE(rename(owner, u"Incognito"_s).status, 200);
    const QString kept = u"That username is kept for its former owner for a while."_s;
    const RawReply refused =
        raw_http::postJson(m_backend->port(), "/auth/register", credentials(u"fAMOUS"_s));
    QCOMPARE(refused.status, 409);
    QCOMPARE(refused.error(), kept);
    QCOMPARE(rename(stranger, u"FAMOUS"_s).status, 409);
    QCOMPARE(rename(stranger, u"FAMOUS"_s).error(), kept);
    QCOMPARE(login(u"Stranger"_s).status, 200);
    QCOMPARE(m_backend->stop(), 0);
    QVERIFY(m_backend->start());
    QCOMPARE(rename(stranger, u"Famous"_s).status, 409);
    // Its owner may have it back, and then the other one is kept.
    QCOMPARE(rename(owner, u"Famous"_s).status, 200);
    QCOMPARE(rename(stranger, u"Incognito"_s).status, 409);
    QCOMPARE(rename(stranger, u"Famous"_s).error(), u"That username is taken."_s);
    // Another case is no other name.
    QCOMPARE(rename(owner, u"FAMOUS"_s).status, 200);
    QCOMPARE(rename(owner, u"Famous"_s).status, 200);
}

void TestBackendBudgets::freesFormerNameAfterThirtyDays()
{
    QVERIFY(m_backend->start());
    const QByteArray owner = enroll(u"Leaving"_s);
    QCOMPARE(rename(owner, u"Gone"_s).status, 200);
    const auto pass = [this](int seconds) {
        return m_backend->runSql(u"UPDATE former_names SET since = since - %1"_s.arg(seconds));
    };
    QVERIFY(pass(30 * day - 60));
    const QByteArray stranger = enroll(u"Stranger"_s);
    QCOMPARE(rename(stranger, u"Leaving"_s).status, 409);
    // Free at that time, whether or not it has been swept; and now it is the stranger's to keep.
    QVERIFY(pass(60));
    QCOMPARE(rename(stranger, u"Leaving"_s).status, 200);
    QCOMPARE(rename(owner, u"Leaving"_s).status, 409);
    QCOMPARE(rename(stranger, u"Arriving"_s).status, 200);
    QCOMPARE(rename(owner, u"Leaving"_s).status, 409);
    QVERIFY(pass(30 * day));
    QVERIFY(!enroll(u"Leaving"_s).isEmpty());
    // The sweep that a start begins with, and that ends with this file, forgets what is free: put
    // back in time, it is free still.
    QCOMPARE(m_backend->stop(), 0);
    QFile scratch(m_backend->data() + u"/tmp/left-by-a-crash"_s);
    QVERIFY(scratch.open(QIODevice::WriteOnly));
    QVERIFY(m_backend->start());
    QTRY_VERIFY(!scratch.exists());
    QVERIFY(pass(-30 * day));
    QVERIFY(!enroll(u"Stranger"_s).isEmpty());
}

// Who renames and who wants the name, at the same moment, again and again.
void TestBackendBudgets::letsNobodySlipIntoNameThatIsGivenUp()
{
    QVERIFY(m_backend->start(
        {u"--max-account-renames"_s, u"0"_s, u"--max-address-registrations"_s, u"0"_s}));
    const QByteArray owner = enroll(u"Owner"_s);
    QByteArrayList strangers;
    for (int i = 0; i < 3; ++i)
        strangers.append(enroll(u"Stranger%1"_s.arg(i)));
    QString name = u"Owner"_s;
    for (int i = 0; i < 10; ++i) {
        const QString next = u"Owner%1"_s.arg(i);
        QByteArrayList requests{request("/auth/rename", QJsonObject{{u"username"_s, next}}, owner)};
        for (const QByteArray& stranger : std::as_const(strangers))
            requests.append(request("/auth/rename", QJsonObject{{u"username"_s, name}}, stranger));
        requests.append(request("/auth/register", credentials(name)));
        QCOMPARE(together(requests), (QByteArrayList{"200", "409", "409", "409", "409"}));
        name = next;
    }
}

void TestBackendBudgets::toleratesClockThatJumps()
{
    QVERIFY(
        m_backend->start({u"--max-account-uploads"_s, u"1"_s, u"--max-account-renames"_s, u"1"_s}));
    const QByteArray token = enroll(u"Early"_s);
    QCOMPARE(upload(token).status, 200);
    QCOMPARE(rename(token, u"Late"_s).status, 200);
    // What was counted by a clock that ran a little ahead counts; by one that was wrong, not.
    QVERIFY(m_backend->runSql(u"UPDATE spendings SET spent_at = spent_at + 1800"_s));
    QVERIFY(isLater(upload(token), 2 * 3600));
    QVERIFY(m_backend->runSql(u"UPDATE spendings SET spent_at = spent_at + 100000000"_s));
    QCOMPARE(upload(token).status, 200);
    QCOMPARE(rename(token, u"Later"_s).status, 200);
    QVERIFY(isLater(rename(token, u"Latest"_s), day));
    // A name is kept rather too long than not at all.
    QVERIFY(m_backend->runSql(u"UPDATE former_names SET since = since + 100000000"_s));
    QCOMPARE(
        raw_http::postJson(m_backend->port(), "/auth/register", credentials(u"Early"_s)).status,
        409);
}

void TestBackendBudgets::knowsNoLimitAtZero()
{
    QVERIFY(
        m_backend->start({u"--max-account-uploads"_s, u"0"_s, u"--max-account-upload-volume"_s,
                          u"0"_s, u"--max-account-sessions"_s, u"0"_s, u"--max-account-renames"_s,
                          u"0"_s, u"--max-address-registrations"_s, u"0"_s}));
    QByteArray token;
    for (int i = 0; i < 22; ++i)
        QVERIFY(!(token = enroll(u"Free%1"_s.arg(i))).isEmpty());
    for (int i = 0; i < 62; ++i)
        QCOMPARE(upload(token, i).status, 200);
    for (int i = 0; i < 22; ++i)
        QCOMPARE(rename(token, u"Freer%1"_s.arg(i)).status, 200);
    for (int i = 0; i < 22; ++i)
        QCOMPARE(login(u"Freer21"_s).status, 200);
    QCOMPARE(validate(token), 200);
}

void TestBackendBudgets::refusesOddBudgets_data()
{
    QTest::addColumn<QString>("option");
    for (const char* option :
         {"max-account-uploads", "max-account-upload-volume", "max-account-sessions",
          "max-account-renames", "max-address-registrations"})
        QTest::newRow(option) << QString::fromLatin1(option);
}

void TestBackendBudgets::refusesOddBudgets()
{
    QFETCH(QString, option);
    for (const QString& value : {u"-1"_s, u"many"_s, u"1000001"_s}) {
        const auto run = m_backend->command({u"serve"_s, QString(u"--%1=%2"_s.arg(option, value))});
        QCOMPARE(run.exitCode, 2);
        QVERIFY2(run.errors.contains("must be a number between 0 and 1000000."),
                 run.errors.constData());
    }
}

QTEST_GUILESS_MAIN(TestBackendBudgets)
#include "tst_backend_budgets.moc"
