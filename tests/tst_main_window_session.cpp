#include "app/settings.h"
#include "services/auth_client.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/window_driver.h"
#include "ui/main_window.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>

// Sign-in and sign-out by mouse and keys, against a real server.
class TestMainWindowSession : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void init() { m_driver = std::make_unique<WindowDriver>(); }
    void cleanup() { m_driver.reset(); }

    void signsInAndOut_data()
    {
        QTest::addColumn<QByteArray>("path");
        QTest::addColumn<QByteArray>("button");
        QTest::addColumn<QString>("busyText");
        QTest::newRow("login") << QByteArray("/auth/login") << QByteArray("loginButton")
                               << QStringLiteral("Logging in...");
        QTest::newRow("register") << QByteArray("/auth/register") << QByteArray("registerButton")
                                  << QStringLiteral("Registering...");
    }

    void signsInAndOut()
    {
        QFETCH(QByteArray, path);
        QFETCH(QByteArray, button);
        QFETCH(QString, busyText);
        m_driver->server().answer(path, session("Ada", "u-1", "t-1"));
        m_driver->server().answer("/auth/logout", HttpAnswer::json("{}"));
        m_driver->openAndWait();
        m_driver->type("usernameField", QStringLiteral("  ada "));
        m_driver->type("passwordField", QStringLiteral(" pass word "));
        m_driver->click(button.constData());
        QCOMPARE(m_driver->status(), busyText);
        QVERIFY(!m_driver->play()->isEnabled());
        QVERIFY(m_driver->findWidget("progressBar")->isVisible());
        QVERIFY(m_driver->findWidget("usernameField")->isVisible());

        QTRY_COMPARE(m_driver->status(), QStringLiteral("Logged in as Ada"));
        QCOMPARE(bodyOf(path),
                 (QJsonObject{{QStringLiteral("username"), QStringLiteral("ada")},
                              {QStringLiteral("password"), QStringLiteral(" pass word ")}}));
        QCOMPARE(Settings::get().authToken(), QStringLiteral("t-1"));
        QCOMPARE(Settings::get().authUsername(), QStringLiteral("Ada"));
        QCOMPARE(Settings::get().authUuid(), QStringLiteral("u-1"));
        verifySignedIn();
        QCOMPARE(m_driver->find<QLabel>("authLabel")->text(),
                 QStringLiteral("Playing as <b>Ada</b>"));
        QCOMPARE(m_driver->find<QLineEdit>("passwordField")->text(), QString());
        QCOMPARE(m_driver->find<QLineEdit>("usernameField")->text(), QStringLiteral("  ada "));

        m_driver->click("logoutButton");
        // Nothing changes before the answer.
        verifySignedIn();
        QCOMPARE(Settings::get().authToken(), QStringLiteral("t-1"));
        QTRY_COMPARE(m_driver->status(), QStringLiteral("Logged out"));
        QCOMPARE(m_driver->server().requests().last().header("Authorization"),
                 QByteArray("Bearer t-1"));
        verifySignedOut();
        QCOMPARE(Settings::get().authToken(), QString());
    }

    void refusesAnEmptyField_data()
    {
        QTest::addColumn<QString>("username");
        QTest::addColumn<QString>("password");
        QTest::newRow("both empty") << QString() << QString();
        QTest::newRow("no password") << QStringLiteral("ada") << QString();
        QTest::newRow("no name") << QString() << QStringLiteral("pw");
        QTest::newRow("a name of blanks") << QStringLiteral("   ") << QStringLiteral("pw");
    }

    void refusesAnEmptyField()
    {
        QFETCH(QString, username);
        QFETCH(QString, password);
        m_driver->openAndWait();
        m_driver->type("usernameField", username);
        m_driver->type("passwordField", password);
        for (const char* button : {"loginButton", "registerButton"}) {
            m_driver->click("consoleButton");
            m_driver->click(button);
            QCOMPARE(m_driver->status(), QStringLiteral("Enter username and password"));
            QVERIFY(m_driver->findWidget("progressBar")->isHidden());
        }
        QCOMPARE(m_driver->server().requestCount("/auth/login"), 0);
        QCOMPARE(m_driver->server().requestCount("/auth/register"), 0);
    }

    void takesAPasswordOfBlanks()
    {
        m_driver->server().answer("/auth/login", session("Ada", "u-1", "t-1"));
        m_driver->openAndWait();
        m_driver->type("usernameField", QStringLiteral("ada"));
        m_driver->type("passwordField", QStringLiteral("  "));
        m_driver->click("loginButton");
        QTRY_COMPARE(m_driver->status(), QStringLiteral("Logged in as Ada"));
        QCOMPARE(bodyOf("/auth/login")[u"password"].toString(), QStringLiteral("  "));
    }

    void logsInByReturnInThePasswordFieldOnly()
    {
        m_driver->server().answer("/auth/login", session("Ada", "u-1", "t-1"));
        m_driver->openAndWait();
        const QString before = m_driver->status();
        m_driver->type("passwordField", QStringLiteral("pw"));
        m_driver->type("usernameField", QStringLiteral("ada"));
        QTest::keyClick(m_driver->findWidget("usernameField"), Qt::Key_Return);
        QCOMPARE(m_driver->status(), before);
        QTest::keyClick(m_driver->findWidget("passwordField"), Qt::Key_Return);
        QCOMPARE(m_driver->status(), QStringLiteral("Logging in..."));
        QTRY_COMPARE(m_driver->status(), QStringLiteral("Logged in as Ada"));
        QCOMPARE(m_driver->server().requestCount("/auth/login"), 1);
    }

    void saysWhyASignInFailed_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("status");
        QTest::newRow("the server's words") << QByteArray("{\"error\":\"Wrong password\"}")
                                            << QStringLiteral("Login failed: Wrong password");
        QTest::newRow("markup in the server's words")
            << QByteArray("{\"error\":\"<img src='file:///etc/passwd'> <b>no</b>\"}")
            << QStringLiteral("Login failed: <img src='file:///etc/passwd'> <b>no</b>");
    }

    void saysWhyASignInFailed()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, status);
        for (const char* path : {"/auth/login", "/auth/register"})
            m_driver->server().answer(path, HttpAnswer::json(body, 401));
        m_driver->openAndWait();
        for (const char* button : {"loginButton", "registerButton"}) {
            m_driver->type("usernameField", QStringLiteral("ada"));
            m_driver->type("passwordField", QStringLiteral("pw"));
            m_driver->click(button);
            QTRY_COMPARE(m_driver->status(), status);
            QVERIFY(m_driver->findWidget("progressBar")->isHidden());
            QVERIFY(m_driver->play()->isEnabled());
            QCOMPARE(m_driver->find<QLineEdit>("usernameField")->text(), QStringLiteral("ada"));
            QCOMPARE(m_driver->find<QLineEdit>("passwordField")->text(), QStringLiteral("pw"));
            verifySignedOut();
        }
        QCOMPARE(m_driver->statusLabel()->textFormat(), Qt::PlainText);
    }

    void reportsANetworkFailureInTheNetworksWords()
    {
        m_driver->openAndWait();
        m_driver->server().goOffline();
        m_driver->type("usernameField", QStringLiteral("ada"));
        m_driver->type("passwordField", QStringLiteral("pw"));
        m_driver->click("loginButton");
        QTRY_COMPARE(m_driver->status(), QStringLiteral("Login failed: Connection refused"));
    }

    void showsANameWithMarkupLiterally()
    {
        Settings::get().setAuth(QStringLiteral("t"), QStringLiteral("<i>A&B</i>"),
                                QStringLiteral("u"));
        m_driver->server().answer("/auth/validate", HttpAnswer::json("{}"));
        m_driver->open();
        auto* label = m_driver->find<QLabel>("authLabel");
        QCOMPARE(label->text(), QStringLiteral("Playing as <b>&lt;i&gt;A&amp;B&lt;/i&gt;</b>"));
        QCOMPARE(label->textFormat(), Qt::RichText);
    }

    void asksTheServerAboutAStoredSession()
    {
        m_driver->storeSession();
        m_driver->open();
        QSignalSpy answered(&m_driver->auth(), &AuthClient::validationResult);
        QTRY_COMPARE(answered.size(), 1);
        QCOMPARE(m_driver->server().requestCount("/auth/validate"), 1);
        verifySignedIn();
        QCOMPARE(Settings::get().authToken(), QStringLiteral("secret"));
    }

    void dropsAStoredSessionThatTheServerRefusesWithoutAWord()
    {
        m_driver->storeSession();
        m_driver->server().answer("/auth/validate",
                                  HttpAnswer::json("{\"error\":\"expired\"}", 401));
        m_driver->server().answer("/manifest.json", HttpAnswer::silence());
        m_driver->open();
        verifySignedIn();
        QTRY_VERIFY(m_driver->findWidget("usernameField")->isVisible());
        verifySignedOut();
        QCOMPARE(m_driver->status(), QStringLiteral("Checking for versions..."));
        QCOMPARE(Settings::get().authToken(), QString());
        QCOMPARE(Settings::get().authUsername(), QString());
    }

    void logsOutAtOnceWhenNoTokenIsStored()
    {
        m_driver->storeSession();
        m_driver->openAndWait();
        const QString before = m_driver->status();
        Settings::get().clearAuth(); // another program's doing: a stale screen
        m_driver->click("logoutButton");
        verifySignedOut();
        QCOMPARE(m_driver->status(), before);
        QCOMPARE(m_driver->server().requestCount("/auth/logout"), 0);
    }

    void logsOutWhateverTheServerSays()
    {
        m_driver->storeSession();
        m_driver->openAndWait();
        m_driver->server().goOffline();
        m_driver->click("logoutButton");
        QTRY_COMPARE(m_driver->status(), QStringLiteral("Logged out"));
        verifySignedOut();
    }

    void staysOnTheAccountPageAfterSigningOut()
    {
        m_driver->storeSession();
        m_driver->server().answer("/auth/logout", HttpAnswer::json("{}"));
        m_driver->openAndWait();
        m_driver->click(m_driver->nav("Profile"));
        QCOMPARE(m_driver->page(), 4);
        m_driver->click("logoutButton");
        QTRY_COMPARE(m_driver->status(), QStringLiteral("Logged out"));
        QCOMPARE(m_driver->page(), 4);
    }

    // The account page announces a new name through the client's own signal.
    void takesOverANewName()
    {
        m_driver->storeSession();
        m_driver->openAndWait();
        Q_EMIT m_driver->auth().loginSucceeded(QStringLiteral("Grace"), QStringLiteral("uuid-1"),
                                               QStringLiteral("secret"));
        QCOMPARE(m_driver->find<QLabel>("authLabel")->text(),
                 QStringLiteral("Playing as <b>Grace</b>"));
        QCOMPARE(Settings::get().authUsername(), QStringLiteral("Grace"));
        QCOMPARE(m_driver->status(), QStringLiteral("Logged in as Grace"));
    }

