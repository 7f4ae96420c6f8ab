#include "profiles/profile_manager.h"
#include "tests/support/throwaway_home.h"

#include <QTest>

class TestJvmArgs : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void locksTheTable_data()
    {
        QTest::addColumn<QString>("name");
        for (const char* name :
             {"--username", "--uuid", "--token", "--authserver", "--online-mode", "--offline",
              "--port", "--server-id", "-jar", "-cp", "-classpath", "--module-path",
              "--add-modules", "-Xms", "-Xmx", "-Xss", "-XX:VMThreadStackSize"})
            QTest::newRow(name) << QString::fromLatin1(name);
    }

    void locksTheTable()
    {
        QFETCH(QString, name);
        QVERIFY(ProfileManager::isLockedArg(name));
        QVERIFY(ProfileManager::isLockedArg(QString(name + u"=value")));
        QVERIFY(ProfileManager::isLockedArg(QString(name + u"=a=b")));
        QVERIFY(ProfileManager::isLockedArg(QString(name + u'=')));
        QVERIFY(!ProfileManager::isLockedArg(QString(name + u'4')));
        QVERIFY(!ProfileManager::isLockedArg(QString(u'=' + name)));
        QVERIFY(!ProfileManager::isLockedArg(QString(u' ' + name)));
        QVERIFY(!ProfileManager::isLockedArg(name.chopped(1)));
        const QString otherCase = name == name.toUpper() ? name.toLower() : name.toUpper();
        QVERIFY(!ProfileManager::isLockedArg(otherCase));
    }

    void letsPass_data()
    {
        QTest::addColumn<QString>("arg");
        for (const char* arg :
             {"", "=", "=--token", "-Xmx4G", "-Xss1m", "-XX:VMThreadStackSize2048", "-xmx",
              "--tokens", "-XX:+UseG1GC", "-Dx=--token", "--Token=1"})
            QTest::addRow("'%s'", arg) << QString::fromLatin1(arg);
    }

    void letsPass()
    {
        QFETCH(QString, arg);
        QVERIFY(!ProfileManager::isLockedArg(arg));
    }

    void startsWithTheHeap()
    {
        const QStringList expected{QStringLiteral("-Xms512m"), QStringLiteral("-Xmx2048m")};
        QCOMPARE(args(LaunchProfile()), expected);
        LaunchProfile odd;
        odd.xms = -1;
        odd.xmx = 0;
        const QStringList unchecked{QStringLiteral("-Xms-1m"), QStringLiteral("-Xmx0m")};
        QCOMPARE(args(odd), unchecked);
    }

    void takesTheExtraOptions_data()
    {
        QTest::addColumn<QString>("extra");
        QTest::addColumn<QStringList>("kept");
        QTest::addColumn<QString>("warning");
        const auto row = [](const char* name, const char* extra, const QStringList& kept,
                            const char* warning) {
            QTest::newRow(name) << QString::fromLatin1(extra) << kept
                                << QString::fromLatin1(warning);
        };
        const char* untouched = "as it was";
        row("several blanks", "  -Dfoo=1   -XX:+UseG1GC ",
            {QStringLiteral("-Dfoo=1"), QStringLiteral("-XX:+UseG1GC")}, untouched);
        row("glued heap size", "-Xmx4096m", {QStringLiteral("-Xmx4096m")}, untouched);
        row("separate heap size", "-Xmx 4096m", {QStringLiteral("4096m")},
            "Ignored locked args: -Xmx");
        row("a token", "--token=abc --tokens", {QStringLiteral("--tokens")},
            "Ignored locked args: --token=abc");
        row("two locked ones, in order", "-jar x --port=1", {QStringLiteral("x")},
            "Ignored locked args: -jar, --port=1");
        row("tab and newline stay", "-Da\t-jar\n-Db", {QStringLiteral("-Da\t-jar\n-Db")},
            untouched);
        row("single quotes are nothing special", "'-Da b'",
            {QStringLiteral("'-Da"), QStringLiteral("b'")}, untouched);
        row("blanks alone", "   ", {}, untouched);
        row("the same option twice", "-Da -Da", {QStringLiteral("-Da"), QStringLiteral("-Da")},
            untouched);
    }

    void takesTheExtraOptions()
    {
        QFETCH(QString, extra);
        QFETCH(QStringList, kept);
        QFETCH(QString, warning);
        LaunchProfile p;
        p.extraJvmArgs = extra;
        QString heard = QStringLiteral("as it was");
        QStringList expected{QStringLiteral("-Xms512m"), QStringLiteral("-Xmx2048m")};
        expected += kept;
        QCOMPARE(QStringList(ProfileManager::get().jvmArgsFor(p, &heard)), expected);
        QCOMPARE(heard, warning);
        QCOMPARE(args(p), expected);
    }

    // The system's calls end an argument at its first NUL.
    void judgesWhatJavaWillSee_data()
    {
        QTest::addColumn<QString>("extra");
        QTest::addColumn<QStringList>("kept");
        QTest::addColumn<QString>("warning");
        const auto nul = [](const char* text) {
            return QString::fromLatin1(text).replace(u'0', QChar(QChar::Null));
        };
        const auto untouched = QStringLiteral("as it was");
        QTest::newRow("a locked one") << nul("-Da --token0x") << QStringList{QStringLiteral("-Da")}
                                      << QStringLiteral("Ignored locked args: --token");
        QTest::newRow("the jar") << nul("-jar0 x") << QStringList{QStringLiteral("x")}
                                 << QStringLiteral("Ignored locked args: -jar");
        QTest::newRow("before the sign")
            << nul("-cp0=x") << QStringList() << QStringLiteral("Ignored locked args: -cp");
        QTest::newRow("behind the sign") << nul("--port=10x") << QStringList()
                                         << QStringLiteral("Ignored locked args: --port=1");
        QTest::newRow("no locked one")
            << nul("-Da0--token") << QStringList{QStringLiteral("-Da")} << untouched;
        QTest::newRow("nothing before it") << nul("0-jar") << QStringList() << untouched;
    }

    void judgesWhatJavaWillSee()
    {
        takesTheExtraOptions();
        QFETCH(QStringList, kept);
        QFETCH(QString, extra);
        if (kept.isEmpty() && extra.front() != QChar::Null)
            QVERIFY(ProfileManager::isLockedArg(extra));
    }

private:
    static QStringList args(const LaunchProfile& p)
    {
        return ProfileManager::get().jvmArgsFor(p, nullptr);
    }
};

QTEST_GUILESS_MAIN(TestJvmArgs)
#include "tst_jvm_args.moc"
