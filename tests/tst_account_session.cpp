#include "app/settings.h"
#include "services/account_session.h"
#include "services/auth_client.h"
#include "tests/support/file_dialog_script.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/window_driver.h"
#include "ui/main_window.h"

#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QPushButton>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

// What becomes of answers that come too late, for another account or in the wrong order, in the
// real window.
class TestAccountSession : public QObject
{
    Q_OBJECT

public:
    static void initMain()
    {
        throwaway_home::enter();
        QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
    }

private Q_SLOTS:
    void init()
    {
        m_driver = std::make_unique<WindowDriver>();
        for (const char* path : {"/auth/login", "/auth/logout", "/auth/validate", "/auth/rename",
                                 "/skins/upload", "/models/upload"})
            server().answer(path, HttpAnswer::silence());
        m_file = std::make_unique<QTemporaryDir>();
        QFile file(picked());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("x");
    }
    void cleanup() { m_driver.reset(); }

    // Whoever hears of the end may ask for something at once.
    void hasTheNextSessionReadyWhenOneEnds()
    {
        AccountSession session(nullptr);
        session.follow(QStringLiteral("t-a"));
        const QPointer<QObject> earlier = session.context();
        const QPointer<QObject> kind = session.renew(nullptr);
        QList<QObject*> later;
        connect(&session, &AccountSession::ended, this, [&] {
            QVERIFY(!earlier && !kind);
            later << session.context();
            session.follow(QStringLiteral("t-b")); // as everyone does who hears of it
        });
        session.follow(QStringLiteral("t-b"));
        QCOMPARE(later, QList<QObject*>{session.context()});
    }

    void keepsBobWhenTheStoredTokenIsRefusedLate()
    {
        storeAlice();
        m_driver->openAndWait();
        QTRY_COMPARE(server().requestCount("/auth/validate"), 1);
        logOut();
        signInBob();
        const QString uuid = text("uuid");
        (void)server().answerHeld("/auth/validate", HttpAnswer::json("{}", 401));
        settle();
        verifyBob();
        QCOMPARE(text("uuid"), uuid);
    }

    void takesEachLogoutForItsOwnSession()
    {
        storeAlice();
        m_driver->openAndWait();
        m_driver->click("logoutButton");
        m_driver->click("logoutButton");
        QTRY_COMPARE(server().requestCount("/auth/logout"), 2);
        QVERIFY(server().answerHeld("/auth/logout", HttpAnswer::json("{}")));
        QTRY_COMPARE(m_driver->status(), QStringLiteral("Logged out"));
        signInBob();
        (void)server().answerHeld("/auth/logout", HttpAnswer::json("{}"));
        settle();
        verifyBob();
    }

    // The form stays enabled while a sign-in is under way: of two, the later answer counts.
    void followsTheLaterAnswerOfTwoSignIns()
    {
        m_driver->openAndWait();
        fillForm();
        m_driver->click("loginButton");
        QTRY_COMPARE(server().requestCount("/auth/login"), 1);
        m_driver->click("loginButton");
        QTRY_COMPARE(server().requestCount("/auth/login"), 2);
        QVERIFY(server().answerNewestHeld("/auth/login", bob()));
        QTRY_COMPARE(m_driver->status(), QStringLiteral("Logged in as Bob"));
        QVERIFY(server().answerHeld(
            "/auth/login", HttpAnswer::json(R"({"username":"Ann","uuid":"u-a","token":"t-a"})")));
        QTRY_COMPARE(m_driver->status(), QStringLiteral("Logged in as Ann"));
        QCOMPARE(Settings::get().authToken(), QStringLiteral("t-a"));
    }

    void leavesNoUploadOfASessionThatEnded_data()
    {
        QTest::addColumn<QByteArray>("button");
        QTest::addColumn<QByteArray>("label");
        QTest::addColumn<QByteArray>("end");
        for (const char* end : {"logged out", "refused", "another sign-in"}) {
            QTest::addRow("skin, %s", end)
                << QByteArray("Change skin...") << QByteArray("skinStatus") << QByteArray(end);
            QTest::addRow("model, %s", end)
                << QByteArray("Change model...") << QByteArray("modelStatus") << QByteArray(end);
        }
    }

