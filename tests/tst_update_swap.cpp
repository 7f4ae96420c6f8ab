#include "tests/support/backend_process.h"
#include "tests/support/files.h"
#include "tests/support/throwaway_home.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <memory>

namespace {

constexpr int limitMs = 60'000;

QStringList xdotool(const QStringList& arguments)
{
    QProcess process;
    process.start(QStringLiteral("xdotool"), arguments);
    if (!process.waitForFinished(limitMs))
        qWarning("xdotool: %s", qPrintable(process.errorString()));
    return QString::fromUtf8(process.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
}

// The process that shows a window of this title and runs this executable; 0 when there is none.
qint64 processShowing(const QString& title, const QString& exe)
{
    const QString pattern = u'^' + QRegularExpression::escape(title) + u'$';
    const QStringList windows = xdotool({QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                         QStringLiteral("--name"), pattern});
    for (const QString& window : windows) {
        const QString id = xdotool({QStringLiteral("getwindowpid"), window}).value(0);
        if (QFileInfo(u"/proc/" + id + u"/exe").symLinkTarget() == exe)
            return id.toLongLong();
    }
    return 0;
}

} // namespace

// Two real launchers of different versions, the real backend, the real window: nothing stands in
// for anything. The older one runs from a directory of its own.
class TestUpdateSwap : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<QTemporaryDir>();
        m_backend = std::make_unique<BackendProcess>();
        QVERIFY2(m_backend->start(), m_backend->output().constData());
    }

    void cleanup()
    {
        if (const qint64 id = processShowing(newTitle, exe())) {
            ::kill(static_cast<pid_t>(id), SIGTERM);
            QTRY_VERIFY(!QFile::exists(QStringLiteral("/proc/%1/exe").arg(id)));
        }
        m_backend.reset();
        m_home.reset();
    }

    void olderLauncherBecomesTheNewer_data()
    {
        QTest::addColumn<QString>("platform");
        QTest::newRow("build for Linux") << QStringLiteral("linux");
        QTest::newRow("generic build") << QStringLiteral("generic");
    }

    void olderLauncherBecomesTheNewer()
    {
        QFETCH(QString, platform);
        const auto published = m_backend->command(
            {QStringLiteral("publish"), QStringLiteral("launcher"), QStringLiteral("--file"),
             QStringLiteral(NEWER_LAUNCHER), QStringLiteral("--version"), QStringLiteral("1.0.16"),
             QStringLiteral("--platform"), platform});
        QVERIFY2(published.exitCode == 0, published.errors.constData());
        install();

        QProcess older;
        older.setProcessEnvironment(environment());
        older.setProcessChannelMode(QProcess::ForwardedChannels);
        older.start(exe(), QStringList());
        QTRY_COMPARE_WITH_TIMEOUT(processShowing(oldTitle, exe()), older.processId(), limitMs);
        QTRY_COMPARE_WITH_TIMEOUT(older.state(), QProcess::NotRunning, limitMs);
        QCOMPARE(older.exitStatus(), QProcess::NormalExit);
        QCOMPARE(older.exitCode(), 0);

        expectToHaveShown();

        QTRY_VERIFY_WITH_TIMEOUT(processShowing(newTitle, exe()) != 0, limitMs);
        QVERIFY(contentOf(exe()) == contentOf(QStringLiteral(NEWER_LAUNCHER)));
        QVERIFY(QFileInfo(exe()).isExecutable());
        QCOMPARE(QDir(m_home->filePath(directory)).entryList(QDir::Files),
                 QStringList{QStringLiteral("tessellan-launcher")});
        QTRY_VERIFY(!QFile::exists(m_home->filePath(script)));
    }

    // A release that was built with other libraries than players have, published all the same.
    void olderLauncherRefusesWhatWouldNotStart()
    {
        QByteArray build = contentOf(QStringLiteral(NEWER_LAUNCHER));
        const QByteArray library("libQt6Widgets.so.6");
        QVERIFY(build.contains(library));
        build.replace(library, "libQt6Widgets.so.7");
        const QString file = m_home->filePath(QStringLiteral("next build"));
        writeFile(file, build);
        const auto published = m_backend->command(
            {QStringLiteral("publish"), QStringLiteral("launcher"), QStringLiteral("--file"), file,
             QStringLiteral("--version"), QStringLiteral("1.0.17"), QStringLiteral("--force")});
        QVERIFY2(published.exitCode == 0, published.errors.constData());
        install();

        // At each of its starts, and it goes on.
        for (int start = 1; start <= 2; ++start) {
            QProcess older;
            older.setProcessEnvironment(environment());
            older.setProcessChannelMode(QProcess::ForwardedChannels);
            older.start(exe(), QStringList());
            QTRY_VERIFY_WITH_TIMEOUT(shownTexts().contains(unfit), limitMs);
            QTRY_COMPARE_WITH_TIMEOUT(processShowing(oldTitle, exe()), older.processId(), limitMs);
            QTRY_VERIFY_WITH_TIMEOUT(shownTexts().contains(QRegularExpression(
                                         QStringLiteral("status 0 versions available(; .*)?"))),
                                     limitMs);
            // What it shows in the end still says it.
            QVERIFY2(shownTexts().constLast().endsWith(unfit.mid(7)),
                     qPrintable(shownTexts().join(u'\n')));
            QVERIFY(!shownTexts().contains(QStringLiteral("status Restarting...")));
            QCOMPARE(QDir(m_home->filePath(directory)).entryList(QDir::Files),
                     QStringList{QStringLiteral("tessellan-launcher")});
            QVERIFY(contentOf(exe()) == contentOf(QStringLiteral(OLDER_LAUNCHER)));
            QVERIFY(!QFile::exists(m_home->filePath(script)));
            older.terminate();
            QTRY_COMPARE_WITH_TIMEOUT(older.state(), QProcess::NotRunning, limitMs);
            QVERIFY(QFile::remove(m_home->filePath(windowLog)));
        }
    }

