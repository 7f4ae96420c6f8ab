#include "app/settings.h"
#include "preview/open_gl.h"
#include "preview/skin_preview_3d.h"
#include "services/auth_client.h"
#include "tests/support/file_dialog_script.h"
#include "tests/support/http_server.h"
#include "tests/support/png_files.h"
#include "tests/support/throwaway_home.h"
#include "ui/main_window.h"
#include "ui/profile_page.h"
#include "ui/style_sheet.h"

#include <QAccessible>
#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QSurfaceFormat>
#include <QTemporaryDir>
#include <QTest>
#include <QWheelEvent>

#include <sys/stat.h>

namespace {

const QString uuid = QStringLiteral("3b241101-e2bb-4255-8caf-4136c566a962");
const QByteArray skinPath = "/skins/3b241101-e2bb-4255-8caf-4136c566a962.png";
const QByteArray modelPath = "/models/3b241101-e2bb-4255-8caf-4136c566a962.json";
const QByteArray twoCubes =
    R"({"elements":[{"box_uv":true,"from":[0,0,0],"to":[8,8,8],"uuid":"a"},)"
    R"({"box_uv":true,"from":[0,9,0],"to":[8,16,8],"uuid":"b"}],"outliner":["a","b"]})";

void signIn()
{
    Settings::get().setAuth(QStringLiteral("t0ken"), QStringLiteral("Ada"), uuid);
}

// The page with all that it talks to. The server is the account server from the start.
struct Stage
{
    HttpServer server;
    AuthClient auth;
    std::unique_ptr<ProfilePage> page;
    QTemporaryDir files;

    Stage() { Settings::get().setServerUrl(server.origin()); }

    void open()
    {
        page = std::make_unique<ProfilePage>(&auth, nullptr);
        page->resize(900, 700);
        page->show();
    }

    // Opened, and the answers to its first requests have arrived: neither skin nor model.
    void openSignedIn()
    {
        signIn();
        open();
        QTRY_COMPARE(text("modelStatus"), QStringLiteral("No custom model (default character)."));
        QTRY_COMPARE(text("skinStatus"), QStringLiteral("No skin uploaded (default look)."));
        server.forgetRequests();
    }

    QLabel* label(const char* name) const
    {
        return page->findChild<QLabel*>(QLatin1StringView(name));
    }
    QString text(const char* name) const { return label(name)->text(); }
    QLineEdit* nameField() const { return page->findChild<QLineEdit*>(); }
    SkinPreview3D* preview() const { return page->findChild<SkinPreview3D*>(); }

    void click(const QByteArray& text) const
    {
        for (QPushButton* button : page->findChildren<QPushButton*>()) {
            if (button->text().toUtf8() == text)
                return QTest::mouseClick(button, Qt::LeftButton);
        }
        QFAIL(text.constData());
    }

    QString fileWith(const QString& name, const QByteArray& content) const
    {
        QFile file(files.filePath(name));
        (void)file.open(QIODevice::WriteOnly);
        file.write(content);
        return file.fileName();
    }

    // Chooses the file in the dialog that the button opens.
    void upload(const char* button, const QString& path) const
    {
        const FileDialogScript script(path);
        click(button);
        QVERIFY(script.wasShown());
    }
};

HttpAnswer refusal(const QByteArray& body)
{
    return HttpAnswer::json(body, 400);
}

} // namespace

class TestProfilePage : public QObject
{
    Q_OBJECT

public:
    static void initMain()
    {
        throwaway_home::enter();
        QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
        QSurfaceFormat::setDefaultFormat(open_gl::format());
    }

private Q_SLOTS:
    void initTestCase() { qApp->setStyleSheet(launcherStyleSheet()); }
    void init() { throwaway_home::clear(); }

    void standsTheDefaultFigureWithoutASession()
    {
        Stage stage;
        stage.open();
        QCOMPARE(stage.preview()->bakedModel().vertices.size(), 2160);
        QCOMPARE(stage.nameField()->text(), QString());
        for (const char* name : {"uuid", "renameStatus", "skinStatus", "modelStatus"})
            QCOMPARE(stage.text(name), QString());
        stage.click("Refresh");
        QTest::qWait(0);
        QVERIFY(stage.server.requests().isEmpty());
    }

