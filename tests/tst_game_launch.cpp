#include "app/settings.h"
#include "services/runtime_manager.h"
#include "tests/support/files.h"
#include "tests/support/throwaway_home.h"
#include "versions/version_manager.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QScopeGuard>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <csignal>
#include <memory>

#include <sys/stat.h>

namespace {

const auto version = QStringLiteral("0.3");
const auto startError = QStringLiteral("Failed to start java — check java path in settings");

// Prints each argument on a line of its own.
const QByteArray printArguments = "for a in \"$@\"; do echo \"[$a]\"; done";

} // namespace

class TestGameLaunch : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<QTemporaryDir>();
        Settings::get().setGameDir(m_home->filePath(QStringLiteral("game")));
        m_manager = std::make_unique<VersionManager>();
        m_events.clear();
        connect(m_manager.get(), &VersionManager::gameLog, this,
                [this](const QString& line) { m_events.append(line); });
        connect(m_manager.get(), &VersionManager::gameExited, this,
                [this](int code) { m_events.append(QStringLiteral("exit %1").arg(code)); });
        writeFile(m_manager->jarPath(version), "jar");
    }

    void needsTheJar()
    {
        useScript("echo never");
        QString error;
        QVERIFY(!m_manager->launch(QStringLiteral("0.4"), &error, {}));
        QCOMPARE(error, QStringLiteral("Version not installed"));
        QVERIFY(!m_manager->launch(QStringLiteral("0.4"), nullptr, {}));
        QVERIFY(m_events.isEmpty());
        QVERIFY(m_manager->findChildren<QProcess*>().isEmpty());
    }

    void ordersTheArguments_data()
    {
        QTest::addColumn<QStringList>("extra");
        QTest::addColumn<QStringList>("before");
        QTest::addColumn<QStringList>("after");
        const auto list = [](const char* words) {
            return QString::fromLatin1(words).split(u' ', Qt::SkipEmptyParts);
        };
        QTest::newRow("none") << list("") << list("") << list("");
        QTest::newRow("mixed") << list("-Xmx2048m --username bob -Dx=1") << list("-Xmx2048m -Dx=1")
                               << list("--username bob");
        QTest::newRow("a value with one dash")
            << list("--token -t --add-opens x") << list("-t") << list("--token --add-opens x");
        QTest::newRow("dashes alone") << list("-- - ---x") << list("-") << list("-- ---x");
        QTest::newRow("blanks and nothing stay whole")
            << QStringList{QStringLiteral("-Da=b c"), QString(), QStringLiteral("x  y")}
            << QStringList{QStringLiteral("-Da=b c")}
            << QStringList{QString(), QStringLiteral("x  y")};
    }

    void ordersTheArguments()
    {
        QFETCH(QStringList, extra);
        QFETCH(QStringList, before);
        QFETCH(QStringList, after);
        const QString java = useScript(printArguments);
        QVERIFY(m_manager->launch(version, nullptr, extra));
        QTRY_COMPARE(lastEvent(), QStringLiteral("exit 0"));
        const QStringList all =
            before + QStringList{QStringLiteral("-jar"), m_manager->jarPath(version)} + after;
        QStringList expected{QString(u"> " + java + u' ' + all.join(u' ')),
                             QString(u"  (working dir: " + Settings::get().gameDir() + u')')};
        for (const QString& argument : all)
            expected.append(QString(u'[' + argument + u']'));
        expected << QStringLiteral("process exited (code 0)") << QStringLiteral("exit 0");
        QCOMPARE(m_events, expected);
    }

    // Where java stands is not where the launcher stands.
    void startsFromARelativeGameDirectory_data()
    {
        QTest::addColumn<QString>("directory");
        QTest::newRow("a name") << QStringLiteral("games");
        QTest::newRow("below another") << QStringLiteral("./a b/../games");
        QTest::newRow("above") << QStringLiteral("../games");
        QTest::newRow("like an option") << QStringLiteral("-games");
    }

    void startsFromARelativeGameDirectory()
    {
        QFETCH(QString, directory);
        const QString before = QDir::currentPath();
        QDir().mkpath(m_home->filePath(QStringLiteral("here/a b")));
        QVERIFY(QDir::setCurrent(m_home->filePath(QStringLiteral("here"))));
        const auto back = qScopeGuard([&before] { QDir::setCurrent(before); });
        Settings::get().setGameDir(directory);
        QCOMPARE(m_manager->jarPath(version),
                 QString(directory + u"/versions/0.3/tessellan-0.3.jar"));
        writeFile(m_manager->jarPath(version), "jar");
        writeScript(RuntimeManager::javaExe(), "echo own runtime; cat \"$2\"; echo; pwd");
        Settings::get().setJavaPath(QStringLiteral("java"));
        QString error;
        QVERIFY2(m_manager->launch(version, &error, {}), qPrintable(error));
        QTRY_COMPARE(lastEvent(), QStringLiteral("exit 0"));
        QCOMPARE(m_events.at(1), QString(u"  (working dir: " + directory + u')'));
        QCOMPARE(output(), (QStringList{QStringLiteral("own runtime"), QStringLiteral("jar"),
                                        QDir(directory).canonicalPath()}));
    }

    // The system's calls end every text at its first NUL: what is sorted and shown is what is
    // passed.
    void passesWhatItShows()
    {
        const QString java = useScript(printArguments);
        const auto nul = [](const char* text) {
            return QString::fromLatin1(text).replace(u'0', QChar(QChar::Null));
        };
        Settings::get().setJavaPath(java + nul("0x"));
        QVERIFY(m_manager->launch(version, nullptr,
                                  {nul("-Da0b"), QStringLiteral("--token"), nul("t0--offline"),
                                   nul("0-jar"), QStringLiteral("line\n--break")}));
        QTRY_COMPARE(lastEvent(), QStringLiteral("exit 0"));
        const QString jar = m_manager->jarPath(version);
        QCOMPARE(m_events.constFirst(),
                 QString(u"> " + java + u" -Da -jar " + jar + u" --token t  line\n--break"));
        QCOMPARE(output(), (QStringList{QStringLiteral("[-Da]"), QStringLiteral("[-jar]"),
                                        QString(u'[' + jar + u']'), QStringLiteral("[--token]"),
                                        QStringLiteral("[t]"), QStringLiteral("[]"),
                                        QStringLiteral("[line"), QStringLiteral("--break]")}));
        Settings::get().setJavaPath(nul("java0x"));
        writeScript(RuntimeManager::javaExe(), "echo own runtime");
        m_events.clear();
        QVERIFY(m_manager->launch(version, nullptr, {}));
        QTRY_COMPARE(lastEvent(), QStringLiteral("exit 0"));
        QCOMPARE(output(), QStringList{QStringLiteral("own runtime")});
    }

    void startsNothingFromWhereNothingCanBe_data()
    {
        QTest::addColumn<QString>("directory");
        QTest::addColumn<QString>("id");
        QTest::newRow("NUL in the directory") << QString(u"a" + QString(QChar::Null)) << version;
        QTest::newRow("NUL in the version") << QString() << QString(u"0" + QString(QChar::Null));
        QTest::newRow("no directory") << QString() << version;
        QTest::newRow("no version") << QString() << QString();
    }

    void startsNothingFromWhereNothingCanBe()
    {
        QFETCH(QString, directory);
        QFETCH(QString, id);
        useScript("echo never");
        Settings::get().setGameDir(directory);
        QString error;
        QVERIFY(!m_manager->launch(id, &error, {}));
        QCOMPARE(error, QStringLiteral("Version not installed"));
        QVERIFY(m_events.isEmpty());
    }

    void runsInTheGameDirectory()
    {
        useScript("pwd; echo $TEST_INHERITED");
        qputenv("TEST_INHERITED", "from outside");
        QVERIFY(m_manager->launch(version, nullptr, {}));
        QTRY_COMPARE(lastEvent(), QStringLiteral("exit 0"));
        const QStringList expected{Settings::get().gameDir(), QStringLiteral("from outside")};
        QCOMPARE(output(), expected);
    }

    void choosesTheProgram_data()
    {
        QTest::addColumn<QString>("configured");
        QTest::addColumn<bool>("runtime");
        QTest::addColumn<QString>("expected");
        const auto java = QStringLiteral("java");
        const auto own = QStringLiteral("own runtime");
        const auto path = QStringLiteral("from the path");
        QTest::newRow("java, with runtime") << java << true << own;
        QTest::newRow("java, without") << java << false << path;
        QTest::newRow("empty, with runtime") << QString() << true << own;
        QTest::newRow("empty, without") << QString() << false << QString();
        QTest::newRow("other letter case") << QStringLiteral("Java") << true << QString();
        QTest::newRow("another word") << QStringLiteral("javax") << true << path;
    }

    void choosesTheProgram()
    {
        QFETCH(QString, configured);
        QFETCH(bool, runtime);
        QFETCH(QString, expected); // empty: it does not start
        const QByteArray pathBefore = qgetenv("PATH");
        writeScript(m_home->filePath(QStringLiteral("bin/java")), "echo from the path");
        writeScript(m_home->filePath(QStringLiteral("bin/javax")), "echo from the path");
        qputenv("PATH", QByteArray(m_home->path().toLocal8Bit() + "/bin:" + pathBefore));
        if (runtime)
            writeScript(RuntimeManager::javaExe(), "echo own runtime");
        Settings::get().setJavaPath(configured);
        const bool started = m_manager->launch(version, nullptr, {});
        qputenv("PATH", pathBefore);
        QCOMPARE(started, !expected.isEmpty());
        if (started) {
            QTRY_COMPARE(lastEvent(), QStringLiteral("exit 0"));
            QCOMPARE(output(), QStringList{expected});
        }
    }

    void takesAConfiguredPathOverTheRuntime()
    {
        writeScript(RuntimeManager::javaExe(), "echo own runtime");
        useScript("echo configured");
        QVERIFY(m_manager->launch(version, nullptr, {}));
        QTRY_COMPARE(lastEvent(), QStringLiteral("exit 0"));
        QCOMPARE(output(), QStringList{QStringLiteral("configured")});
    }

    void reportsWhatCannotStart_data()
    {
        QTest::addColumn<QString>("java"); // below the home; none: an empty path
        QTest::newRow("missing") << QStringLiteral("no-such-java");
        QTest::newRow("a directory") << QStringLiteral("game");
        QTest::newRow("not executable") << QStringLiteral("game/versions/0.3/tessellan-0.3.jar");
        QTest::newRow("empty") << QString();
    }

    void reportsWhatCannotStart()
    {
        QFETCH(QString, java);
        const QString path = java.isEmpty() ? QString() : m_home->filePath(java);
        Settings::get().setJavaPath(path);
        QString error;
        QVERIFY(!m_manager->launch(version, &error, {}));
        QCOMPARE(error, startError);
        QCOMPARE(m_events.size(), 3);
        QVERIFY(m_events[0].startsWith(QString(u"> " + path + u" -jar ")));
        QVERIFY(m_events[1].startsWith(u"  (working dir: "));
        QVERIFY(m_events[2].startsWith(u"FAILED TO START: "));
        QVERIFY(m_events[2].endsWith(u" — check the java path in Settings"));
        QVERIFY(m_events[2].size() > QStringLiteral("FAILED TO START:  — check the java path in "
                                                    "Settings")
                                         .size());
        QTRY_VERIFY(m_manager->findChildren<QProcess*>().isEmpty());
        QCOMPARE(m_events.size(), 3);
        QVERIFY(!m_manager->launch(version, nullptr, {}));
    }

    void leavesTheInputOpen()
    {
        // bash tells the end of the input (1) from none yet (above 128).
        useScript("exec bash -c 'read -t 0.1; test $? -gt 128 && echo open'");
        QVERIFY(m_manager->launch(version, nullptr, {}));
        QTRY_COMPARE(lastEvent(), QStringLiteral("exit 0"));
        QCOMPARE(output(), QStringList{QStringLiteral("open")});
    }

    void reportsTheExitCode()
    {
        useScript("exit 3");
        QString error = QStringLiteral("untouched");
        QVERIFY(m_manager->launch(version, &error, {}));
        QCOMPARE(error, QStringLiteral("untouched"));
        QTRY_COMPARE(lastEvent(), QStringLiteral("exit 3"));
        QCOMPARE(m_events.at(m_events.size() - 2), QStringLiteral("process exited (code 3)"));
        QTRY_VERIFY(m_manager->findChildren<QProcess*>().isEmpty());
    }

    void reportsDeathByASignal()
    {
        useScript("echo last words; kill -SEGV $$");
        QVERIFY(m_manager->launch(version, nullptr, {}));
        QTRY_COMPARE(lastEvent(), QStringLiteral("exit %1").arg(SIGSEGV));
        const QStringList expected{QStringLiteral("last words"),
                                   QStringLiteral("process CRASHED (code %1)").arg(SIGSEGV),
                                   lastEvent()};
        QCOMPARE(m_events.mid(2), expected);
        QTRY_VERIFY(m_manager->findChildren<QProcess*>().isEmpty());
    }

    void splitsTheOutput_data()
    {
        QTest::addColumn<QByteArray>("printed"); // as printf takes it
        QTest::addColumn<QStringList>("lines");
        const auto a = QStringLiteral("a");
        const auto b = QStringLiteral("b");
        QTest::newRow("carriage returns") << QByteArray("a\\r\\n\\r\\nb") << QStringList{a, b};
        QTest::newRow("blanks") << QByteArray("  a \\t\\n   \\n\\tb\\n") << QStringList{a, b};
        QTest::newRow("nothing") << QByteArray("\\n\\n") << QStringList();
        QTest::newRow("blanks inside")
            << QByteArray("a \\t b") << QStringList{QStringLiteral("a \t b")};
        QTest::newRow("UTF-8") << QByteArray("\\303\\274\\n") << QStringList{QStringLiteral("ü")};
        QTest::newRow("invalid UTF-8")
            << QByteArray("\\377a\\300\\n") << QStringList{QStringLiteral("\uFFFDa\uFFFD")};
    }

    void splitsTheOutput()
    {
        QFETCH(QByteArray, printed);
        QFETCH(QStringList, lines);
        useScript("printf '" + printed + "'");
        QVERIFY(m_manager->launch(version, nullptr, {}));
        QTRY_COMPARE(lastEvent(), QStringLiteral("exit 0"));
        QCOMPARE(output(), lines);
    }

    void mergesTheErrorOutput()
    {
        useScript("echo a; echo b >&2; echo c");
        QVERIFY(m_manager->launch(version, nullptr, {}));
        QTRY_COMPARE(lastEvent(), QStringLiteral("exit 0"));
        const QStringList expected{QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")};
        QCOMPARE(output(), expected);
    }

    void logsALineInTwoReadsAsTwo()
    {
        useScript("printf a; cat " + makePipe() + " >/dev/null; printf 'b\\n'");
        QVERIFY(m_manager->launch(version, nullptr, {}));
        QTRY_COMPARE(lastEvent(), QStringLiteral("a"));
        releasePipe();
        QTRY_COMPARE(lastEvent(), QStringLiteral("exit 0"));
        const QStringList expected{QStringLiteral("a"), QStringLiteral("b")};
        QCOMPARE(output(), expected);
    }

    // What is announced follows before the event loop turns again.
    void tellsHowManyLinesAreToCome()
    {
        QList<qsizetype> toCome;
        int turns = 0;
        QList<int> turnOf;
        connect(m_manager.get(), &VersionManager::gameLog, this, [&] {
            toCome.append(m_manager->linesToCome());
            turnOf.append(turns);
            QMetaObject::invokeMethod(this, [&turns] { ++turns; }, Qt::QueuedConnection);
        });
        useScript("printf 'a\\n\\n b \\n\\nc\\n  '; cat " + makePipe() +
                  " >/dev/null; seq 1000; printf 'an end'");
        QVERIFY(m_manager->launch(version, nullptr, {}));
        QTRY_COMPARE(lastEvent(), QStringLiteral("c"));
        QCOMPARE(toCome, (QList<qsizetype>{0, 0, 2, 1, 0}));
        releasePipe();
        QTRY_COMPARE(lastEvent(), QStringLiteral("exit 0"));
        QCOMPARE(m_events.at(m_events.size() - 3), QStringLiteral("an end"));
        QCOMPARE(toCome.size(), 5 + 1000 + 2);
        QCOMPARE(toCome.last(), 0);
        for (qsizetype i = 0; i < toCome.size(); ++i) {
            QVERIFY(i + toCome[i] < toCome.size());
            QCOMPARE(toCome[i + toCome[i]], 0);
            QCOMPARE(turnOf[i + toCome[i]], turnOf[i]);
        }
    }

    void survivesTenMegabytesInOneLine()
    {
        useScript("head -c 10485760 /dev/zero | tr '\\0' x");
        QVERIFY(m_manager->launch(version, nullptr, {}));
        QTRY_COMPARE_WITH_TIMEOUT(lastEvent(), QStringLiteral("exit 0"), 20'000);
        qsizetype size = 0;
        for (const QString& piece : output())
            size += piece.size();
        QCOMPARE(size, 10 * 1024 * 1024);
    }

    void survivesAnyBytes()
    {
        useScript("head -c 1000000 /dev/urandom");
        QVERIFY(m_manager->launch(version, nullptr, {}));
        QTRY_COMPARE_WITH_TIMEOUT(lastEvent(), QStringLiteral("exit 0"), 20'000);
    }

    void runsSeveralGamesAtOnce()
    {
        useScript("echo started; cat " + makePipe() + " >/dev/null");
        QVERIFY(m_manager->launch(version, nullptr, {}));
        QVERIFY(m_manager->launch(version, nullptr, {}));
        QTRY_COMPARE(m_events.count(QStringLiteral("started")), 2);
        QCOMPARE(m_manager->findChildren<QProcess*>().size(), 2);
        releasePipe();
        QTRY_COMPARE(m_events.count(QStringLiteral("exit 0")), 2);
    }

    void endsTheGameWithTheManager()
    {
        useScript("echo $$; exec cat " + makePipe());
        QVERIFY(m_manager->launch(version, nullptr, {}));
        QTRY_COMPARE(m_events.size(), 3);
        const pid_t game = lastEvent().toInt();
        QCOMPARE(kill(game, 0), 0);
        m_manager.reset();
        QCOMPARE(kill(game, 0), -1);
        QCOMPARE(errno, ESRCH);
        QCoreApplication::processEvents();
        QCOMPARE(m_events.size(), 3);
    }

    void runsARealJar()
    {
        makeJar("System.out.println(String.join(\"|\", args));"
                "System.out.println(System.getProperty(\"x\"));"
                "System.out.println(Runtime.getRuntime().maxMemory() / 1048576 < 70);"
                "System.exit(7);");
        Settings::get().setJavaPath(QStandardPaths::findExecutable(QStringLiteral("java")));
        const QStringList extra{QStringLiteral("-Xmx64m"), QStringLiteral("--username"),
                                QStringLiteral("bob b"), QStringLiteral("-Dx=1")};
        QVERIFY(m_manager->launch(version, nullptr, extra));
        QTRY_COMPARE_WITH_TIMEOUT(lastEvent(), QStringLiteral("exit 7"), 30'000);
        const QStringList expected{QStringLiteral("--username|bob b"), QStringLiteral("1"),
                                   QStringLiteral("true")};
        QCOMPARE(output(), expected);
    }

private:
    // The script becomes the configured java.
    QString useScript(const QByteArray& commands)
    {
        QString path = m_home->filePath(QStringLiteral("my java"));
        writeScript(path, commands);
        Settings::get().setJavaPath(path);
        return path;
    }

    // A named pipe that the game reads from, so that it waits until the test lets it go on.
    QByteArray makePipe()
    {
        m_pipe = QFile::encodeName(m_home->filePath(QStringLiteral("pipe")));
        return mkfifo(m_pipe.constData(), 0600) == 0 ? m_pipe : QByteArray();
    }

    void releasePipe() const
    {
        QFile pipe(QFile::decodeName(m_pipe));
        QVERIFY(pipe.open(QIODevice::WriteOnly));
    }

    void makeJar(const QByteArray& statements) const
    {
        writeFile(m_home->filePath(QStringLiteral("Game.java")),
                  QByteArray("class Game { public static void main(String[] args) { " + statements +
                             " } }"));
        const auto run = [this](const QString& program, const QStringList& arguments) {
            QProcess process;
            process.setWorkingDirectory(m_home->path());
            process.start(program, arguments);
            return process.waitForFinished() && process.exitCode() == 0;
        };
        QVERIFY(run(QStringLiteral("javac"), {QStringLiteral("Game.java")}));
        QVERIFY(run(QStringLiteral("jar"), {QStringLiteral("-cfe"), m_manager->jarPath(version),
                                            QStringLiteral("Game"), QStringLiteral("Game.class")}));
    }

    QString lastEvent() const { return m_events.value(m_events.size() - 1); }

    // Without the two lines at the start and the two events at the end.
    QStringList output() const { return m_events.mid(2, m_events.size() - 4); }

    std::unique_ptr<QTemporaryDir> m_home;
    std::unique_ptr<VersionManager> m_manager;
    QStringList m_events; // console lines and exits, in their order
    QByteArray m_pipe;
};

QTEST_GUILESS_MAIN(TestGameLaunch)
#include "tst_game_launch.moc"
