#include "app/settings.h"
#include "preview/open_gl.h"
#include "preview/skin_preview_3d.h"
#include "tests/support/file_dialog_script.h"
#include "tests/support/png_files.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/window_driver.h"
#include "ui/main_window.h"
#include "ui/profile_page.h"
#include "versions/version_manager.h"

#include <QFile>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QSurfaceFormat>
#include <QTemporaryDir>
#include <QTest>

// The launcher where there is no OpenGL: by default the display offers none at all. Who sets
// QT_XCB_GL_INTEGRATION chooses another way of not having it.
class TestWithoutGl : public QObject
{
    Q_OBJECT

public:
    static void initMain()
    {
        throwaway_home::enter();
        if (!qEnvironmentVariableIsSet("QT_XCB_GL_INTEGRATION"))
            qputenv("QT_XCB_GL_INTEGRATION", "none");
        QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
        QSurfaceFormat::setDefaultFormat(open_gl::format());
    }

private Q_SLOTS:
    void init()
    {
        m_driver = std::make_unique<WindowDriver>();
        m_driver->storeSession();
    }
    void cleanup() { m_driver.reset(); }

    void findsNoOpenGl() { QVERIFY(!open_gl::isUsable()); }

    void showsAPanelInThePreviewsPlace()
    {
        m_driver->openAndWait();
        m_driver->click(m_driver->nav("Profile"));
        auto* page = m_driver->window().findChild<ProfilePage*>();
        QVERIFY(page->isVisible());
        const auto visibleTexts = [page] {
            QStringList texts;
            for (const QLabel* label : page->findChildren<QLabel*>()) {
                if (label->isVisible())
                    texts << label->text();
            }
            return texts;
        };
        QTRY_COMPARE(visibleTexts().count(QStringLiteral("3D preview needs OpenGL 3.3.")), 1);
        QVERIFY(!page->findChild<SkinPreview3D*>());
        QVERIFY(!visibleTexts().contains(QStringLiteral("Drag to rotate, scroll to zoom.")));
    }

    void stillUploadsASkin()
    {
        HttpServer& server = m_driver->server();
        const QByteArray png = png_files::square(64, qRgb(1, 2, 3));
        server.answer("/skins/upload", [&server](const HttpRequest& request) {
            const QString path = QStringLiteral("/skins/%1.png").arg(Settings::get().authUuid());
            server.answer(path.toUtf8(), HttpAnswer::ok(request.body));
            return HttpAnswer::ok({});
        });
        m_driver->openAndWait();
        m_driver->click(m_driver->nav("Profile"));
        QTRY_COMPARE(m_driver->find<QLabel>("skinStatus")->text(),
                     QStringLiteral("No skin uploaded (default look)."));

        QTemporaryDir directory;
        QFile file(directory.filePath(QStringLiteral("skin.png")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(png);
        file.close();
        const FileDialogScript script(file.fileName());
        for (QPushButton* button : m_driver->window().findChildren<QPushButton*>()) {
            if (button->text() == u"Change skin...")
                button->click();
        }
        QVERIFY(script.wasShown());
        QTRY_COMPARE(m_driver->find<QLabel>("skinStatus")->text(), QStringLiteral("Skin active."));
    }

    // The game itself is a shell script here: what counts is that PLAY starts it.
    void stillPlays()
    {
        QTemporaryDir directory;
        QFile java(directory.filePath(QStringLiteral("java")));
        QVERIFY(java.open(QIODevice::WriteOnly));
        java.write("#!/bin/sh\necho the game runs\n");
        java.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        java.close();
        Settings::get().setJavaPath(java.fileName());
        m_driver->serveManifest({m_driver->serveVersion(QStringLiteral("1.0"), "a jar")});
        m_driver->openAndWait();
        QSignalSpy exited(&m_driver->versions(), &VersionManager::gameExited);
        m_driver->click(m_driver->play());
        QTRY_COMPARE_WITH_TIMEOUT(exited.size(), 1, 20000);
        QVERIFY(m_driver->consoleLines().contains(QStringLiteral("the game runs")));
    }

private:
    std::unique_ptr<WindowDriver> m_driver;
};

QTEST_MAIN(TestWithoutGl)
#include "tst_without_gl.moc"