    void laysOutItsTexts()
    {
        Stage stage;
        stage.open();
        QStringList texts;
        for (const QLabel* label : stage.page->findChildren<QLabel*>()) {
            if (!label->text().isEmpty())
                texts << label->text();
        }
        const QStringList expected{
            QStringLiteral("Profile"),
            QStringLiteral("Account"),
            QStringLiteral("Username"),
            QStringLiteral(
                "Your uuid is permanent - skins and models stay with it across renames."),
            QStringLiteral("Appearance"),
            QStringLiteral("Drag to rotate, scroll to zoom."),
            QStringLiteral("Skin: 64x64 or 128x128 PNG (standard MC skins work). Model: "
                           "BlockBench .bbmodel with box UV; groups named head, arm_l, arm_r, "
                           "leg_l, leg_r animate.")};
        texts.sort();
        QStringList sorted = expected;
        sorted.sort();
        QCOMPARE(texts, sorted);
        QCOMPARE(stage.nameField()->width(), 180);
        QTest::mouseMove(stage.page.get());
        for (const QPushButton* button : stage.page->findChildren<QPushButton*>()) {
            if (button->text() == u"Change")
                QCOMPARE(button->width(), 90);
            if (button->text() == u"Refresh")
                QCOMPARE(button->toolTip(),
                         QStringLiteral("Re-check what the auth server has for this account"));
        }
    }

    void namesItsParts()
    {
        Stage stage;
        stage.open();
        const auto nameOf = [](QWidget* widget) {
            return QAccessible::queryAccessibleInterface(widget)->text(QAccessible::Name);
        };
        QCOMPARE(nameOf(stage.nameField()), QStringLiteral("Username"));
        QCOMPARE(nameOf(stage.preview()), QStringLiteral("Character preview"));
    }

    void readsTheStoredSession()
    {
        Stage stage;
        stage.server.answer(skinPath, HttpAnswer::ok(png_files::square(64, qRgb(1, 2, 3))));
        stage.server.answer(modelPath, HttpAnswer::json(twoCubes));
        signIn();
        stage.open();
        QCOMPARE(stage.nameField()->text(), QStringLiteral("Ada"));
        QCOMPARE(stage.text("uuid"), QStringLiteral("UUID: ") + uuid);
        QTRY_COMPARE(stage.text("skinStatus"), QStringLiteral("Skin active."));
        QTRY_COMPARE(stage.text("modelStatus"), QStringLiteral("Custom model active (2 cubes)."));
        QCOMPARE(stage.preview()->skinImage().pixelColor(0, 0), QColor(1, 2, 3));
        QCOMPARE(stage.preview()->bakedModel().vertices.size(), 360);
        // What everybody may see needs no token.
        QCOMPARE(stage.server.requests().size(), 2);
        for (const HttpRequest& request : stage.server.requests()) {
            QCOMPARE(request.method, "GET");
            QVERIFY(request.header("Authorization").isNull());
        }
    }

