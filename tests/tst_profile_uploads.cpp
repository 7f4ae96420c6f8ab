#include "app/settings.h"
#include "preview/skin_preview_3d.h"
#include "tests/support/file_dialog_script.h"
#include "tests/support/png_files.h"
#include "tests/support/profile_page_stage.h"
#include "tests/support/throwaway_home.h"

#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QNetworkAccessManager>
#include <QSignalSpy>
#include <QTest>

#include <sys/stat.h>

namespace {

using Stage = ProfilePageStage;

HttpAnswer refusal(const QByteArray& body)
{
    return HttpAnswer::json(body, 400);
}

} // namespace

class TestProfileUploads : public QObject
{
    Q_OBJECT

public:
    static void initMain() { Stage::prepareProgram(); }

private Q_SLOTS:
    void initTestCase() { Stage::prepareStyle(); }
    void init() { throwaway_home::clear(); }

    void uploads_data()
    {
        QTest::addColumn<QByteArray>("button");
        QTest::addColumn<QString>("caption");
        QTest::addColumn<QString>("filter");
        QTest::addColumn<QByteArray>("path");
        QTest::addColumn<QByteArray>("type");
        QTest::addColumn<QString>("active");
        QTest::newRow("skin") << QByteArray("Change skin...") << QStringLiteral("Select skin")
                              << QStringLiteral("PNG images (*.png)") << QByteArray("/skins/upload")
                              << QByteArray("image/png") << QStringLiteral("Skin active.");
        QTest::newRow("model") << QByteArray("Change model...") << QStringLiteral("Select model")
                               << QStringLiteral("BlockBench model (*.bbmodel *.json)")
                               << QByteArray("/models/upload") << QByteArray("application/json")
                               << QStringLiteral("Custom model active (2 cubes).");
    }

    void uploads()
    {
        QFETCH(QByteArray, button);
        QFETCH(QString, caption);
        QFETCH(QString, filter);
        QFETCH(QByteArray, path);
        QFETCH(QByteArray, type);
        QFETCH(QString, active);
        Stage stage;
        stage.openSignedIn();
        const bool isSkin = type == "image/png";
        QLabel* status = stage.label(isSkin ? "skinStatus" : "modelStatus");
        const QByteArray content = isSkin ? png_files::square(64, qRgb(1, 2, 3)) : Stage::twoCubes;
        QString during;
        stage.server.answer(path, [&](const HttpRequest& request) {
            during = status->text();
            stage.server.answer(isSkin ? Stage::skinPath : Stage::modelPath,
                                HttpAnswer::ok(request.body));
            return HttpAnswer::ok("ignored");
        });
        const FileDialogScript dialog(stage.fileWith(QStringLiteral("a.png"), content));
        stage.click(button);
        QCOMPARE(dialog.caption(), caption);
        QCOMPARE(dialog.filters(), QStringList{filter});
        QTRY_COMPARE(status->text(), active);
        QCOMPARE(during, QStringLiteral("Uploading..."));
        const HttpRequest request = stage.server.requests().first();
        QCOMPARE(request.method, "POST");
        QCOMPARE(request.header("Content-Type"), type);
        QCOMPARE(request.header("Authorization"), "Bearer t0ken");
        QCOMPARE(request.body, content);
    }

    void saysThatAnUploadArrived()
    {
        Stage stage;
        stage.openSignedIn();
        // What the page asks for afterwards stays unanswered, so that the text stands.
        for (const QByteArray& path : {Stage::skinPath, Stage::modelPath})
            stage.server.answer(path, HttpAnswer::silence());
        stage.server.answer("/skins/upload", HttpAnswer::ok({}));
        stage.server.answer("/models/upload", HttpAnswer::ok({}));
        stage.upload("Change skin...", stage.fileWith(QStringLiteral("a.png"), "x"));
        QTRY_COMPARE(stage.text("skinStatus"), QStringLiteral("Skin uploaded."));
        stage.upload("Change model...", stage.fileWith(QStringLiteral("a.json"), "x"));
        QTRY_COMPARE(stage.text("modelStatus"), QStringLiteral("Model uploaded."));
    }

