#include "app/settings.h"
#include "preview/model_import.h"
#include "preview/skin_preview_3d.h"
#include "tests/support/costs.h"
#include "tests/support/heartbeat.h"
#include "tests/support/png_files.h"
#include "tests/support/profile_page_stage.h"
#include "tests/support/throwaway_home.h"
#include "ui/main_window.h"

#include <QAccessible>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QNetworkAccessManager>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QTest>
#include <QWheelEvent>

namespace {

using Stage = ProfilePageStage;

} // namespace

class TestProfilePage : public QObject
{
    Q_OBJECT

public:
    static void initMain() { Stage::prepareProgram(); }

private Q_SLOTS:
    void initTestCase() { Stage::prepareStyle(); }
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
        QVERIFY(stage.hasAskedNothing());
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

    // A file that takes all its time to parse: twice would be twice the gap.
    void parsesAModelOnce()
    {
        const QByteArray json =
            R"({"elements":[],"numbers":[)" + QByteArray("1.5,").repeated(3'500'000) + "0]}";
        Stage stage;
        stage.server.answer(Stage::modelPath, HttpAnswer::htmlError(404));
        Stage::signIn();
        stage.open();
        QTRY_VERIFY(!stage.text("modelStatus").isEmpty());
        const QString before = stage.text("modelStatus");
        const double start = costs::cpuSeconds();
        QVERIFY(!importModel(json).refusal.isEmpty());
        const double onceMs = 1000 * (costs::cpuSeconds() - start);
        stage.server.answer(Stage::modelPath, HttpAnswer::json(json));
        const Heartbeat heartbeat;
        stage.click("Refresh");
        QTRY_VERIFY(stage.text("modelStatus") == QStringLiteral("Custom model active (0 cubes)."));
        QTest::qWait(20);
        const auto gapMs = static_cast<double>(heartbeat.longestProcessorMs());
        QVERIFY2(gapMs < 1.6 * onceMs, qPrintable(QStringLiteral("%1 %2").arg(gapMs).arg(onceMs)));
        QVERIFY2(gapMs > 0.5 * onceMs, "the model was not parsed in this thread");
        QVERIFY(before != stage.text("modelStatus"));
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
        stage.server.answer(Stage::skinPath, HttpAnswer::ok(png_files::square(64, qRgb(1, 2, 3))));
        stage.server.answer(Stage::modelPath, HttpAnswer::json(Stage::twoCubes));
        Stage::signIn();
        stage.open();
        QCOMPARE(stage.nameField()->text(), QStringLiteral("Ada"));
        QCOMPARE(stage.text("uuid"), QStringLiteral("UUID: ") + Stage::uuid);
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

    // Only a 404 says that there is none.
    void keepsItsTextsWhenTheServerFails()
    {
        Stage stage;
        stage.server.answer(Stage::skinPath, HttpAnswer::ok(png_files::square(64, qRgb(1, 2, 3))));
        stage.server.answer(Stage::modelPath, HttpAnswer::json(Stage::twoCubes));
        Stage::signIn();
        stage.open();
        QTRY_COMPARE(stage.text("skinStatus"), QStringLiteral("Skin active."));
        QTRY_COMPARE(stage.text("modelStatus"), QStringLiteral("Custom model active (2 cubes)."));
        stage.server.forgetRequests();
        stage.server.answer(Stage::skinPath, HttpAnswer::htmlError(500));
        stage.server.answer(Stage::modelPath, HttpAnswer::htmlError(410));
        stage.click("Refresh");
        QTRY_COMPARE(stage.server.requests().size(), 2);
        stage.server.forgetRequests();
        QTRY_VERIFY(stage.hasAskedNothing());
        QCOMPARE(stage.text("skinStatus"), QStringLiteral("Skin active."));
        QCOMPARE(stage.text("modelStatus"), QStringLiteral("Custom model active (2 cubes)."));
    }

    void takesSixteenMegabytes_data()
    {
        QTest::addColumn<QByteArray>("path");
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QByteArray>("label");
        QTest::addColumn<QString>("active");
        QTest::newRow("skin") << Stage::skinPath << png_files::square(64, qRgb(1, 2, 3))
                              << QByteArray("skinStatus") << QStringLiteral("Skin active.");
        QTest::newRow("model") << Stage::modelPath << Stage::twoCubes << QByteArray("modelStatus")
                               << QStringLiteral("Custom model active (2 cubes).");
    }

    void takesSixteenMegabytes()
    {
        QFETCH(QByteArray, path);
        QFETCH(QByteArray, content);
        QFETCH(QByteArray, label);
        QFETCH(QString, active);
        constexpr qsizetype most = 16 * 1024 * 1024;
        Stage stage;
        stage.openSignedIn();
        const QString before = stage.text(label.constData());
        stage.server.answer(path, HttpAnswer::ok(content.leftJustified(most + 1)));
        stage.click("Refresh");
        QTRY_COMPARE(stage.server.requests().size(), 2);
        stage.server.forgetRequests();
        QTRY_VERIFY(stage.hasAskedNothing());
        QCOMPARE(stage.text(label.constData()), before);
        stage.server.answer(path, HttpAnswer::ok(content.leftJustified(most)));
        stage.click("Refresh");
        QTRY_COMPARE(stage.text(label.constData()), active);
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
        stage.server.answer(Stage::modelPath, HttpAnswer::ok(body));
        Stage::signIn();
        stage.open();
        QTRY_COMPARE(stage.text("modelStatus"),
                     QStringLiteral("Custom model active (%1 cubes).").arg(cubes));
        QCOMPARE(stage.preview()->bakedModel().vertices.size(), 2160);
    }

    void tellsWhenThePictureIsNotTheModel_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("status");
        QTest::addColumn<QString>("description");
        const QByteArray room =
            R"({"box_uv":true,"from":[-99,-99,-99],"to":[99,99,99],"uuid":"a"})";
        const QByteArray often = QByteArray(R"("a",)").repeated(500).chopped(1);
        QTest::newRow("shown") << Stage::twoCubes
                               << QStringLiteral("Custom model active (2 cubes).") << QString();
        QTest::newRow("refused")
            << QByteArray(R"({"elements":[1,2,3]})")
            << QStringLiteral("Custom model active (3 cubes).")
            << QStringLiteral("This model cannot be shown: every element must use box UV; the "
                              "default character stands in.");
        QTest::newRow("cut down") << QByteArray(R"({"elements":[)" + room + R"(],"outliner":[)" +
                                                often + "]}")
                                  << QStringLiteral("Custom model active (1 cubes).")
                                  << QStringLiteral("Only the first 99 boxes of this model are "
                                                    "shown; the others would take too long to "
                                                    "draw.");
    }

