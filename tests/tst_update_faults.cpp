#include "tests/support/installed_probe.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/zip_builder.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QTest>

#include <csignal>
#include <memory>
#include <vector>

#include <sys/resource.h>

namespace {

constexpr qsizetype severalSlices = 5 * 512 * 1024;
const QByteArray launcher("TessellanLauncher.exe");
const QByteArray oldLibrary(300'000, 'o');
const QByteArray newLibrary(300'000, 'n');
const auto couldNotStage = QStringLiteral("updateFailed Could not stage update");
const auto couldNotStageArchive = QStringLiteral("updateFailed Could not stage full update");
const auto ready = QStringLiteral("updateReady 1.0.17");
const auto archiveReady = QStringLiteral("updateReady");

void write(const QString& path, const QByteArray& content)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), content.size());
}

} // namespace

// Updates of real copies of a program whose file operations fail, or which is killed between them.
class TestUpdateFaults : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void init() { m_probe = std::make_unique<InstalledProbe>(); }
    void cleanup() { m_probe.reset(); }

    void writesThroughNoLinkThatComesMeanwhile_data()
    {
        QTest::addColumn<QString>("ending");
        QTest::addColumn<QString>("noUnnamedFiles");
        QTest::newRow("staged file") << QStringLiteral(".new") << QString();
        QTest::newRow("staged with its name") << QStringLiteral(".new") << QStringLiteral("1");
        QTest::newRow("script") << QStringLiteral(".sh") << QString();
    }

    void writesThroughNoLinkThatComesMeanwhile()
    {
        QFETCH(QString, ending);
        QFETCH(QString, noUnnamedFiles);
        const QString victim = m_probe->temporaryDirectory() + u"/victim";
        write(victim, "precious");
        m_probe->setVariable(QStringLiteral("FAULT_LINK"), ending);
        m_probe->setVariable(QStringLiteral("FAULT_TMPFILE"), noUnnamedFiles);
        m_probe->offer(m_probe->newBuild());
        m_probe->run();
        QCOMPARE(m_probe->lastLine(), couldNotStage);
        QCOMPARE(contentOf(victim), QByteArray("precious"));
        QVERIFY(m_probe->end());
        QVERIFY(m_probe->oldStands());
    }

    void failsOnShortWrites_data() { standsWheneverKilled_data(); }

    void failsOnShortWrites()
    {
        QFETCH(QStringList, variables);
        for (const QString& variable : variables)
            m_probe->setVariable(variable, QStringLiteral("1"));
        // The system itself cuts the last slice.
        m_probe->process().setChildProcessModifier([] {
            const rlimit limit{severalSlices - 1000, severalSlices - 1000};
            setrlimit(RLIMIT_FSIZE, &limit);
            signal(SIGXFSZ, SIG_IGN);
        });
        m_probe->offer(m_probe->newBuild(severalSlices));
        m_probe->run();
        QCOMPARE(m_probe->lastLine(), couldNotStage);
        QVERIFY(m_probe->nothingIsStaged());
        QVERIFY(m_probe->end());
        QVERIFY(m_probe->oldStands());
        QVERIFY(m_probe->oldStarts());
    }

    void failsWithoutShell()
    {
        m_probe->setVariable(QStringLiteral("FAULT_EXEC"), QStringLiteral("1"));
        m_probe->offer(m_probe->newBuild());
        m_probe->run();
        QCOMPARE(m_probe->lastLine(), couldNotStage);
        QVERIFY(m_probe->nothingIsStaged());
        QVERIFY(m_probe->end());
        QVERIFY(m_probe->oldStands());
        QVERIFY(m_probe->oldStarts());
    }

    void standsWhateverFails_data()
    {
        QTest::addColumn<QStringList>("variables");
        const auto noUnnamed = QStringLiteral("FAULT_TMPFILE");
        QTest::newRow("errors") << QStringList();
        QTest::newRow("errors without unnamed files") << QStringList{noUnnamed};
    }

    // One run per file operation, which fails; the last run has none left to fail.
    void standsWhateverFails()
    {
        QFETCH(QStringList, variables);
        int failed = 0;
        for (int point = 1;; ++point) {
            InstalledProbe probe;
            for (const QString& variable : variables)
                probe.setVariable(variable, QStringLiteral("1"));
            const qsizetype passed = runWithPoint(probe, QStringLiteral("FAULT_AT"), point);
            // A file system without unnamed files is no fault.
            const bool harmless =
                passed < point || probe.operations().value(point - 1) == "open unnamed";
            QCOMPARE(probe.lastLine(), harmless ? ready : couldNotStage);
            if (!harmless) {
                ++failed;
                QVERIFY2(probe.nothingIsStaged(), qPrintable(QString::number(point)));
                QVERIFY(probe.end());
                QVERIFY(probe.oldStands());
            } else {
                QVERIFY(probe.end());
                QTRY_VERIFY(QFile::exists(probe.startedMark()));
                QVERIFY(probe.stands(probe.newBuild(severalSlices)));
            }
            if (passed < point)
                break;
        }
        QVERIFY2(failed >= 10, qPrintable(QString::number(failed)));
    }

    void standsWheneverKilled_data()
    {
        QTest::addColumn<QStringList>("variables");
        QTest::newRow("with unnamed files") << QStringList();
        QTest::newRow("without") << QStringList{QStringLiteral("FAULT_TMPFILE")};
    }

    // One run per file operation, right before which the program is killed.
    void standsWheneverKilled()
    {
        QFETCH(QStringList, variables);
        std::vector<std::unique_ptr<InstalledProbe>> killed;
        for (int point = 1;; ++point) {
            auto probe = std::make_unique<InstalledProbe>();
            for (const QString& variable : variables)
                probe->setVariable(variable, QStringLiteral("1"));
            if (runWithPoint(*probe, QStringLiteral("KILL_AT"), point) < point)
                break;
            QCOMPARE(probe->process().exitStatus(), QProcess::CrashExit);
            QVERIFY(probe->oldStands());
            if (probe->nothingIsStaged())
                continue;
            // The next start stages over what the dead one left.
            probe->setVariable(QStringLiteral("KILL_AT"), {});
            probe->run();
            QCOMPARE(probe->lastLine(), ready);
            QVERIFY(probe->end());
            killed.push_back(std::move(probe));
        }
        QVERIFY2(killed.size() >= 5, qPrintable(QString::number(killed.size())));
        for (const auto& probe : killed) {
            QTRY_VERIFY(QFile::exists(probe->startedMark()));
            QVERIFY(probe->stands(probe->newBuild(severalSlices)));
        }
    }

    // One run per file operation, which fails; the last run has none left to fail.
    void archiveStandsWhateverFails()
    {
        int failed = 0;
        for (int point = 1;; ++point) {
            const qsizetype passed = unpackWithPoint(QStringLiteral("FAULT_AT"), point);
            const QByteArray operation = m_probe->operations().value(point - 1);
            QVERIFY2(holdsWholeFilesOnly(), operation.constData());
            if (passed < point)
                break;
            m_probe->setVariable(QStringLiteral("FAULT_AT"), {});
            // A file system without unnamed files is no fault.
            const bool mayPass = operation == "open unnamed";
            if (mayPass && m_probe->lastLine() == archiveReady) {
                expectSwap(*m_probe);
                continue;
            }
            QVERIFY2(m_probe->lastLine() == couldNotStageArchive, operation.constData());
            expectNothingStaged();
            ++failed;
        }
        QVERIFY2(failed >= 30, qPrintable(QString::number(failed)));
        expectSwap(*m_probe);
    }

    // One run per file operation, right before which the program is killed.
    void archiveStandsWheneverKilled()
    {
        std::vector<std::unique_ptr<InstalledProbe>> killed;
        for (int point = 1;; ++point) {
            if (unpackWithPoint(QStringLiteral("KILL_AT"), point) < point)
                break;
            QCOMPARE(m_probe->process().exitStatus(), QProcess::CrashExit);
            QVERIFY(m_probe->oldStands());
            // The next update goes over what the dead one left.
            m_probe->setVariable(QStringLiteral("KILL_AT"), {});
            runArchive();
            QVERIFY2(holdsWholeFilesOnly(), qPrintable(QString::number(point)));
            QCOMPARE(m_probe->lastLine(), archiveReady);
            killed.push_back(std::move(m_probe));
        }
        QVERIFY2(killed.size() >= 30, qPrintable(QString::number(killed.size())));
        for (const auto& probe : killed)
            expectSwap(*probe);
    }

