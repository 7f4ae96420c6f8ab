// Refilling the launch selector with 20 installed versions of 50 MB each, once their digests are
// known; what the first refill does to the window is bench_gaps's matter. Needs a display.
#include "app/settings.h"
#include "bench/measure.h"
#include "ui/main_window.h"
#include "versions/version_manager.h"

#include <QApplication>
#include <QComboBox>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QToolButton>

namespace {

constexpr int versionCount = 20;
constexpr qint64 jarBytes = 50 * 1024 * 1024;
constexpr int laterRefills = 21;
constexpr double aimMs = 5;

// Sparse files: the disk is not what is measured.
QJsonArray installVersions(const VersionManager& versions)
{
    const QString sha256 = VersionManager::sha256Hex(QByteArray(jarBytes, '\0'));
    QJsonArray entries;
    for (int i = 0; i < versionCount; ++i) {
        const QString id = QStringLiteral("1.%1").arg(i);
        QFile jar(versions.jarPath(id));
        QDir().mkpath(QFileInfo(jar).absolutePath());
        if (!jar.open(QIODevice::WriteOnly) || !jar.resize(jarBytes))
            qFatal("cannot write %s", qPrintable(jar.fileName()));
        entries.append(QJsonObject{{QStringLiteral("id"), id},
                                   {QStringLiteral("url"), QStringLiteral("http://127.0.0.1:9/")},
                                   {QStringLiteral("sha256"), sha256}});
    }
    return entries;
}

void writeManifestCache(const VersionManager& versions, const QJsonArray& entries)
{
    QFile cache(versions.manifestCachePath());
    if (!cache.open(QIODevice::WriteOnly))
        qFatal("cannot write the manifest cache");
    cache.write(QJsonDocument(QJsonObject{{QStringLiteral("versions"), entries}}).toJson());
}

QToolButton* profilesButton(const MainWindow& window)
{
    const auto buttons = window.findChildren<QToolButton*>(QStringLiteral("navButton"));
    for (QToolButton* button : buttons) {
        if (button->text() == QStringLiteral("Profiles"))
            return button;
    }
    qFatal("the window has no Profiles button");
}

} // namespace

int main(int argc, char* argv[])
{
    const QTemporaryDir home;
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.filePath(QStringLiteral("config"))));
    qputenv("XDG_DATA_HOME", QFile::encodeName(home.filePath(QStringLiteral("data"))));
    const QApplication application(argc, argv);
    Settings::get().setGameDir(home.filePath(QStringLiteral("game")));
    // Nothing listens there: the list comes from the cache.
    Settings::get().setManifestUrl(QStringLiteral("http://127.0.0.1:9/manifest.json"));
    {
        const VersionManager versions;
        writeManifestCache(versions, installVersions(versions));
    }

    MainWindow window;
    window.show();
    const auto* selector = window.findChild<QComboBox*>(QStringLiteral("launchSelector"));
    while (selector->count() < versionCount)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    QToolButton* profiles = profilesButton(window);
    std::vector<double> later(laterRefills);
    std::ranges::generate(
        later, [profiles] { return measure::milliseconds([profiles] { profiles->click(); }); });
    QComboBox bare;
    std::vector<double> control(laterRefills);
    std::ranges::generate(control, [&] {
        return measure::milliseconds([&] {
            bare.clear();
            for (int i = 0; i < selector->count(); ++i)
                bare.addItem(selector->itemText(i), selector->itemData(i));
        });
    });
    measure::absolute("later refill of 20 versions of 50 MB, beside a bare selector",
                      measure::median(later), "ms", measure::median(control), aimMs);
    return 0;
}