    void countsTheElementsOfAnyModel_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<int>("cubes");
        QTest::newRow("no elements") << QByteArray("{}") << 0;
        QTest::newRow("no JSON") << QByteArray("<html>") << 0;
        QTest::newRow("refused by the preview") << QByteArray(R"({"elements":[1,2,3]})") << 3;
    }

    void countsTheElementsOfAnyModel()
    {
        QFETCH(QByteArray, body);
        QFETCH(int, cubes);
        Stage stage;
        stage.server.answer(modelPath, HttpAnswer::ok(body));
        signIn();
        stage.open();
        QTRY_COMPARE(stage.text("modelStatus"),
                     QStringLiteral("Custom model active (%1 cubes).").arg(cubes));
        QCOMPARE(stage.preview()->bakedModel().vertices.size(), 2160);
    }

    void keepsThePreviewWhenTheServerHasNothingAnyMore()
    {
        Stage stage;
        stage.server.answer(skinPath, HttpAnswer::ok(png_files::square(64, qRgb(1, 2, 3))));
        stage.server.answer(modelPath, HttpAnswer::json(twoCubes));
        signIn();
        stage.open();
        QTRY_COMPARE(stage.text("skinStatus"), QStringLiteral("Skin active."));
        QTRY_COMPARE(stage.text("modelStatus"), QStringLiteral("Custom model active (2 cubes)."));
        stage.server.answer(skinPath, HttpAnswer::htmlError(404));
        stage.server.answer(modelPath, HttpAnswer::htmlError(404));
        stage.click("Refresh");
        QTRY_COMPARE(stage.text("skinStatus"), QStringLiteral("No skin uploaded (default look)."));
        QTRY_COMPARE(stage.text("modelStatus"),
                     QStringLiteral("No custom model (default character)."));
        QVERIFY(!stage.preview()->skinImage().isNull());
        QCOMPARE(stage.preview()->bakedModel().vertices.size(), 360);
    }

    void changesNothingOnOtherErrors_data()
    {
        QTest::addColumn<HttpAnswer>("answer");
        const QByteArray png = png_files::square(64, qRgb(1, 2, 3));
        QTest::newRow("error 500") << HttpAnswer::htmlError(500);
        QTest::newRow("error 403") << HttpAnswer::htmlError(403);
        HttpAnswer answer = HttpAnswer::ok(png);
        answer.cutAfter = png.size() / 2;
        QTest::newRow("cut") << answer;
        answer = HttpAnswer::ok(QByteArray(64 * 1024, 'x'));
        answer.endless = true;
        answer.framing = HttpAnswer::Framing::UntilClose;
        QTest::newRow("endless") << answer;
        answer = HttpAnswer::ok({});
        answer.announcedLength = 1LL << 40;
        QTest::newRow("announced too long") << answer;
    }

    void changesNothingOnOtherErrors()
    {
        QFETCH(HttpAnswer, answer);
        Stage stage;
        stage.openSignedIn();
        stage.server.answer(skinPath, answer);
        stage.server.answer(modelPath, answer);
        auto* network = stage.page->findChild<QNetworkAccessManager*>();
        QSignalSpy finished(network, &QNetworkAccessManager::finished);
        stage.click("Refresh");
        QTRY_COMPARE_WITH_TIMEOUT(finished.count(), 2, 20000);
        QCOMPARE(stage.text("skinStatus"), QStringLiteral("No skin uploaded (default look)."));
        QCOMPARE(stage.text("modelStatus"), QStringLiteral("No custom model (default character)."));
        QVERIFY(stage.preview()->skinImage().isNull());
        QCOMPARE(stage.preview()->bakedModel().vertices.size(), 2160);
    }

    void followsSigningInAndOut()
    {
        Stage stage;
        stage.open();
        Q_EMIT stage.auth.loginSucceeded(QStringLiteral("Ada"), uuid, QStringLiteral("t"));
        QCOMPARE(stage.nameField()->text(), QStringLiteral("Ada"));
        QCOMPARE(stage.text("uuid"), QStringLiteral("UUID: ") + uuid);
        QTRY_VERIFY(!stage.text("skinStatus").isEmpty() && !stage.text("modelStatus").isEmpty());
        Q_EMIT stage.auth.loggedOut();
        QCOMPARE(stage.nameField()->text(), QString());
        for (const char* name : {"uuid", "renameStatus", "skinStatus", "modelStatus"})
            QCOMPARE(stage.text(name), QString());
        stage.server.forgetRequests();
        stage.click("Refresh");
        stage.click("Change");
        QCOMPARE(stage.text("renameStatus"), QStringLiteral("Log in first."));
        QVERIFY(stage.server.requests().isEmpty());
    }

    void forgetsASessionThatIsNoLongerValid()
    {
        Stage stage;
        stage.openSignedIn();
        Q_EMIT stage.auth.validationResult(true);
        QVERIFY(!stage.text("uuid").isEmpty());
        Q_EMIT stage.auth.validationResult(false);
        QCOMPARE(stage.text("uuid"), QString());
        QCOMPARE(stage.nameField()->text(), QStringLiteral("Ada"));
        stage.click("Change");
        QCOMPARE(stage.text("renameStatus"), QStringLiteral("Log in first."));
        stage.click("Refresh");
        QVERIFY(stage.server.requests().isEmpty());
    }

    void renamesTheAccount()
    {
        Stage stage;
        stage.openSignedIn();
        stage.server.answer("/auth/rename", HttpAnswer::ok("whatever"));
        QSignalSpy renamed(&stage.auth, &AuthClient::loginSucceeded);
        stage.nameField()->setText(QStringLiteral("  Grace  "));
        stage.click("Change");
        QTRY_COMPARE(stage.text("renameStatus"), QStringLiteral("Username updated."));
        const HttpRequest request = stage.server.requests().first();
        QCOMPARE(request.method, "POST");
        QCOMPARE(request.header("Content-Type"), "application/json");
        QCOMPARE(request.header("Authorization"), "Bearer t0ken");
        QCOMPARE(request.body, "{\n    \"username\": \"Grace\"\n}\n");
        QCOMPARE(Settings::get().authUsername(), QStringLiteral("Grace"));
        QCOMPARE(Settings::get().authToken(), QStringLiteral("t0ken"));
        QCOMPARE(Settings::get().authUuid(), uuid);
        QCOMPARE(renamed.count(), 1);
        QCOMPARE(renamed.first(),
                 (QVariantList{QStringLiteral("Grace"), uuid, QStringLiteral("t0ken")}));
        QCOMPARE(stage.nameField()->text(), QStringLiteral("Grace"));
        QTRY_COMPARE(stage.server.requestCount(skinPath), 1);
    }

    void asksForANameBeforeItSendsOne()
    {
        Stage stage;
        stage.openSignedIn();
        stage.nameField()->setText(QStringLiteral(" \t "));
        stage.click("Change");
        QCOMPARE(stage.text("renameStatus"), QStringLiteral("Enter a username."));
        QVERIFY(stage.server.requests().isEmpty());
    }

    void tellsWhyARenameFailed_data()
    {
        QTest::addColumn<HttpAnswer>("answer");
        QTest::addColumn<QString>("text");
        QTest::newRow("the server's text")
            << HttpAnswer::json(R"({"error":"Name <b>taken</b>"})", 409)
            << QStringLiteral("Name <b>taken</b>");
        QTest::newRow("no text") << HttpAnswer::htmlError(500)
                                 << QStringLiteral("server replied: Scripted");
        QTest::newRow("empty text") << HttpAnswer::json(R"({"error":""})", 500)
                                    << QStringLiteral("server replied: Scripted");
    }

    void tellsWhyARenameFailed()
    {
        QFETCH(HttpAnswer, answer);
        QFETCH(QString, text);
        Stage stage;
        stage.openSignedIn();
        stage.server.answer("/auth/rename", answer);
        QSignalSpy renamed(&stage.auth, &AuthClient::loginSucceeded);
        stage.nameField()->setText(QStringLiteral("Grace"));
        stage.click("Change");
        QTRY_VERIFY2(stage.text("renameStatus").endsWith(text),
                     qPrintable(stage.text("renameStatus")));
        QCOMPARE(renamed.count(), 0);
        QCOMPARE(Settings::get().authUsername(), QStringLiteral("Ada"));
    }

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
        const QByteArray content = isSkin ? png_files::square(64, qRgb(1, 2, 3)) : twoCubes;
        QString during;
        stage.server.answer(path, [&](const HttpRequest& request) {
            during = status->text();
            stage.server.answer(isSkin ? skinPath : modelPath, HttpAnswer::ok(request.body));
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
        for (const QByteArray& path : {skinPath, modelPath})
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
        QCOMPARE(stage.server.requestCount(skinPath), 0);
    }

    void sendsNothingWhenTheDialogIsCancelled()
    {
        Stage stage;
        stage.openSignedIn();
        stage.upload("Change skin...", {});
        QCOMPARE(stage.text("skinStatus"), QStringLiteral("No skin uploaded (default look)."));
        QVERIFY(stage.server.requests().isEmpty());
    }

    void opensNoDialogWhenSignedOut()
    {
        Stage stage;
        stage.open();
        stage.click("Change skin...");
        stage.click("Change model...");
        QCOMPARE(stage.text("skinStatus"), QStringLiteral("Log in first."));
        QCOMPARE(stage.text("modelStatus"), QStringLiteral("Log in first."));
        QVERIFY(stage.server.requests().isEmpty());
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
        QVERIFY(stage.server.requests().isEmpty());
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

        // A pipe that nobody writes into, and a file that fits no memory.
        const QString pipe = stage.files.filePath(QStringLiteral("pipe.json"));
        QCOMPARE(mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
        stage.upload("Change model...", pipe);
        QCOMPARE(stage.text("modelStatus"), QStringLiteral("Cannot read file."));
        stage.label("modelStatus")->clear();
        const QString huge = stage.fileWith(QStringLiteral("huge.json"), {});
        QVERIFY(QFile::resize(huge, 1LL << 40));
        stage.upload("Change model...", huge);
        QCOMPARE(stage.text("modelStatus"), QStringLiteral("Cannot read file."));
        QVERIFY(stage.server.requests().isEmpty());
    }

    // Each reply is under way when the player signs out.
    void dropsRepliesOfAnAccountThatHasGone_data()
    {
        QTest::addColumn<QByteArray>("path");
        QTest::addColumn<QByteArray>("button");
        QTest::addColumn<int>("status");
        QTest::newRow("skin") << skinPath << QByteArray("Refresh") << 200;
        QTest::newRow("no skin") << skinPath << QByteArray("Refresh") << 404;
        QTest::newRow("model") << modelPath << QByteArray("Refresh") << 200;
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
        stage.server.answer(skinPath, [&](const HttpRequest&) {
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

    void followsARedirectAtItsOrigin()
    {
        Stage stage;
        stage.openSignedIn();
        stage.server.answer("/auth/rename",
                            HttpAnswer::redirect(QStringLiteral("/v2/rename"), 307));
        stage.server.answer("/v2/rename", HttpAnswer::ok({}));
        stage.click("Change");
        QTRY_COMPARE(stage.text("renameStatus"), QStringLiteral("Username updated."));
        QCOMPARE(stage.server.requests()[1].header("Authorization"), "Bearer t0ken");
    }

    void showsForeignTextsAsTheyAre()
    {
        Stage stage;
        stage.openSignedIn();
        for (const char* name : {"uuid", "renameStatus", "skinStatus", "modelStatus"}) {
            QCOMPARE(stage.label(name)->textFormat(), Qt::PlainText);
            QVERIFY(stage.label(name)->wordWrap());
        }
        QCOMPARE(stage.label("uuid")->textInteractionFlags(), Qt::TextSelectableByMouse);
    }

    void growsByNoText()
    {
        Stage stage;
        stage.openSignedIn();
        auto* content = stage.page->findChild<QScrollArea*>()->widget();
        const int width = content->minimumSizeHint().width();
        stage.server.answer(
            "/auth/rename",
            HttpAnswer::json("{\"error\":\"" + QByteArray(900'000, 'w') + "\"}", 400));
        stage.click("Change");
        QTRY_VERIFY(stage.text("renameStatus").startsWith(u"www"));
        QCOMPARE(content->minimumSizeHint().width(), width);
        QElapsedTimer timer;
        timer.start();
        (void)stage.page->grab();
        QVERIFY(timer.elapsed() < 1000);
    }

    void leavesNoPatchesOnTheCards()
    {
        Stage stage;
        stage.openSignedIn();
        const QImage picture = stage.page->grab().toImage();
        int onCards = 0;
        for (const QLabel* label : stage.page->findChildren<QLabel*>()) {
            if (label->parentWidget()->objectName() != u"card")
                continue;
            ++onCards;
            const QPoint corner = label->mapTo(stage.page.get(), QPoint(0, 0));
            QCOMPARE(picture.pixelColor(corner), QColor(0x11, 0x16, 0x24));
        }
        QVERIFY(onCards >= 9);
    }

    void scrollsInALowWindow()
    {
        signIn();
        HttpServer server;
        Settings::get().setServerUrl(server.origin());
        Settings::get().setManifestUrl(server.url(QStringLiteral("/manifest.json")));
        MainWindow window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        auto* page = window.findChild<ProfilePage*>();
        window.findChild<QStackedWidget*>()->setCurrentWidget(page);
        QCOMPARE(window.size(), QSize(1080, 600));
        auto* area = page->findChild<QScrollArea*>();
        QVERIFY(area->verticalScrollBar()->maximum() > 0);
        QCOMPARE(area->horizontalScrollBar()->maximum(), 0);
    }

    // Zooming must not take the page along.
    void keepsTheWheelInThePreview()
    {
        Stage stage;
        stage.openSignedIn();
        stage.page->resize(700, 300);
        auto* area = stage.page->findChild<QScrollArea*>();
        QTRY_VERIFY(area->verticalScrollBar()->maximum() > 0);
        const QPointF at(20, 20);
        QWheelEvent event(at, stage.preview()->mapToGlobal(at), {}, {0, -120}, Qt::NoButton,
                          Qt::NoModifier, Qt::NoScrollPhase, false);
        QCoreApplication::sendEvent(stage.preview(), &event);
        QCOMPARE(stage.preview()->distance(), 3.64F);
        QCOMPARE(area->verticalScrollBar()->value(), 0);
    }
};

QTEST_MAIN(TestProfilePage)
#include "tst_profile_page.moc"
