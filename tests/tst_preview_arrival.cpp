#include "app/settings.h"
#include "preview/open_gl.h"
#include "preview/skin_preview_3d.h"
#include "tests/support/png_files.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/window_driver.h"
#include "ui/main_window.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QLabel>
#include <QProcess>
#include <QSurfaceFormat>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QWindow>

namespace {

const QByteArray twoCubes =
    R"({"elements":[{"box_uv":true,"from":[0,0,0],"to":[8,8,8],"uuid":"a"},)"
    R"({"box_uv":true,"from":[0,9,0],"to":[8,16,8],"uuid":"b"}],"outliner":["a","b"]})";

// A real one, for the whole program: Qt asks once, when it starts, what a window manager supports.
class WindowManager
{
public:
    WindowManager()
    {
        const QString started = m_directory.filePath(QStringLiteral("started"));
        m_process.start(QStringLiteral("openbox"),
                        {QStringLiteral("--sm-disable"), QStringLiteral("--startup"),
                         QStringLiteral("touch ") + started});
        QDeadlineTimer deadline(20000);
        while (!QFile::exists(started) && !deadline.hasExpired())
            QThread::msleep(10);
    }
    ~WindowManager()
    {
        m_process.terminate();
        m_process.waitForFinished();
    }

    WindowManager(const WindowManager&) = delete;
    WindowManager& operator=(const WindowManager&) = delete;

private:
    QTemporaryDir m_directory;
    QProcess m_process;
};

} // namespace

// The window before and after its account page is first seen: only then does it hold OpenGL, for
// which Qt makes the native window anew.
class TestPreviewArrival : public QObject
{
    Q_OBJECT

public:
    static void initMain()
    {
        throwaway_home::enter();
        static const WindowManager manager;
        QSurfaceFormat::setDefaultFormat(open_gl::format());
    }

private Q_SLOTS:
    void init()
    {
        m_driver = std::make_unique<WindowDriver>();
        m_driver->storeSession();
    }
    void cleanup() { m_driver.reset(); }

    void waitsUntilThePageIsSeen()
    {
        m_driver->openAndWait();
        QVERIFY(!preview());
        QCOMPARE(handle()->surfaceType(), QSurface::RasterSurface);
        seeAccount();
        QCOMPARE(handle()->surfaceType(), QSurface::OpenGLSurface);
        const SkinPreview3D* made = preview();
        QCOMPARE(made->bakedModel().vertices.size(), 2160); // the default figure
        m_driver->click(m_driver->nav("News"));
        m_driver->click(m_driver->nav("Profile"));
        QCoreApplication::processEvents();
        QCOMPARE(m_driver->window().findChildren<SkinPreview3D*>(),
                 QList<SkinPreview3D*>{preview()});
        QCOMPARE(preview(), made);
    }

    void takesWhatCameBefore()
    {
        const QString uuid = Settings::get().authUuid();
        m_driver->server().answer(QStringLiteral("/skins/%1.png").arg(uuid).toUtf8(),
                                  HttpAnswer::ok(png_files::square(64, qRgb(1, 2, 3))));
        m_driver->server().answer(QStringLiteral("/models/%1.json").arg(uuid).toUtf8(),
                                  HttpAnswer::json(twoCubes));
        m_driver->openAndWait();
        QTRY_COMPARE(m_driver->find<QLabel>("skinStatus")->text(), QStringLiteral("Skin active."));
        QTRY_COMPARE(m_driver->find<QLabel>("modelStatus")->text(),
                     QStringLiteral("Custom model active (2 cubes)."));
        seeAccount();
        QCOMPARE(preview()->skinImage().pixelColor(0, 0), QColor(1, 2, 3));
        QCOMPARE(preview()->bakedModel().vertices.size(), 360);
        QCOMPARE(
            m_driver->server().requestCount(QStringLiteral("/skins/%1.png").arg(uuid).toUtf8()), 1);
    }

    void leavesTheWindowWhereItWas()
    {
        openFramed();
        m_driver->window().move(123, 77);
        QTRY_COMPARE(m_driver->window().pos(), QPoint(123, 77));
        m_driver->nav("Profile")->setFocus();
        seeAccount();
        QTRY_VERIFY(m_driver->window().isActiveWindow());
        QCOMPARE(m_driver->window().pos(), QPoint(123, 77));
        QCOMPARE(m_driver->window().size(), QSize(1080, 600));
        QCOMPARE(QApplication::focusWidget(), m_driver->nav("Profile"));
    }

    void leavesTheWindowMaximized()
    {
        openFramed();
        m_driver->window().move(123, 77);
        QTRY_COMPARE(m_driver->window().pos(), QPoint(123, 77));
        m_driver->window().showMaximized();
        QTRY_VERIFY(m_driver->window().width() > 1500);
        const QSize size = m_driver->window().size();
        seeAccount();
        QTRY_VERIFY(m_driver->window().isActiveWindow());
        QTRY_COMPARE(m_driver->window().size(), size);
        QTRY_COMPARE(handle()->windowStates(), Qt::WindowMaximized);
        m_driver->window().showNormal();
        QTRY_COMPARE(m_driver->window().size(), QSize(1080, 600));
        QTRY_COMPARE(m_driver->window().pos(), QPoint(123, 77));
    }

private:
    SkinPreview3D* preview() { return m_driver->window().findChild<SkinPreview3D*>(); }
    QWindow* handle() { return m_driver->window().windowHandle(); }

    // Until the window manager has framed it.
    void openFramed()
    {
        m_driver->openAndWait();
        QTRY_VERIFY(m_driver->window().frameGeometry() != m_driver->window().geometry());
        QTRY_VERIFY(m_driver->window().isActiveWindow());
    }

    void seeAccount()
    {
        m_driver->click(m_driver->nav("Profile"));
        QTRY_VERIFY(preview());
        QVERIFY(QTest::qWaitForWindowExposed(&m_driver->window()));
    }

    std::unique_ptr<WindowDriver> m_driver;
};

QTEST_MAIN(TestPreviewArrival)
#include "tst_preview_arrival.moc"