    // Beside the picture; the status line counts what the file lists.
    void tellsWhenThePictureIsNotTheModel()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, status);
        QFETCH(QString, description);
        Stage stage;
        stage.server.answer(Stage::modelPath, HttpAnswer::ok(body));
        Stage::signIn();
        stage.open();
        QTRY_COMPARE(stage.text("modelStatus"), status);
        QCOMPARE(stage.preview()->toolTip(), description);
        QCOMPARE(stage.preview()->accessibleDescription(), description);
        stage.server.answer(Stage::modelPath, HttpAnswer::json(Stage::twoCubes));
        stage.click("Refresh");
        QTRY_COMPARE(stage.text("modelStatus"), QStringLiteral("Custom model active (2 cubes)."));
        QCOMPARE(stage.preview()->toolTip(), QString());
    }

    void keepsThePreviewWhenTheServerHasNothingAnyMore()
    {
        Stage stage;
        stage.server.answer(Stage::skinPath, HttpAnswer::ok(png_files::square(64, qRgb(1, 2, 3))));
        stage.server.answer(Stage::modelPath, HttpAnswer::json(Stage::twoCubes));
        Stage::signIn();
        stage.open();
        QTRY_COMPARE(stage.text("skinStatus"), QStringLiteral("Skin active."));
        QTRY_COMPARE(stage.text("modelStatus"), QStringLiteral("Custom model active (2 cubes)."));
        stage.server.answer(Stage::skinPath, HttpAnswer::htmlError(404));
        stage.server.answer(Stage::modelPath, HttpAnswer::htmlError(404));
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
        stage.server.answer(Stage::skinPath, answer);
        stage.server.answer(Stage::modelPath, answer);
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
        Q_EMIT stage.auth.loginSucceeded(QStringLiteral("Ada"), Stage::uuid, QStringLiteral("t"));
        QCOMPARE(stage.nameField()->text(), QStringLiteral("Ada"));
        QCOMPARE(stage.text("uuid"), QStringLiteral("UUID: ") + Stage::uuid);
        QTRY_VERIFY(!stage.text("skinStatus").isEmpty() && !stage.text("modelStatus").isEmpty());
        Q_EMIT stage.auth.loggedOut();
        QCOMPARE(stage.nameField()->text(), QString());
        for (const char* name : {"uuid", "renameStatus", "skinStatus", "modelStatus"})
            QCOMPARE(stage.text(name), QString());
        stage.server.forgetRequests();
        stage.click("Refresh");
        stage.click("Change");
        QCOMPARE(stage.text("renameStatus"), QStringLiteral("Log in first."));
        QVERIFY(stage.hasAskedNothing());
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
        QVERIFY(stage.hasAskedNothing());
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
        QCOMPARE(Settings::get().authUuid(), Stage::uuid);
        QCOMPARE(renamed.count(), 1);
        QCOMPARE(renamed.first(),
                 (QVariantList{QStringLiteral("Grace"), Stage::uuid, QStringLiteral("t0ken")}));
        QCOMPARE(stage.nameField()->text(), QStringLiteral("Grace"));
        QTRY_COMPARE(stage.server.requestCount(Stage::skinPath), 1);
    }

    void asksForANameBeforeItSendsOne()
    {
        Stage stage;
        stage.openSignedIn();
        stage.nameField()->setText(QStringLiteral(" \t "));
        stage.click("Change");
        QCOMPARE(stage.text("renameStatus"), QStringLiteral("Enter a username."));
        QVERIFY(stage.hasAskedNothing());
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
        Stage::signIn();
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
