#include "tests/support/play_driver.h"

#include "app/settings.h"
#include "profiles/profile_manager.h"
#include "tests/support/loopback_deployment.h"
#include "tests/support/zip_builder.h"
#include "ui/main_window.h"
#include "versions/version_manager.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProgressBar>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>

const QByteArray PlayDriver::runtimePath =
    "/v3/binary/latest/11/ga/linux/x64/jre/hotspot/normal/eclipse";

PlayDriver::PlayDriver()
{
    loopback_deployment::setRuntimeOrigin(server().origin());
}

QByteArray PlayDriver::contentOf(const QString& name)
{
    QFile file(QStringLiteral(TEST_GAME_DIR "/") + name);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("cannot read %s", qPrintable(file.fileName()));
    return file.readAll();
}

QString PlayDriver::systemJava()
{
    return QStandardPaths::findExecutable(QStringLiteral("java"));
}

void PlayDriver::serveGame(std::initializer_list<const char*> ids, const QList<NewsItem>& news)
{
    QList<GameVersion> versions;
    for (const char* id : ids)
        versions.append(serveVersion(QLatin1String(id), contentOf(QStringLiteral("game.jar"))));
    serveManifest(versions, news);
}

void PlayDriver::serveRuntime(const QByteArray& archive)
{
    server().answer(runtimePath, HttpAnswer::ok(archive));
}

void PlayDriver::store(const char* name, const char* version, const QString& args)
{
    QVERIFY(ProfileManager::get().save({QLatin1String(name), QLatin1String(version), 64, 128, args},
                                       QString(), nullptr));
}

void PlayDriver::script(const QString& path, const QByteArray& commands)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("#!/bin/sh\n" + commands + "\n");
    QVERIFY(file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
}

void PlayDriver::installJar(const char* id, const QByteArray& jar)
{
    const QString path = VersionManager().jarPath(QLatin1String(id));
    QVERIFY(QDir().mkpath(QFileInfo(path).absolutePath()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(jar);
}

// The network layer reports progress only when something arrives, and not more often than every
// tenth of a second.
HttpAnswer PlayDriver::half()
{
    HttpAnswer answer = HttpAnswer::ok(QByteArray(2 * 1024 * 1024, 'x'));
    answer.stallAfter = 1024 * 1024;
    answer.trickles = true;
    return answer;
}

bool PlayDriver::isUnderWay()
{
    const int value = find<QProgressBar>("progressBar")->value();
    return value > 0 && value <= 50;
}

QByteArray PlayDriver::bigRuntime()
{
    ZipBuilder archive = ZipBuilder::runtime("jdk-11", "exit 0");
    archive.directory("jdk-11/filler");
    for (int i = 0; i < 20'000; ++i)
        archive.file("jdk-11/filler/" + QByteArray::number(i), "x");
    return archive.bytes();
}

void PlayDriver::waitForExit(int count)
{
    QSignalSpy exited(&versions(), &VersionManager::gameExited);
    QTRY_COMPARE_WITH_TIMEOUT(exited.size(), count, roadMs);
}

void PlayDriver::playToTheEnd()
{
    QSignalSpy exited(&versions(), &VersionManager::gameExited);
    QVERIFY(QMetaObject::invokeMethod(&window(), "onPlayClicked"));
    QTRY_COMPARE_WITH_TIMEOUT(exited.size(), 1, roadMs);
}

QStringList PlayDriver::said(const char* prefix)
{
    QStringList lines;
    for (const QString& line : consoleLines()) {
        if (line.startsWith(QLatin1String(prefix)))
            lines.append(line.mid(qsizetype(qstrlen(prefix))));
    }
    return lines;
}

QStringList PlayDriver::sessionArguments()
{
    return {QStringLiteral("--username"),   QStringLiteral("Ada"),     QStringLiteral("--uuid"),
            QStringLiteral("uuid-1"),       QStringLiteral("--token"), QStringLiteral("secret"),
            QStringLiteral("--authserver"), server().origin()};
}
