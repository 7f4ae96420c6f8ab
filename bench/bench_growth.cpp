// How the work grows with its size: each kind at 1, 3, 10 and 30 times the usual, as the exponent
// of the line through the four (least squares of the logarithms). What is linear has 1, beside
// which nothing is measured; a square shows as 2. Needs a display.
#include "app/settings.h"
#include "bench/measure.h"
#include "preview/model_import.h"
#include "services/zip.h"
#include "tests/support/files.h"
#include "tests/support/zip_builder.h"
#include "ui/main_window.h"
#include "ui/style_sheet.h"
#include "versions/version_manager.h"

#include <QApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QToolButton>

#include <array>
#include <cmath>
#include <functional>

using namespace Qt::StringLiterals;

namespace {

constexpr std::array sizes{1, 3, 10, 30};
constexpr int rounds = 7;
constexpr double aim = 1.1;

// Makes the work of a size, and returns what is to be measured of it.
using Maker = std::function<std::function<void()>(int times)>;

// The shortest of several times: what the machine adds is never negative.
double shortest(const std::function<void()>& work)
{
    std::vector<double> times(rounds);
    std::ranges::generate(times, [&work] { return measure::milliseconds(work); });
    return std::ranges::min(times);
}

void grow(const char* name, const Maker& make)
{
    double sumX = 0, sumY = 0, sumXX = 0, sumXY = 0;
    for (const int times : sizes) {
        const double x = std::log(times);
        const double y = std::log(shortest(make(times)));
        sumX += x;
        sumY += y;
        sumXX += x * x;
        sumXY += x * y;
    }
    const double count = sizes.size();
    const double slope = (count * sumXY - sumX * sumY) / (count * sumXX - sumX * sumX);
    measure::absolute(name, slope, "exponent", 1, aim);
}

QByteArray manifestOf(int versions, int news)
{
    QJsonArray versionArray;
    for (int i = 0; i < versions; ++i)
        versionArray.append(QJsonObject{{u"id"_s, u"1.%1"_s.arg(i)},
                                        {u"url"_s, u"https://play.example/%1.jar"_s.arg(i)},
                                        {u"sha256"_s, u"0123456789abcdef"_s.repeated(4)},
                                        {u"released"_s, u"2026-01-01"_s}});
    QJsonArray newsArray;
    for (int i = 0; i < news; ++i)
        newsArray.append(QJsonObject{{u"title"_s, u"What is new in %1"_s.arg(i)},
                                     {u"date"_s, u"2026-01-01"_s},
                                     {u"body"_s, u"A paragraph. "_s.repeated(40)}});
    return QJsonDocument(QJsonObject{{u"versions"_s, versionArray}, {u"news"_s, newsArray}})
        .toJson();
}

QByteArray modelOf(int boxes)
{
    QJsonArray elements, names;
    for (int i = 0; i < boxes; ++i) {
        const int x = i % 20, y = i / 20 % 25, z = i / 500;
        elements.append(QJsonObject{{u"box_uv"_s, true},
                                    {u"from"_s, QJsonArray{x - 10.0, y + 2.0, z - 10.0}},
                                    {u"to"_s, QJsonArray{x - 9.2, y + 2.8, z - 9.2}},
                                    {u"uuid"_s, QString::number(i)}});
        names.append(QString::number(i));
    }
    return QJsonDocument(QJsonObject{{u"elements"_s, elements}, {u"outliner"_s, names}}).toJson();
}

void refill()
{
    MainWindow window;
    window.show();
    auto* versions = window.findChild<VersionManager*>();
    QToolButton* profiles = nullptr;
    for (auto* button : window.findChildren<QToolButton*>(u"navButton"_s)) {
        if (button->text() == u"Profiles")
            profiles = button;
    }
    grow("growth of a refill, from 20 versions and 5 news on", [&](int times) {
        const QByteArray manifest = manifestOf(20 * times, 5 * times);
        for (int i = 0; i < 20 * times; i += 4)
            writeFile(versions->jarPath(u"1.%1"_s.arg(i)), "jar");
        return std::function<void()>([versions, profiles, manifest] {
            versions->parseManifest(manifest);
            Q_EMIT versions->manifestReady(false);
            profiles->click();
            QCoreApplication::processEvents();
        });
    });
}

} // namespace

int main(int argc, char* argv[])
{
    const QTemporaryDir home;
    qputenv("XDG_CONFIG_HOME", home.filePath(u"config"_s).toLocal8Bit());
    qputenv("XDG_DATA_HOME", home.filePath(u"data"_s).toLocal8Bit());
    QApplication application(argc, argv);
    application.setStyleSheet(launcherStyleSheet());
    Settings::get().setGameDir(home.filePath(u"game"_s));
    Settings::get().setManifestUrl(u"http://127.0.0.1:9/"_s); // nothing listens there

    refill();
    grow("growth of parsing a manifest, from 20 versions and 5 news on", [](int times) {
        const QByteArray manifest = manifestOf(20 * times, 5 * times);
        return [manifest] { VersionManager().parseManifest(manifest); };
    });
    grow("growth of importing a model, from 100 boxes on", [](int times) {
        const QByteArray model = modelOf(100 * times);
        return [model] { (void)importModel(model); };
    });
    grow("growth of unpacking, from 20 files of 64 KiB on", [&home](int times) {
        ZipBuilder archive;
        for (int i = 0; i < 20 * times; ++i)
            archive.file(QByteArray::number(i), QByteArray(64 * 1024, char('a' + i % 20)));
        const QString path = home.filePath(u"%1.zip"_s.arg(times));
        if (!archive.write(path))
            qFatal("cannot write %s", qPrintable(path));
        return [path] {
            const QTemporaryDir into;
            if (!zip::extract(ArchiveSource::file(path), into.path()))
                qFatal("%s does not unpack", qPrintable(path));
        };
    });
    grow("growth of hashing, from 1 MB on", [](int times) {
        const QByteArray bytes(1024 * 1024 * qsizetype{times}, 'x');
        return [bytes] { (void)VersionManager::sha256Hex(bytes); };
    });
    return 0;
}
