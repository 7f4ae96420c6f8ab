#pragma once

#include "tests/support/http_server.h"
#include "versions/game_version.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <memory>

class AuthClient;
class MainWindow;
class QAbstractButton;
class QAbstractItemView;
class QComboBox;
class QLabel;
class QModelIndex;
class QPushButton;
class QStackedWidget;
class QWidget;
class UpdateManager;
class VersionManager;

// The launcher's window as a player meets it: in a home of its own, on a server of its own, styled
// as main styles it, worked by clicks and keys. One per test function; the settings and profiles of
// the one before are gone.
class WindowDriver
{
public:
    WindowDriver();
    ~WindowDriver();

    // What the server answers from now on.
    void serveManifest(const QList<GameVersion>& versions, const QList<NewsItem>& news = {});
    // A version of the given jar, with its address on the server and its digest.
    GameVersion serveVersion(const QString& id, const QByteArray& jar);

    // Before open: a session as an earlier run stored it; the server calls it valid.
    void storeSession();

    // Makes the window, shows it and waits until it is exposed.
    void open();
    // The same, and waits until the manifest has arrived or has failed.
    void openAndWait();
    // Waits until the window has the focus.
    void activate();
    void close();

    HttpServer& server() { return m_server; }
    MainWindow& window() { return *m_window; }
    VersionManager& versions();
    UpdateManager& updates();
    AuthClient& auth();

    // By object name; the test fails when there is no such widget.
    template <typename T>
    T* find(const char* name)
    {
        return qobject_cast<T*>(findWidget(name));
    }
    QWidget* findWidget(const char* name);
    QAbstractButton* nav(const char* text);

    // The labels that share the object name "status".
    QLabel* statusLabel();
    QLabel* newsDate();
    QLabel* editorError();
    QLabel* profilesHint();

    QString status();
    QPushButton* play();
    QComboBox* selector();
    QStackedWidget* pages();
    int page();
    QStringList consoleLines();
    // The user data of every entry, and their texts; a separator's are empty.
    QStringList selectorData();
    QStringList selectorTexts();

    // With the mouse; the test fails when the widget cannot be clicked.
    void click(QWidget* widget);
    void click(const char* name) { click(findWidget(name)); }
    void clickRow(QAbstractItemView* view, int row);
    void doubleClickRow(QAbstractItemView* view, int row);
    // Replaces what the field holds, key by key.
    void type(const char* field, const QString& text);

private:
    QLabel* statusIn(const QWidget* container);
    QPoint centreOf(QAbstractItemView* view, int row);

    HttpServer m_server;
    std::unique_ptr<MainWindow> m_window;
};