    void leavesNoUploadOfASessionThatEnded()
    {
        QFETCH(QByteArray, button);
        QFETCH(QByteArray, label);
        QFETCH(QByteArray, end);
        openAccountPage();
        const QByteArray path =
            button == "Change skin..." ? QByteArray("/skins/upload") : QByteArray("/models/upload");
        const bool skin = path == "/skins/upload";
        const char* other = skin ? "modelStatus" : "skinStatus";
        const QString untouched = text(other);
        upload(button);
        QTRY_COMPARE(server().requestCount(path), 1);
        QCOMPARE(text(label.constData()), QStringLiteral("Uploading..."));
        if (end == "logged out")
            Q_EMIT m_driver->auth().loggedOut();
        else if (end == "refused")
            Q_EMIT m_driver->auth().validationResult(false);
        else
            Q_EMIT m_driver->auth().loginSucceeded(QStringLiteral("Bob"), QString(),
                                                   QStringLiteral("t-b"));
        QCOMPARE(text(label.constData()), QString());
        QCOMPARE(text(other), end == "logged out" ? QString() : untouched);
        signInBob();
        (void)server().answerHeld(path, HttpAnswer::json("{}"));
        settle();
        QVERIFY(text(label.constData()).startsWith(QStringLiteral("No ")));
        verifyBob();
    }

    // The rename status is none of the labels that a sign-out clears.
    void keepsTheRenameStatusWhenLoggedOut()
    {
        openAccountPage();
        server().answer("/auth/rename", HttpAnswer::json(R"({"error":"Name taken"})", 409));
        press("Change");
        QTRY_COMPARE(text("renameStatus"), QStringLiteral("Name taken"));
        Q_EMIT m_driver->auth().loggedOut();
        QCOMPARE(text("renameStatus"), QStringLiteral("Name taken"));
        QCOMPARE(text("uuid") + text("skinStatus") + text("modelStatus"), QString());
    }

    void letsTheNewerRenameWin()
    {
        openAccountPage();
        auto* name = m_driver->find<QLineEdit>("accountName");
        name->setText(QStringLiteral("First"));
        press("Change");
        QTRY_COMPARE(server().requestCount("/auth/rename"), 1);
        name->setText(QStringLiteral("Second"));
        press("Change");
        QTRY_COMPARE(server().requestCount("/auth/rename"), 2);
        QVERIFY(server().answerNewestHeld("/auth/rename", HttpAnswer::json("{}")));
        QTRY_COMPARE(Settings::get().authUsername(), QStringLiteral("Second"));
        (void)server().answerHeld("/auth/rename", HttpAnswer::json("{}"));
        settle();
        QCOMPARE(Settings::get().authUsername(), QStringLiteral("Second"));
        QCOMPARE(name->text(), QStringLiteral("Second"));
    }

    void letsTheNewerUploadWin_data()
    {
        QTest::addColumn<QByteArray>("button");
        QTest::addColumn<QByteArray>("label");
        QTest::addColumn<QByteArray>("path");
        QTest::newRow("skin") << QByteArray("Change skin...") << QByteArray("skinStatus")
                              << QByteArray("/skins/upload");
        QTest::newRow("model") << QByteArray("Change model...") << QByteArray("modelStatus")
                               << QByteArray("/models/upload");
    }

    void letsTheNewerUploadWin()
    {
        QFETCH(QByteArray, button);
        QFETCH(QByteArray, label);
        QFETCH(QByteArray, path);
        openAccountPage();
        for (int count = 1; count <= 2; ++count) {
            upload(button);
            QTRY_COMPARE(server().requestCount(path), count);
        }
        QVERIFY(server().answerNewestHeld(path, HttpAnswer::json(R"({"error":"Too dark"})", 400)));
        QTRY_COMPARE(text(label.constData()), QStringLiteral("Too dark"));
        (void)server().answerHeld(path, HttpAnswer::json("{}"));
        settle();
        QCOMPARE(text(label.constData()), QStringLiteral("Too dark"));
    }