    void tellsWhyAnUploadFailed_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("text");
        QTest::newRow("error only")
            << QByteArray(R"({"error":"Not a PNG"})") << QStringLiteral("Not a PNG");
        QTest::newRow("reasons") << QByteArray(R"({"error":"Refused","reasons":["one","two"]})")
                                 << QStringLiteral("Refused: one; two");
        QTest::newRow("no reasons")
            << QByteArray(R"({"error":"Refused","reasons":[]})") << QStringLiteral("Refused");
        QTest::newRow("reasons only")
            << QByteArray(R"({"error":"","reasons":["one"]})") << QStringLiteral(": one");
        QTest::newRow("reasons of no text")
            << QByteArray(R"({"error":"E","reasons":[1,"two"]})") << QStringLiteral("E: ; two");
        QTest::newRow("no JSON") << QByteArray("<html>")
                                 << QStringLiteral("server replied: Scripted");
    }

    void tellsWhyAnUploadFailed()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, text);
        Stage stage;
        stage.openSignedIn();
        stage.server.answer("/skins/upload", refusal(body));
        stage.server.answer("/models/upload", refusal(body));
        stage.upload("Change skin...", stage.fileWith(QStringLiteral("a.png"), "x"));
        stage.upload("Change model...", stage.fileWith(QStringLiteral("a.json"), "x"));
        QTRY_VERIFY2(stage.text("skinStatus").endsWith(text), qPrintable(stage.text("skinStatus")));
        QTRY_VERIFY(stage.text("modelStatus").endsWith(text));
        QCOMPARE(stage.text("skinStatus").startsWith(text), body != "<html>");
        QCOMPARE(stage.server.requestCount(Stage::skinPath), 0);
    }

    void sendsNothingWhenTheDialogIsCancelled()
    {
        Stage stage;
        stage.openSignedIn();
        stage.upload("Change skin...", {});
        QCOMPARE(stage.text("skinStatus"), QStringLiteral("No skin uploaded (default look)."));
        QVERIFY(stage.hasAskedNothing());
    }

    void opensNoDialogWhenSignedOut()
    {
        Stage stage;
        stage.open();
        stage.click("Change skin...");
        stage.click("Change model...");
        QCOMPARE(stage.text("skinStatus"), QStringLiteral("Log in first."));
        QCOMPARE(stage.text("modelStatus"), QStringLiteral("Log in first."));
        QVERIFY(stage.hasAskedNothing());
    }

    void sendsNothingWhenTheSessionEndsUnderTheDialog()
    {
        Stage stage;
        stage.openSignedIn();
        FileDialogScript script(stage.fileWith(QStringLiteral("a.png"), "x"));
        script.afterChoice = [&] { Q_EMIT stage.auth.validationResult(false); };
        stage.click("Change skin...");
        QVERIFY(script.wasShown());
        QCOMPARE(stage.text("skinStatus"), QStringLiteral("Log in first."));
        QVERIFY(stage.hasAskedNothing());
    }

    void sendsNothingItCannotRead()
    {
        Stage stage;
        stage.openSignedIn();
        const QString path = stage.fileWith(QStringLiteral("a.png"), "x");
        FileDialogScript script(path);
        script.afterChoice = [&] { QFile::remove(path); };
        stage.click("Change skin...");
        QCOMPARE(stage.text("skinStatus"), QStringLiteral("Cannot read file."));

        // A pipe that nobody writes into.
        const QString pipe = stage.files.filePath(QStringLiteral("pipe.json"));
        QCOMPARE(mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
        stage.upload("Change model...", pipe);
        QCOMPARE(stage.text("modelStatus"), QStringLiteral("Cannot read file."));
        QVERIFY(stage.hasAskedNothing());
    }

    // Each reply is under way when the player signs out.
    void dropsRepliesOfAnAccountThatHasGone_data()
    {
        QTest::addColumn<QByteArray>("path");
        QTest::addColumn<QByteArray>("button");
        QTest::addColumn<int>("status");
        QTest::newRow("skin") << Stage::skinPath << QByteArray("Refresh") << 200;
        QTest::newRow("no skin") << Stage::skinPath << QByteArray("Refresh") << 404;
        QTest::newRow("model") << Stage::modelPath << QByteArray("Refresh") << 200;
        QTest::newRow("rename") << QByteArray("/auth/rename") << QByteArray("Change") << 200;
        QTest::newRow("failed rename") << QByteArray("/auth/rename") << QByteArray("Change") << 500;
        QTest::newRow("upload") << QByteArray("/skins/upload") << QByteArray("Change skin...")
                                << 200;
        QTest::newRow("failed upload")
            << QByteArray("/skins/upload") << QByteArray("Change skin...") << 500;
    }

    void dropsRepliesOfAnAccountThatHasGone()
    {
        QFETCH(QByteArray, path);
        QFETCH(QByteArray, button);
        QFETCH(int, status);
        Stage stage;
        stage.openSignedIn();
        stage.server.answer(path, [&](const HttpRequest&) {
            Settings::get().clearAuth();
            Q_EMIT stage.auth.loggedOut();
            return HttpAnswer::json(R"({"error":"no"})", status);
        });
        QSignalSpy renamed(&stage.auth, &AuthClient::loginSucceeded);
        QSignalSpy finished(stage.page->findChild<QNetworkAccessManager*>(),
                            &QNetworkAccessManager::finished);
        stage.nameField()->setText(QStringLiteral("Grace"));
        const FileDialogScript script(stage.fileWith(QStringLiteral("a.png"), "x"));
        stage.click(button);
        QTRY_COMPARE(finished.count(), button == "Refresh" ? 2 : 1);
        QCoreApplication::processEvents();
        for (const char* name : {"uuid", "renameStatus", "skinStatus", "modelStatus"})
            QCOMPARE(stage.text(name), QString());
        QCOMPARE(renamed.count(), 0);
        QCOMPARE(Settings::get().authToken(), QString());
        QVERIFY(stage.preview()->skinImage().isNull());
        QCOMPARE(finished.count(), button == "Refresh" ? 2 : 1); // and asks for nothing more
    }

    void showsTheSecondOfTwoAccounts()
    {
        Stage stage;
        stage.openSignedIn();
        const QString other = QStringLiteral("5ec0d");
        stage.server.answer(Stage::skinPath, [&](const HttpRequest&) {
            Q_EMIT stage.auth.loginSucceeded(QStringLiteral("Bob"), other, QStringLiteral("b"));
            return HttpAnswer::ok(png_files::square(64, qRgb(1, 2, 3)));
        });
        QSignalSpy finished(stage.page->findChild<QNetworkAccessManager*>(),
                            &QNetworkAccessManager::finished);
        stage.click("Refresh");
        QTRY_COMPARE(finished.count(), 4);
        QCOMPARE(stage.server.requestCount("/skins/5ec0d.png"), 1);
        QCOMPARE(stage.text("skinStatus"), QStringLiteral("No skin uploaded (default look)."));
        QVERIFY(stage.preview()->skinImage().isNull());
    }

    void keepsTheTokenAtItsOrigin_data()
    {
        QTest::addColumn<QByteArray>("path");
        QTest::addColumn<QByteArray>("button");
        QTest::newRow("rename") << QByteArray("/auth/rename") << QByteArray("Change");
        QTest::newRow("skin") << QByteArray("/skins/upload") << QByteArray("Change skin...");
        QTest::newRow("model") << QByteArray("/models/upload") << QByteArray("Change model...");
    }

    void keepsTheTokenAtItsOrigin()
    {
        QFETCH(QByteArray, path);
        QFETCH(QByteArray, button);
        Stage stage;
        HttpServer elsewhere;
        elsewhere.answer(path, HttpAnswer::ok({}));
        stage.openSignedIn();
        stage.server.answer(path,
                            HttpAnswer::redirect(elsewhere.url(QString::fromLatin1(path)), 307));
        QSignalSpy finished(stage.page->findChild<QNetworkAccessManager*>(),
                            &QNetworkAccessManager::finished);
        const FileDialogScript script(stage.fileWith(QStringLiteral("a.png"), "x"));
        stage.click(button);
        QTRY_COMPARE(finished.count(), 1);
        QVERIFY(elsewhere.requests().isEmpty());
        QCOMPARE(stage.server.requests().size(), 1);
        QCOMPARE(Settings::get().authUsername(), QStringLiteral("Ada"));
    }

    // Whatever page a redirect leads to, it has not done what was asked for.
    void countsARedirectAsAFailure_data()
    {
        QTest::addColumn<QByteArray>("path");
        QTest::addColumn<QByteArray>("button");
        QTest::addColumn<QByteArray>("label");
        QTest::addColumn<int>("status");
        for (const int status : {301, 302, 303, 307, 308}) {
            QTest::addRow("rename, %d", status)
                << QByteArray("/auth/rename") << QByteArray("Change") << QByteArray("renameStatus")
                << status;
            QTest::addRow("skin, %d", status)
                << QByteArray("/skins/upload") << QByteArray("Change skin...")
                << QByteArray("skinStatus") << status;
            QTest::addRow("model, %d", status)
                << QByteArray("/models/upload") << QByteArray("Change model...")
                << QByteArray("modelStatus") << status;
        }
    }

    void countsARedirectAsAFailure()
    {
        QFETCH(QByteArray, path);
        QFETCH(QByteArray, button);
        QFETCH(QByteArray, label);
        QFETCH(int, status);
        Stage stage;
        stage.openSignedIn();
        stage.server.answer(path, HttpAnswer::redirect(QStringLiteral("/elsewhere"), status));
        stage.server.answer("/elsewhere", HttpAnswer::ok({}));
        QSignalSpy renamed(&stage.auth, &AuthClient::loginSucceeded);
        stage.nameField()->setText(QStringLiteral("Grace"));
        const FileDialogScript script(stage.fileWith(QStringLiteral("a.png"), "x"));
        stage.click(button);
        QTRY_COMPARE(stage.text(label.constData()), QStringLiteral("Too many redirects"));
        QCOMPARE(stage.server.requests().size(), 1);
        QCOMPARE(renamed.count(), 0);
        QCOMPARE(Settings::get().authUsername(), QStringLiteral("Ada"));
    }
};

QTEST_MAIN(TestProfileUploads)
#include "tst_profile_uploads.moc"