private:
    static HttpAnswer session(const char* username, const char* uuid, const char* token)
    {
        const QJsonObject answer{{QStringLiteral("username"), QLatin1String(username)},
                                 {QStringLiteral("uuid"), QLatin1String(uuid)},
                                 {QStringLiteral("token"), QLatin1String(token)}};
        return HttpAnswer::json(QJsonDocument(answer).toJson());
    }

    QJsonObject bodyOf(const QByteArray& path)
    {
        for (const HttpRequest& request : m_driver->server().requests()) {
            if (request.path == path)
                return QJsonDocument::fromJson(request.body).object();
        }
        return {};
    }

    void verifyVisible(bool signedIn)
    {
        for (const char* name : {"usernameField", "passwordField", "loginButton", "registerButton"})
            QCOMPARE(m_driver->findWidget(name)->isVisible(), !signedIn);
        for (const char* name : {"authLabel", "logoutButton", "playButton"})
            QCOMPARE(m_driver->findWidget(name)->isVisible(), signedIn);
        QCOMPARE(m_driver->nav("Profile")->isVisible(), signedIn);
    }
    void verifySignedIn() { verifyVisible(true); }
    void verifySignedOut() { verifyVisible(false); }

    std::unique_ptr<WindowDriver> m_driver;
};

QTEST_MAIN(TestMainWindowSession)
#include "tst_main_window_session.moc"