    // A kind of upload ends with its own newer one alone, and goes on under a new name.
    void keepsWhatIsStillWanted()
    {
        openAccountPage();
        upload("Change skin...");
        upload("Change model...");
        QTRY_COMPARE(server().requestCount("/models/upload"), 1);
        press("Change");
        QTRY_COMPARE(server().requestCount("/auth/rename"), 1);
        QVERIFY(server().answerHeld("/auth/rename", HttpAnswer::json("{}")));
        QTRY_COMPARE(text("renameStatus"), QStringLiteral("Username updated."));
        // The new name's round of skin and model is over first.
        QTRY_COMPARE(text("skinStatus"), QStringLiteral("No skin uploaded (default look)."));
        QTRY_COMPARE(text("modelStatus"), QStringLiteral("No custom model (default character)."));
        for (const char* path : {"/skins/upload", "/models/upload"})
            QVERIFY(server().answerHeld(path, HttpAnswer::json(R"({"error":"Too dark"})", 400)));
        QTRY_COMPARE(text("skinStatus"), QStringLiteral("Too dark"));
        QTRY_COMPARE(text("modelStatus"), QStringLiteral("Too dark"));
    }

    void getsThroughAfterManyClicksOnASilentServer()
    {
        openAccountPage();
        server().answer("/skins/u-alice.png", HttpAnswer::silence());
        server().answer("/models/u-alice.json", HttpAnswer::silence());
        for (int i = 0; i < 20; ++i)
            press("Refresh");
        for (int i = 0; i < 10; ++i) {
            press("Change");
            upload("Change skin...");
        }
        upload("Change model...");
        // As soon as the event loop turns: what was superseded before it left is not sent at all.
        QTRY_VERIFY(server().requestCount("/auth/rename") > 0);
        QTRY_VERIFY(server().requestCount("/skins/upload") > 0);
        QTRY_VERIFY(server().requestCount("/models/upload") > 0);
        QVERIFY(server().answerNewestHeld("/auth/rename", HttpAnswer::json("{}")));
        QTRY_COMPARE(text("renameStatus"), QStringLiteral("Username updated."));
    }

    void refreshesOnceAtATime()
    {
        openAccountPage();
        server().answer("/skins/u-alice.png", HttpAnswer::silence());
        server().answer("/models/u-alice.json", HttpAnswer::silence());
        server().forgetRequests();
        for (int i = 1; i <= 3; ++i) {
            press("Refresh");
            QTRY_COMPARE(server().requestCount("/skins/u-alice.png"), i);
            QTRY_COMPARE(server().requestCount("/models/u-alice.json"), i);
        }
        const auto replies = [this] {
            return account()->findChild<QNetworkAccessManager*>()->findChildren<QNetworkReply*>();
        };
        QTRY_COMPARE(replies().size(), 2);
        // That a client has gone is heard later than that it went.
        QTRY_COMPARE(server().heldCount("/skins/u-alice.png"), 1);
        QVERIFY(server().answerHeld("/skins/u-alice.png", HttpAnswer::json("{}", 404)));
        QVERIFY(!server().answerHeld("/skins/u-alice.png", HttpAnswer::json("{}", 404)));
        QTRY_COMPARE(text("skinStatus"), QStringLiteral("No skin uploaded (default look)."));
    }

    // Whoever emits the client's signals without a request is believed.
    void believesUnsolicitedSignals()
    {
        openAccountPage();
        Q_EMIT m_driver->auth().validationResult(true);
        QCOMPARE(Settings::get().authToken(), QStringLiteral("t-alice"));
        Q_EMIT m_driver->auth().validationResult(false);
        QCOMPARE(Settings::get().authToken(), QString());
        QVERIFY(m_driver->findWidget("loginButton")->isVisible());
        signInBob();
        Q_EMIT m_driver->auth().loggedOut();
        QCOMPARE(Settings::get().authToken(), QString());
        QCOMPARE(m_driver->status(), QStringLiteral("Logged out"));
    }

