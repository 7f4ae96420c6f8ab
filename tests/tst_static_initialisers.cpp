#include "tests/support/files.h"

#include <QFileInfo>
#include <QProcess>
#include <QTest>

// That nothing of the launcher's runs before main but the icon's and the banner's initialisers. The
// compiler gives every source file that has one a function of a name that no other function has.
class TestStaticInitialisers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void areTheIconsAndTheBannersAlone()
    {
        QStringList objects =
            QString::fromUtf8(contentOf(QStringLiteral(LAUNCHER_OBJECTS))).split(u'\n');
        objects.removeAll(QString());
        QVERIFY(objects.size() > 40);
        QStringList found;
        for (const QString& object : std::as_const(objects)) {
            if (symbolsOf(object).contains(" t _GLOBAL__sub_I_"))
                found.append(QFileInfo(object).fileName());
        }
        found.sort();
        QCOMPARE(found, (QStringList{QStringLiteral("banner_widget.cpp.o"),
                                     QStringLiteral("qrc_icon.cpp.o")}));
    }

private:
    static QByteArray symbolsOf(const QString& object)
    {
        QProcess nm;
        nm.start(QStringLiteral("nm"), {object});
        if (!nm.waitForFinished() || nm.exitCode() != 0)
            qFatal("nm cannot read %s", qPrintable(object));
        return nm.readAllStandardOutput();
    }
};

QTEST_GUILESS_MAIN(TestStaticInitialisers)
#include "tst_static_initialisers.moc"
