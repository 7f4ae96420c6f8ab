#include "tests/support/files.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

// That the layers are kept: by the include paths that each target gets, and by the lint rule where
// the compiler would not notice.
class TestLayers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_home = std::make_unique<QTemporaryDir>(); }

    void compiles_data()
    {
        QTest::addColumn<QString>("target");
        QTest::addColumn<QByteArray>("header");
        QTest::addColumn<bool>("allowed");
        const auto row = [](const char* target, const char* header, bool allowed) {
            QTest::addRow("%s: %s", target, header)
                << QString::fromLatin1(target) << QByteArray(header) << allowed;
        };
        for (const char* target :
             {"tessellan_archive", "tessellan_deployment", "tessellan_settings",
              "tessellan_profiles", "tessellan_services", "tessellan_versions"}) {
            row(target, "QString", true);
            row(target, "QWidget", false);
            row(target, "QImage", false);
        }
        row("tessellan_services", "QNetworkReply", true);
        row("tessellan_versions", "QNetworkReply", true);
        row("tessellan_archive", "QNetworkReply", false);
        row("tessellan_settings", "QNetworkReply", false);
        row("tessellan_profiles", "QNetworkReply", false);
    }

    void compiles()
    {
        QFETCH(QString, target);
        QFETCH(QByteArray, header);
        QFETCH(bool, allowed);
        writeFile(m_home->filePath(QStringLiteral("probe.cpp")),
                  QByteArray("#include <" + header + ">\n"));
        const QString includes = QStringLiteral("@" LAYERS_INCLUDES_DIR "/%1.includes").arg(target);
        const auto [exitCode, output] =
            run(QStringLiteral(LAYERS_COMPILER),
                {QStringLiteral("-std=c++20"), QStringLiteral("-fPIC"), QStringLiteral("-E"),
                 QStringLiteral("-o"), QStringLiteral("/dev/null"), includes,
                 QStringLiteral("probe.cpp")});
        QVERIFY2((exitCode == 0) == allowed, output.constData());
        if (!allowed)
            QVERIFY2(output.contains("No such file"), output.constData());
    }

    void lints_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QByteArray>("include");
        QTest::addColumn<bool>("allowed");
        const auto row = [](const char* file, const char* include, bool allowed) {
            QTest::addRow("%s includes %s", file, include)
                << QString::fromLatin1(file) << QByteArray(include) << allowed;
        };
        row("app/a.cpp", "\"app/settings.h\"", true);
        row("app/a.cpp", "\"profiles/launch_profile.h\"", false);
        row("app/main.cpp", "\"ui/main_window.h\"", true);
        row("profiles/a.h", "\"services/http.h\"", false);
        row("services/a.cpp", "\"app/settings.h\"", true);
        row("services/a.cpp", "\"archive/archive_reader.h\"", true);
        row("services/a.cpp", "\"versions/version_manager.h\"", false);
        row("services/a.cpp", "\"ui/main_window.h\"", false);
        row("versions/a.cpp", "\"services/http.h\"", true);
        row("versions/a.cpp", "\"ui/main_window.h\"", false);
        row("versions/a.cpp", "\"tests/support/files.h\"", false);
        row("versions/a.cpp", "\"backend/server.h\"", false);
        row("services/a.cpp", "<QtWidgets/QWidget>", false);
        row("services/a.cpp", "<QString>", true);
        row("ui/a.cpp", "\"versions/version_manager.h\"", true);
        row("ui/a.cpp", "\"backend/server.h\"", false);
        row("ui/a.cpp", "\"bench/costs.h\"", false);
        // The preview and the archives' rules stand alone.
        row("archive/a.cpp", "\"archive/archive_reader.h\"", true);
        row("archive/a.cpp", "\"app/settings.h\"", false);
        row("archive/a.cpp", "\"services/zip.h\"", false);
        row("app/a.cpp", "\"archive/archive_reader.h\"", false);
        row("preview/a.cpp", "\"preview/box_baking.h\"", true);
        row("preview/a.cpp", "\"app/settings.h\"", false);
        // The server takes its checks from there, each in one room, and nothing else of the
        // launcher.
        row("backend/catalogue/a.cpp", "\"archive/archive_reader.h\"", true);
        row("backend/catalogue/a.cpp", "\"preview/png_image.h\"", false);
        row("backend/looks/a.cpp", "\"preview/png_image.h\"", true);
        row("backend/looks/a.cpp", "\"archive/archive_reader.h\"", false);
        row("backend/base/a.cpp", "\"services/http.h\"", false);
        row("backend/cli/a.cpp", "\"services/http.h\"", false);
        // A room uses what lies below it; what lies beside it is none of its business.
        row("backend/base/a.cpp", "\"backend/base/b.h\"", true);
        row("backend/base/a.cpp", "\"backend/data/b.h\"", false);
        row("backend/data/a.cpp", "\"backend/base/b.h\"", true);
        row("backend/data/a.cpp", "\"backend/accounts/b.h\"", false);
        row("backend/accounts/a.cpp", "\"backend/data/b.h\"", true);
        for (const char* domain : {"backend/accounts/a.cpp", "backend/catalogue/a.cpp"})
            row(domain, "\"backend/looks/b.h\"", false);
        row("backend/looks/a.cpp", "\"backend/accounts/b.h\"", false);
        row("backend/looks/a.cpp", "\"backend/http/b.h\"", false);
        row("backend/upkeep/a.cpp", "\"backend/accounts/b.h\"", true);
        row("backend/upkeep/a.cpp", "\"backend/api/b.h\"", false);
        row("backend/http/a.cpp", "\"backend/base/b.h\"", true);
        row("backend/http/a.cpp", "\"backend/message/b.h\"", true);
        row("backend/message/a.cpp", "\"backend/http/b.h\"", false);
        row("backend/message/a.cpp", "\"backend/base/b.h\"", false);
        row("backend/http/a.cpp", "\"backend/data/b.h\"", false);
        row("backend/http/a.cpp", "\"backend/api/b.h\"", false);
        row("backend/api/a.cpp", "\"backend/http/b.h\"", true);
        row("backend/api/a.cpp", "\"backend/upkeep/b.h\"", false);
        row("backend/api/a.cpp", "\"backend/cli/b.h\"", false);
        row("backend/cli/a.cpp", "\"backend/upkeep/b.h\"", true);
        // No room is unknown, and none lies in the hall.
        row("backend/hall.cpp", "\"backend/base/b.h\"", false);
        row("backend/new/a.cpp", "\"backend/base/b.h\"", false);
    }

    void lints()
    {
        QFETCH(QString, file);
        QFETCH(QByteArray, include);
        QFETCH(bool, allowed);
        writeFile(m_home->filePath(file), QByteArray("#include " + include + "\n"));
        const auto [exitCode, output] = run(QStringLiteral(LAYERS_SCRIPT), {file});
        QCOMPARE(exitCode == 0, allowed);
        QCOMPARE(output.contains(file.toUtf8()), !allowed);
    }

private:
    std::pair<int, QByteArray> run(const QString& program, const QStringList& arguments) const
    {
        QProcess process;
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.setWorkingDirectory(m_home->path());
        process.start(program, arguments);
        const bool finished = process.waitForFinished();
        return {finished ? process.exitCode() : -1, process.readAll()};
    }

    std::unique_ptr<QTemporaryDir> m_home;
};

QTEST_GUILESS_MAIN(TestLayers)
#include "tst_layers.moc"