private:
    // The number of points passed.
    static qsizetype runWithPoint(InstalledProbe& probe, const QString& variable, int point)
    {
        probe.setPoint(variable, point);
        probe.offer(probe.newBuild(severalSlices));
        probe.run();
        return probe.operations().size();
    }

    // An entry of every kind; the files take several writes.
    ZipBuilder manyEntries() const
    {
        return ZipBuilder()
            .directory("plugins")
            .file("plugins/libplug.so", newLibrary, 0777)
            .file("libgame.so", newLibrary)
            .link("libgame.so.1", "libgame.so")
            .file(launcher, m_probe->newBuild())
            .file("notes/readme", newLibrary);
    }

    // The number of points passed.
    qsizetype unpackWithPoint(const QString& variable, int point)
    {
        m_probe = std::make_unique<InstalledProbe>();
        write(m_probe->directory() + u"/libgame.so", oldLibrary);
        m_probe->setVariable(QStringLiteral("FAULT_DIR"), m_probe->directory());
        m_probe->setPoint(variable, point);
        runArchive();
        return m_probe->operations().size();
    }

    // Whether every file is as it was or as the archive has it, and none is left over.
    bool holdsWholeFilesOnly() const
    {
        QDirIterator files(m_probe->directory(), QDir::Files | QDir::Hidden | QDir::System,
                           QDirIterator::Subdirectories);
        while (files.hasNext()) {
            const QString file = files.next();
            const QByteArray content = contentOf(file);
            const bool known = file == m_probe->exe() || file == m_probe->staged() ||
                               content == oldLibrary || content == newLibrary;
            if (!known || file.endsWith(u".part"))
                return false;
        }
        return true;
    }

    static void expectSwap(InstalledProbe& probe)
    {
        QVERIFY(probe.end());
        QTRY_VERIFY(QFile::exists(probe.startedMark()));
        QVERIFY(probe.stands(probe.newBuild()));
    }

    void runArchive()
    {
        const QByteArray archive = manyEntries().bytes();
        m_probe->server().answer("/archive", HttpAnswer::ok(archive));
        m_probe->run({QStringLiteral("archive"), m_probe->server().url(QStringLiteral("/archive")),
                      QString::fromLatin1(sha256Of(archive))});
    }

    void expectNothingStaged()
    {
        QVERIFY(!QFile::exists(m_probe->staged()));
        QVERIFY(!QFile::exists(m_probe->script()));
        QVERIFY(m_probe->end());
        QVERIFY(m_probe->oldStands());
        QVERIFY(m_probe->oldStarts());
    }

    std::unique_ptr<InstalledProbe> m_probe;
};

QTEST_GUILESS_MAIN(TestUpdateFaults)
#include "tst_update_faults.moc"
