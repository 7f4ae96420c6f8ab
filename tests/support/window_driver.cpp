#include "tests/support/window_driver.h"

#include "app/settings.h"
#include "profiles/profile_manager.h"
#include "services/auth_client.h"
#include "services/update_manager.h"
#include "tests/support/throwaway_home.h"
#include "ui/main_window.h"
#include "ui/style_sheet.h"
#include "versions/version_manager.h"

#include <QApplication>
#include <QComboBox>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QStyleFactory>
#include <QTest>
#include <QToolButton>

namespace {

void forgetEarlierTests()
{
    ProfileManager& profiles = ProfileManager::get();
    while (!profiles.profiles().isEmpty())
        profiles.remove(profiles.profiles().first().name);
    throwaway_home::clear();
}

} // namespace

WindowDriver::WindowDriver()
{
    QCoreApplication::setApplicationName(QStringLiteral("Tessellan Launcher"));
    QCoreApplication::setOrganizationName(QStringLiteral("Tessellan"));
    if (qApp->styleSheet().isEmpty()) {
        QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
        qApp->setStyleSheet(launcherStyleSheet());
    }
    forgetEarlierTests();
    Settings::get().setManifestUrl(m_server.url(QStringLiteral("/manifest.json")));
    Settings::get().setServerUrl(m_server.origin());
    serveManifest({});
}

WindowDriver::~WindowDriver() = default;

void WindowDriver::serveManifest(const QList<GameVersion>& versions, const QList<NewsItem>& news)
{
    QJsonArray versionArray;
    for (const GameVersion& v : versions)
        versionArray.append(QJsonObject{{QStringLiteral("id"), v.id},
                                        {QStringLiteral("url"), v.url},
                                        {QStringLiteral("sha256"), v.sha256}});
    QJsonArray newsArray;
    for (const NewsItem& item : news)
        newsArray.append(QJsonObject{{QStringLiteral("title"), item.title},
                                     {QStringLiteral("date"), item.date},
                                     {QStringLiteral("body"), item.body}});
    const QJsonObject manifest{{QStringLiteral("versions"), versionArray},
                               {QStringLiteral("news"), newsArray}};
    m_server.answer("/manifest.json", HttpAnswer::json(QJsonDocument(manifest).toJson()));
}

GameVersion WindowDriver::serveVersion(const QString& id, const QByteArray& jar)
{
    const QByteArray path = "/jars/" + id.toUtf8() + ".jar";
    m_server.answer(path, HttpAnswer::ok(jar));
    return {id, m_server.url(QString::fromUtf8(path)), VersionManager::sha256Hex(jar), {}};
}

void WindowDriver::storeSession()
{
    m_server.answer("/auth/validate", HttpAnswer::json("{}"));
    Settings::get().setAuth(QStringLiteral("secret"), QStringLiteral("Ada"),
                            QStringLiteral("uuid-1"));
}

void WindowDriver::open()
{
    m_window = std::make_unique<MainWindow>();
    m_window->show();
    m_window->activateWindow();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
}

void WindowDriver::openAndWait()
{
    m_window = std::make_unique<MainWindow>();
    QSignalSpy ready(&versions(), &VersionManager::manifestReady);
    QSignalSpy failed(&versions(), &VersionManager::manifestFailed);
    m_window->show();
    m_window->activateWindow();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    QTRY_COMPARE(ready.size() + failed.size(), 1);
}

void WindowDriver::activate()
{
    m_window->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
}

void WindowDriver::close()
{
    m_window.reset();
}

VersionManager& WindowDriver::versions()
{
    return *m_window->findChild<VersionManager*>();
}

UpdateManager& WindowDriver::updates()
{
    return *m_window->findChild<UpdateManager*>();
}

AuthClient& WindowDriver::auth()
{
    return *m_window->findChild<AuthClient*>();
}

QWidget* WindowDriver::findWidget(const char* name)
{
    auto* widget = m_window->findChild<QWidget*>(QString::fromLatin1(name));
    if (!widget)
        qFatal("no widget is called %s", name);
    return widget;
}

QAbstractButton* WindowDriver::nav(const char* text)
{
    for (auto* button : m_window->findChildren<QToolButton*>(QStringLiteral("navButton"))) {
        if (button->text() == QLatin1String(text))
            return button;
    }
    qFatal("no navigation button is called %s", text);
}

QLabel* WindowDriver::statusIn(const QWidget* container)
{
    auto* label = container->findChild<QLabel*>(QStringLiteral("status"));
    if (!label)
        qFatal("no status label");
    return label;
}

QLabel* WindowDriver::statusLabel()
{
    return statusIn(findWidget("bottomBar"));
}

QLabel* WindowDriver::newsDate()
{
    return statusIn(pages()->widget(1));
}

QLabel* WindowDriver::profilesHint()
{
    return statusIn(pages()->widget(2));
}

QLabel* WindowDriver::editorError()
{
    return statusIn(pages()->widget(3));
}

QString WindowDriver::status()
{
    return statusLabel()->text();
}

QPushButton* WindowDriver::play()
{
    return find<QPushButton>("playButton");
}

QComboBox* WindowDriver::selector()
{
    return find<QComboBox>("launchSelector");
}

QStackedWidget* WindowDriver::pages()
{
    return find<QStackedWidget>("pages");
}

int WindowDriver::page()
{
    return pages()->currentIndex();
}

QStringList WindowDriver::consoleLines()
{
    const QString text = find<QPlainTextEdit>("console")->toPlainText();
    return text.isEmpty() ? QStringList() : text.split(u'\n');
}

QStringList WindowDriver::selectorData()
{
    QStringList data;
    for (int i = 0; i < selector()->count(); ++i)
        data.append(selector()->itemData(i).toString());
    return data;
}

QStringList WindowDriver::selectorTexts()
{
    QStringList texts;
    for (int i = 0; i < selector()->count(); ++i)
        texts.append(selector()->itemText(i));
    return texts;
}

void WindowDriver::click(QWidget* widget)
{
    QVERIFY2(widget->isVisible(), qPrintable(widget->objectName()));
    QVERIFY2(widget->isEnabled(), qPrintable(widget->objectName()));
    QTest::mouseClick(widget, Qt::LeftButton);
}

QPoint WindowDriver::centreOf(QAbstractItemView* view, int row)
{
    return view->visualRect(view->model()->index(row, 0)).center();
}

void WindowDriver::clickRow(QAbstractItemView* view, int row)
{
    QVERIFY(view->isVisible());
    QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, centreOf(view, row));
}

void WindowDriver::doubleClickRow(QAbstractItemView* view, int row)
{
    clickRow(view, row);
    QTest::mouseDClick(view->viewport(), Qt::LeftButton, {}, centreOf(view, row));
}

void WindowDriver::type(const char* field, const QString& text)
{
    auto* edit = find<QLineEdit>(field);
    click(edit);
    edit->selectAll();
    QTest::keyClick(edit, Qt::Key_Delete);
    QTest::keyClicks(edit, text);
}
