#include "app/settings.h"
#include "services/auth_client.h"
#include "tests/support/http_server.h"
#include "tests/support/throwaway_home.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QSignalSpy>
#include <QTest>

#include <memory>

namespace {

const auto name = QStringLiteral(" bob ü ");
const auto password = QStringLiteral("p\"ä ss ");

} // namespace

class TestAuthClient : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void init()
    {
        m_server = std::make_unique<HttpServer>();
        Settings::get().setServerUrl(m_server->origin());
        m_client = std::make_unique<AuthClient>();
        m_succeeded = std::make_unique<QSignalSpy>(m_client.get(), &AuthClient::loginSucceeded);
        m_failed = std::make_unique<QSignalSpy>(m_client.get(), &AuthClient::loginFailed);
    }

    void joinsAddressAndPath()
    {
        Settings::get().setServerUrl(QStringLiteral("http://h/base/"));
        QCOMPARE(m_client->endpoint(QStringLiteral("/auth/login")),
                 QStringLiteral("http://h/base//auth/login"));
        Settings::get().setServerUrl(QString());
        QCOMPARE(m_client->endpoint(QStringLiteral("x")), QStringLiteral("x"));
    }

    void asksWithTheDoubleSlash()
    {
        Settings::get().setServerUrl(m_server->url(QStringLiteral("/base/")));
        m_client->login(name, password);
        QTRY_COMPARE(m_failed->size(), 1);
        QCOMPARE(m_server->requests().constFirst().path, QByteArray("/base//auth/login"));
    }

    void sendsCredentials_data()
    {
        QTest::addColumn<bool>("registers");
        QTest::addColumn<QByteArray>("path");
        QTest::newRow("login") << false << QByteArray("/auth/login");
        QTest::newRow("register") << true << QByteArray("/auth/register");
    }

    void sendsCredentials()
    {
        QFETCH(bool, registers);
        QFETCH(QByteArray, path);
        m_server->answer(path, HttpAnswer::json(R"({"token":"t","uuid":"u","username":"Bob"})"));
        if (registers)
            m_client->registerAccount(name, password);
        else
            m_client->login(name, password);
        QTRY_COMPARE(m_succeeded->size(), 1);
        const QVariantList session{QStringLiteral("Bob"), QStringLiteral("u"), QStringLiteral("t")};
        QCOMPARE(m_succeeded->constFirst(), session);
        QVERIFY(m_failed->isEmpty());

        QCOMPARE(m_server->requests().size(), 1);
        const HttpRequest& request = m_server->requests().constFirst();
        QCOMPARE(request.method, QByteArray("POST"));
        QCOMPARE(request.path, path);
        QCOMPARE(request.header("Content-Type"), QByteArray("application/json"));
        QVERIFY(request.header("Authorization").isNull());
        const QJsonObject expected{{QStringLiteral("username"), name},
                                   {QStringLiteral("password"), password}};
        QCOMPARE(QJsonDocument::fromJson(request.body).object(), expected);
        QVERIFY(!request.body.contains('\n'));
    }

    void writesNoSettings()
    {
        m_server->answer("/auth/login", HttpAnswer::json(R"({"token":"t","username":"Bob"})"));
        m_client->login(name, password);
        QTRY_COMPARE(m_succeeded->size(), 1);
        QCOMPARE(Settings::get().authToken(), QString());
    }

    void takesAnySuccess_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QVariantList>("session");
        const QString none;
        const QVariantList empty{none, none, none};
        QTest::newRow("an empty object") << QByteArray("{}") << empty;
        QTest::newRow("no JSON") << QByteArray("<h1>Welcome</h1>") << empty;
        QTest::newRow("nothing") << QByteArray() << empty;
        const qsizetype most = 1024 * 1024;
        QTest::newRow("a megabyte") << QByteArray("{}").leftJustified(most) << empty;
        QTest::newRow("wrong types") << QByteArray(R"({"token":1,"uuid":{},"username":"Bob"})")
                                     << QVariantList{QStringLiteral("Bob"), none, none};
    }

    void takesAnySuccess()
    {
        QFETCH(QByteArray, body);
        QFETCH(QVariantList, session);
        m_server->answer("/auth/login", HttpAnswer::json(body));
        m_client->login(name, password);
        QTRY_COMPARE(m_succeeded->size(), 1);
        QCOMPARE(m_succeeded->constFirst(), session);
        QVERIFY(m_failed->isEmpty());
    }

    void reportsFailures_data()
    {
        QTest::addColumn<HttpAnswer>("answer");
        QTest::addColumn<QString>("exactly"); // empty: the network layer's text
        const QByteArray error = R"({"error":"Wrong password"})";
        const auto text = QStringLiteral("Wrong password");
        QTest::newRow("401 with a text") << HttpAnswer::json(error, 401) << text;
        QTest::newRow("400 with a text") << HttpAnswer::json(error, 400) << text;
        QTest::newRow("500 with a text") << HttpAnswer::json(error, 500) << text;
        QTest::newRow("401 in plain words") << HttpAnswer::json("Wrong password", 401) << QString();
        QTest::newRow("empty text") << HttpAnswer::json(R"({"error":""})", 401) << QString();
        QTest::newRow("text is an object") << HttpAnswer::json(R"({"error":{}})", 401) << QString();
        QTest::newRow("500 with HTML") << HttpAnswer::htmlError() << QString();
        HttpAnswer answer = HttpAnswer::json(R"({"token":"t","uuid":"u","username":"Bob"})");
        answer.cutAfter = 10;
        QTest::newRow("closes early") << answer << QString();
        answer = HttpAnswer::json(QByteArray(1024 * 1024 + 1, ' '));
        QTest::newRow("over a megabyte")
            << answer << QStringLiteral("The server sent more than 1 MB");
    }

    void reportsFailures()
    {
        QFETCH(HttpAnswer, answer);
        QFETCH(QString, exactly);
        m_server->answer("/auth/login", answer);
        m_client->login(name, password);
        QTRY_COMPARE(m_failed->size(), 1);
        const QString message = m_failed->constFirst().constFirst().toString();
        if (exactly.isEmpty())
            QVERIFY(!message.isEmpty() && !message.contains(u"Wrong password"));
        else
            QCOMPARE(message, exactly);
        QVERIFY(m_succeeded->isEmpty());
    }

    void reportsAnOutage()
    {
        m_server->goOffline();
        m_client->login(name, password);
        QTRY_COMPARE(m_failed->size(), 1);
        QCOMPARE(m_failed->constFirst().constFirst().toString(),
                 QStringLiteral("Connection refused"));
    }

    void keepsThePasswordFromOtherServers()
    {
        HttpServer other;
        other.answer("/auth/login", HttpAnswer::json("{}"));
        m_server->answer("/auth/login",
                         HttpAnswer::redirect(other.url(QStringLiteral("/auth/login")), 307));
        m_client->login(name, password);
        QTRY_COMPARE(m_failed->size(), 1);
        QVERIFY(other.requests().isEmpty());
    }

    void validates_data()
    {
        QTest::addColumn<QString>("token");
        QTest::addColumn<HttpAnswer>("answer");
        QTest::addColumn<QByteArray>("header");
        QTest::addColumn<bool>("valid");
        const auto token = QStringLiteral("tök");
        const QByteArray header = "Bearer t\xc3\xb6k";
        QTest::newRow("good") << token << HttpAnswer::json("{}") << header << true;
        QTest::newRow("good, the body does not count")
            << token << HttpAnswer::ok("no JSON") << header << true;
        QTest::newRow("bad") << token << HttpAnswer::json("{}", 401) << header << false;
        QTest::newRow("server broken") << token << HttpAnswer::htmlError() << header << false;
        QTest::newRow("empty, accepted")
            << QString() << HttpAnswer::json("{}") << QByteArray("Bearer ") << true;
        QTest::newRow("empty, refused")
            << QString() << HttpAnswer::json("{}", 401) << QByteArray("Bearer ") << false;
    }

    void validates()
    {
        QFETCH(QString, token);
        QFETCH(HttpAnswer, answer);
        QFETCH(QByteArray, header);
        QFETCH(bool, valid);
        m_server->answer("/auth/validate", answer);
        const QSignalSpy result(m_client.get(), &AuthClient::validationResult);
        m_client->validate(token);
        QTRY_COMPARE(result.size(), 1);
        QCOMPARE(result.constFirst().constFirst().toBool(), valid);
        const HttpRequest& request = m_server->requests().constFirst();
        QCOMPARE(request.method, QByteArray("GET"));
        // Blanks at its end are no part of a field's value, and newer Qt does not send them.
        QCOMPARE(request.header("Authorization").trimmed(), header.trimmed());
        QVERIFY(request.body.isEmpty());
    }

    void readsAnOutageAsNotValid()
    {
        m_server->goOffline();
        const QSignalSpy result(m_client.get(), &AuthClient::validationResult);
        m_client->validate(QStringLiteral("t"));
        QTRY_COMPARE(result.size(), 1);
        QVERIFY(!result.constFirst().constFirst().toBool());
    }

    void logsOut_data()
    {
        QTest::addColumn<HttpAnswer>("answer");
        QTest::newRow("accepted") << HttpAnswer::json("{}");
        QTest::newRow("refused") << HttpAnswer::json("{}", 401);
        QTest::newRow("server broken") << HttpAnswer::htmlError();
    }

    void logsOut()
    {
        QFETCH(HttpAnswer, answer);
        m_server->answer("/auth/logout", answer);
        const QSignalSpy out(m_client.get(), &AuthClient::loggedOut);
        m_client->logout(QStringLiteral("t"));
        QTRY_COMPARE(out.size(), 1);
        const HttpRequest& request = m_server->requests().constFirst();
        QCOMPARE(request.method, QByteArray("POST"));
        QCOMPARE(request.path, QByteArray("/auth/logout"));
        QCOMPARE(request.header("Authorization"), QByteArray("Bearer t"));
        QVERIFY(request.header("Content-Type").isNull());
        QVERIFY(request.body.isEmpty());
    }

    void logsOutWithoutAServer()
    {
        m_server->goOffline();
        const QSignalSpy out(m_client.get(), &AuthClient::loggedOut);
        m_client->logout(QStringLiteral("t"));
        QTRY_COMPARE(out.size(), 1);
    }

    // Their bodies count for nothing, but would fill the memory all the same.
    void endsWhenAnAnswerDoesNot()
    {
        HttpAnswer endless = HttpAnswer::ok(QByteArray(64 * 1024, 'x'));
        endless.framing = HttpAnswer::Framing::UntilClose;
        endless.endless = true;
        m_server->answer("/auth/validate", endless);
        m_server->answer("/auth/logout", endless);
        const QSignalSpy result(m_client.get(), &AuthClient::validationResult);
        const QSignalSpy out(m_client.get(), &AuthClient::loggedOut);
        m_client->validate(QStringLiteral("t"));
        m_client->logout(QStringLiteral("t"));
        QTRY_COMPARE(result.size(), 1);
        QVERIFY(!result.first().first().toBool());
        QTRY_COMPARE(out.size(), 1);
    }

    void answersEveryRequest()
    {
        m_server->answer("/auth/login", HttpAnswer::json("{}"));
        m_client->login(name, password);
        m_client->login(name, password);
        m_client->registerAccount(name, password);
        QTRY_COMPARE(m_succeeded->size() + m_failed->size(), 3);
        QCOMPARE(m_succeeded->size(), 2);
    }

    void canBeDestroyedWhileAServerStalls()
    {
        m_server->answer("/auth/login", HttpAnswer::silence());
        m_client->login(name, password);
        QTRY_COMPARE(m_server->requests().size(), 1);
        m_client.reset();
        QCoreApplication::processEvents();
        QVERIFY(m_succeeded->isEmpty() && m_failed->isEmpty());
    }

private:
    std::unique_ptr<HttpServer> m_server;
    std::unique_ptr<AuthClient> m_client;
    std::unique_ptr<QSignalSpy> m_succeeded;
    std::unique_ptr<QSignalSpy> m_failed;
};

QTEST_GUILESS_MAIN(TestAuthClient)
#include "tst_auth_client.moc"