private:
    QStringList shownTexts() const
    {
        QStringList texts = QString::fromUtf8(contentOf(m_home->filePath(windowLog))).split(u'\n');
        texts.removeIf([](const QString& line) { return !line.startsWith(u"status "); });
        return texts;
    }

    QString exe() const { return m_home->filePath(QString(directory + u"/tessellan-launcher")); }

    void install()
    {
        QVERIFY(QDir(m_home->path()).mkpath(directory));
        QVERIFY(QDir(m_home->path()).mkpath(QStringLiteral("tmp")));
        QVERIFY(QFile::copy(QStringLiteral(OLDER_LAUNCHER), exe()));
        QSettings settings(m_home->filePath(QStringLiteral("config/Tessellan/Launcher.conf")),
                           QSettings::IniFormat);
        settings.setValue(QStringLiteral("serverUrl"), m_backend->origin());
        settings.setValue(QStringLiteral("manifestUrl"),
                          QString(m_backend->origin() + u"/manifest.json"));
    }

    // What the older launcher's window showed from its start to its end.
    void expectToHaveShown()
    {
        QStringList texts = QString::fromUtf8(contentOf(m_home->filePath(windowLog))).split(u'\n');
        const QStringList progress = texts.filter(QStringLiteral("progress "));
        texts.removeIf([](const QString& line) { return !line.startsWith(u"status "); });
        // The list of versions is fetched at the same time and may come before the update or after.
        QVERIFY(texts.removeOne(QStringLiteral("status 0 versions available")));
        QCOMPARE(texts, (QStringList{
                            QStringLiteral("status Checking for versions..."),
                            QStringLiteral("status Updating launcher to 1.0.16..."),
                            QStringLiteral("status Launcher 1.0.16 downloaded - restarting..."),
                            QStringLiteral("status Restarting..."),
                        }));
        QCOMPARE(progress.value(progress.size() - 1), QStringLiteral("progress 100 of 100"));
    }

    QProcessEnvironment environment() const
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("HOME"), m_home->path());
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"),
                           m_home->filePath(QStringLiteral("config")));
        environment.insert(QStringLiteral("XDG_DATA_HOME"),
                           m_home->filePath(QStringLiteral("data")));
        environment.insert(QStringLiteral("TMPDIR"), m_home->filePath(QStringLiteral("tmp")));
        environment.insert(QStringLiteral("WINDOW_LOG"), m_home->filePath(windowLog));
        return environment;
    }

    const QString directory = QStringLiteral("my Spiele für später");
    const QString unfit = QStringLiteral("status Launcher 1.0.17 would not start here: "
                                         "libQt6Widgets.so.7 is missing - install its archive");
    const QString script = QStringLiteral("tmp/tessellan_launcher_update.sh");
    const QString windowLog = QStringLiteral("window.log");
    const QString oldTitle = QStringLiteral("Tessellan Launcher 1.0.15");
    const QString newTitle = QStringLiteral("Tessellan Launcher 1.0.16");

    std::unique_ptr<QTemporaryDir> m_home;
    std::unique_ptr<BackendProcess> m_backend;
};

QTEST_GUILESS_MAIN(TestUpdateSwap)
#include "tst_update_swap.moc"
