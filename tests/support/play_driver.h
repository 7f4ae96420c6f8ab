#pragma once

#include "tests/support/window_driver.h"

#include <QByteArray>
#include <QStringList>

#include <initializer_list>

// The window with what one press of PLAY needs: a runtime and games on the server, profiles, and
// what the game said about itself. The program links the test game; its runtime origin is the
// driver's server.
class PlayDriver : public WindowDriver
{
public:
    static const QByteArray runtimePath;  // on the server
    static constexpr int roadMs = 60'000; // a download, an unpacking and a JVM under sanitizers

    PlayDriver();

    // A file of the test game's: "game.jar", "runtime.zip".
    static QByteArray contentOf(const QString& name);
    static QString systemJava();

    void serveRuntime(const QByteArray& archive);
    void serveGame(std::initializer_list<const char*> ids, const QList<NewsItem>& news = {});

    static void store(const char* name, const char* version, const QString& args);
    static void script(const QString& path, const QByteArray& commands);
    static void installJar(const char* id, const QByteArray& jar);

    // A download that crawls from its middle on, and whether the window shows it.
    static HttpAnswer half();
    bool isUnderWay();
    // Thousands of files: long enough to be interrupted, whatever the disk.
    static QByteArray bigRuntime();

    // From now on.
    void waitForExit(int count);
    void playToTheEnd();

    // What the game printed in lines that begin so.
    QStringList said(const char* prefix);
    QStringList sessionArguments();
};
