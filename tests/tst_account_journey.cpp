#include "app/settings.h"
#include "preview/open_gl.h"
#include "preview/skin_preview_3d.h"
#include "services/auth_client.h"
#include "tests/support/backend_process.h"
#include "tests/support/file_dialog_script.h"
#include "tests/support/png_files.h"
#include "tests/support/throwaway_home.h"
#include "ui/profile_page.h"

#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QNetworkAccessManager>
#include <QPushButton>
#include <QSignalSpy>
#include <QSurfaceFormat>
#include <QTemporaryDir>
#include <QTest>

namespace {

const QByteArray oneCube =
    R"({"elements":[{"box_uv":true,"from":[-8,8,-8],"to":[8,24,8],"uuid":"a"}],"outliner":["a"]})";

const QString password = QStringLiteral("correct horse battery");

} // namespace

// The account page and the real server program, step by step as a player goes.
class TestAccountJourney : public QObject
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
    void initTestCase()
    {
        QVERIFY2(m_backend.start(), m_backend.output().constData());
        Settings::get().setServerUrl(m_backend.origin());
        m_page = std::make_unique<ProfilePage>(&m_auth, nullptr);
        m_page->resize(900, 700);
        m_page->show();
        // What the main window does with a session.
        connect(&m_auth, &AuthClient::loginSucceeded, this,
                [](const QString& name, const QString& uuid, const QString& token) {
                    Settings::get().setAuth(token, name, uuid);
                });
        connect(&m_auth, &AuthClient::loggedOut, this, [] { Settings::get().clearAuth(); });
    }
    void cleanupTestCase() { m_page.reset(); }

    void greetsANewAccount()
    {
        m_auth.registerAccount(QStringLiteral("Other"), password);
        QTRY_COMPARE(nameField()->text(), QStringLiteral("Other"));
        m_auth.registerAccount(QStringLiteral("Ada"), password);
        QTRY_COMPARE(nameField()->text(), QStringLiteral("Ada"));
        QCOMPARE(label("uuid")->text(),
                 QString(QStringLiteral("UUID: ") + Settings::get().authUuid()));
        QTRY_COMPARE(label("skinStatus")->text(),
                     QStringLiteral("No skin uploaded (default look)."));
        QTRY_COMPARE(label("modelStatus")->text(),
                     QStringLiteral("No custom model (default character)."));
    }

    void takesASkin_data()
    {
        QTest::addColumn<int>("side");
        QTest::newRow("64 x 64") << 64;
        QTest::newRow("128 x 128") << 128;
    }

    void takesASkin()
    {
        QFETCH(int, side);
        upload("Change skin...", png_files::square(side, qRgb(200, 60, 30)));
        QTRY_COMPARE(preview()->skinImage().size(), QSize(side, side));
        QCOMPARE(preview()->skinImage().pixelColor(0, 0), QColor(200, 60, 30));
        QTRY_COMPARE(label("skinStatus")->text(), QStringLiteral("Skin active."));
    }

    void refusesABadSkin_data()
    {
        const QByteArray png = png_files::square(64, qRgb(1, 2, 3));
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("text") << QByteArray("hello");
        QTest::newRow("cut") << png.first(60);
        QTest::newRow("1 x 1") << png_files::square(1, qRgb(1, 2, 3));
        QTest::newRow("20000 x 20000") << png_files::withClaimedSize(png, 20000, 20000);
    }

    void refusesABadSkin()
    {
        QFETCH(QByteArray, bytes);
        upload("Change skin...", bytes);
        QTRY_VERIFY(isAnswered("skinStatus"));
        QVERIFY2(!label("skinStatus")->text().startsWith(u"Skin"),
                 qPrintable(label("skinStatus")->text()));
        // The skin of before is still there, here and on the server.
        QCOMPARE(preview()->skinImage().size(), QSize(128, 128));
        refresh();
        QCOMPARE(label("skinStatus")->text(), QStringLiteral("Skin active."));
        QCOMPARE(preview()->skinImage().size(), QSize(128, 128));
    }

    void takesAModel()
    {
        upload("Change model...", oneCube);
        QTRY_COMPARE(label("modelStatus")->text(),
                     QStringLiteral("Custom model active (1 cubes)."));
        QCOMPARE(preview()->bakedModel().vertices.size(), 180);
    }

    void refusesABadModel_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("no JSON") << QByteArray("hello");
        QTest::newRow("an array") << QByteArray("[1]");
        QTest::newRow("texture per face") << QByteArray(oneCube).replace("true", "false");
        QTest::newRow("nested too deep") << QByteArray("[").repeated(5000);
    }

    void refusesABadModel()
    {
        QFETCH(QByteArray, bytes);
        upload("Change model...", bytes);
        QTRY_VERIFY(isAnswered("modelStatus"));
        // An error and its reasons.
        QVERIFY2(label("modelStatus")->text().contains(u": "),
                 qPrintable(label("modelStatus")->text()));
        QCOMPARE(preview()->bakedModel().vertices.size(), 180);
    }

    void renames()
    {
        nameField()->setText(QStringLiteral("Grace"));
        click("Change");
        QTRY_COMPARE(label("renameStatus")->text(), QStringLiteral("Username updated."));
        QCOMPARE(Settings::get().authUsername(), QStringLiteral("Grace"));
        nameField()->setText(QStringLiteral("Other"));
        click("Change");
        QTRY_VERIFY(label("renameStatus")->text() != u"Username updated.");
        QVERIFY(!label("renameStatus")->text().isEmpty());
        QCOMPARE(Settings::get().authUsername(), QStringLiteral("Grace"));
    }

    void keepsEverythingAcrossSessions()
    {
        const QString uuid = Settings::get().authUuid();
        m_auth.logout(Settings::get().authToken());
        QTRY_COMPARE(label("uuid")->text(), QString());
        QCOMPARE(label("skinStatus")->text(), QString());
        m_auth.login(QStringLiteral("Grace"), password);
        QTRY_COMPARE(label("uuid")->text(), QString(QStringLiteral("UUID: ") + uuid));
        QTRY_COMPARE(label("skinStatus")->text(), QStringLiteral("Skin active."));
        QTRY_COMPARE(label("modelStatus")->text(),
                     QStringLiteral("Custom model active (1 cubes)."));
    }

    void dropsTheReplyThatASignOutOvertakes()
    {
        QSignalSpy finished(m_page->findChild<QNetworkAccessManager*>(),
                            &QNetworkAccessManager::finished);
        click("Refresh");
        Q_EMIT m_auth.loggedOut();
        QTRY_COMPARE(finished.count(), 2);
        QCoreApplication::processEvents();
        QCOMPARE(label("skinStatus")->text(), QString());
        QCOMPARE(label("modelStatus")->text(), QString());
    }