    void closesWhileEverythingIsUnderWay()
    {
        openAccountPage();
        press("Change");
        upload("Change skin...");
        m_driver->click("logoutButton");
        QTRY_COMPARE(server().requestCount("/auth/logout"), 1);
        m_driver->close();
        settle();
        QCOMPARE(Settings::get().authToken(), QStringLiteral("t-alice"));
    }

private:
    HttpServer& server() { return m_driver->server(); }
    QWidget* account() { return m_driver->pages()->widget(4); }
    QString picked() const { return m_file->filePath(QStringLiteral("a.png")); }
    QString text(const char* label)
    {
        return account()->findChild<QLabel*>(QLatin1StringView(label))->text();
    }
    static HttpAnswer bob()
    {
        return HttpAnswer::json(R"({"username":"Bob","uuid":"u-b","token":"t-b"})");
    }

    static void storeAlice()
    {
        Settings::get().setAuth(QStringLiteral("t-alice"), QStringLiteral("Alice"),
                                QStringLiteral("u-alice"));
    }

    void fillForm()
    {
        m_driver->type("usernameField", QStringLiteral("bob"));
        m_driver->type("passwordField", QStringLiteral("pw"));
    }

    void logOut()
    {
        m_driver->click("logoutButton");
        QTRY_COMPARE(server().requestCount("/auth/logout"), 1);
        QVERIFY(server().answerHeld("/auth/logout", HttpAnswer::json("{}")));
        QTRY_COMPARE(m_driver->status(), QStringLiteral("Logged out"));
    }

    void signInBob()
    {
        if (Settings::get().authToken() == u"t-b")
            Q_EMIT m_driver->auth().loggedOut();
        server().answer("/auth/login", bob());
        fillForm();
        m_driver->click("loginButton");
        QTRY_COMPARE(m_driver->status(), QStringLiteral("Logged in as Bob"));
    }

    void verifyBob()
    {
        QCOMPARE(Settings::get().authToken(), QStringLiteral("t-b"));
        QCOMPARE(Settings::get().authUsername(), QStringLiteral("Bob"));
        QCOMPARE(m_driver->status(), QStringLiteral("Logged in as Bob"));
        QVERIFY(m_driver->findWidget("logoutButton")->isVisible());
        QVERIFY(m_driver->play()->isEnabled());
        QCOMPARE(text("uuid"), QStringLiteral("UUID: u-b"));
    }

    // Signed in as Alice, who has neither skin nor model.
    void openAccountPage()
    {
        storeAlice();
        m_driver->openAndWait();
        m_driver->click(m_driver->nav("Profile"));
        QTRY_COMPARE(text("skinStatus"), QStringLiteral("No skin uploaded (default look)."));
        QTRY_COMPARE(text("modelStatus"), QStringLiteral("No custom model (default character)."));
    }

    void press(const char* button)
    {
        for (auto* candidate : account()->findChildren<QPushButton*>()) {
            if (candidate->text() == QLatin1StringView(button))
                return candidate->click();
        }
        QFAIL(button);
    }

    void upload(const QByteArray& button)
    {
        const FileDialogScript dialog(picked());
        press(button.constData());
        QVERIFY(dialog.wasShown());
    }

    // Until what the server has sent has certainly arrived: another round trip of the same client.
    void settle()
    {
        server().answer("/settled", HttpAnswer::ok("x"));
        QNetworkAccessManager network;
        const std::unique_ptr<QNetworkReply> reply(
            network.get(QNetworkRequest{QUrl(server().url(QStringLiteral("/settled")))}));
        QTRY_VERIFY(reply->isFinished());
        QTest::qWait(50); // and a chance for what should not come
    }

    std::unique_ptr<WindowDriver> m_driver;
    std::unique_ptr<QTemporaryDir> m_file;
};

QTEST_MAIN(TestAccountSession)
#include "tst_account_session.moc"