private:
    QLabel* label(const char* name) const
    {
        return m_page->findChild<QLabel*>(QLatin1StringView(name));
    }
    QLineEdit* nameField() const { return m_page->findChild<QLineEdit*>(); }
    SkinPreview3D* preview() const { return m_page->findChild<SkinPreview3D*>(); }
    bool isAnswered(const char* status) const
    {
        return label(status)->text() != u"Uploading..." && !label(status)->text().isEmpty();
    }

    void click(const QByteArray& text) const
    {
        for (QPushButton* button : m_page->findChildren<QPushButton*>()) {
            if (button->text().toUtf8() == text)
                QTest::mouseClick(button, Qt::LeftButton);
        }
    }

    void refresh() const
    {
        QSignalSpy finished(m_page->findChild<QNetworkAccessManager*>(),
                            &QNetworkAccessManager::finished);
        click("Refresh");
        QTRY_COMPARE(finished.count(), 2);
        QCoreApplication::processEvents();
    }

    void upload(const QByteArray& button, const QByteArray& content) const
    {
        QFile file(m_files.filePath(QStringLiteral("upload")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(content);
        file.close();
        const FileDialogScript script(file.fileName());
        click(button);
        QVERIFY(script.wasShown());
    }

    BackendProcess m_backend;
    AuthClient m_auth;
    std::unique_ptr<ProfilePage> m_page;
    QTemporaryDir m_files;
};

QTEST_MAIN(TestAccountJourney)
#include "tst_account_journey.moc"
