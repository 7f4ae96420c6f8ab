#include "tests/support/backend_process.h"

#include <QCryptographicHash>
#include <QDir>
#include <QJsonArray>
#include <QTest>

#include <archive.h>
#include <archive_entry.h>

using namespace Qt::StringLiterals;

// What operators publish, as the launcher finds it.
class TestBackendPublish : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void offersVersionsNewestFirst();
    void replacesVersionInPlace();
    void refusesVersion_data();
    void refusesVersion();
    void offersNewsNewestFirst();
    void offersLauncherBuilds();
    void refusesLauncherArchive();
    void repacksRuntimeFromTarGz();
    void offersRuntimeZipUnchanged();
    void refusesRuntime_data();
    void refusesRuntime();
    void answersWithoutRuntime();
    void namesPublicOrigins();

private:
    QJsonObject manifest() { return raw_http::get(m_backend.port(), "/manifest.json").json(); }
    QJsonArray list(const QString& key) { return manifest().value(key).toArray(); }
    RawReply fetch(const QJsonValue& entry);
    QString path(const QString& name) const { return m_files.filePath(name); }

    BackendProcess m_backend;
    QTemporaryDir m_files;
};

namespace {

constexpr auto runtimePath = "/v3/binary/latest/11/ga/linux/x64/jre/hotspot/normal/eclipse";

struct Entry
{
    QByteArray name;
    QByteArray content;
    int mode = 0644;
    QByteArray symlink = {};
    QByteArray hardlink = {};
};

QString writeArchive(const QString& path, const QList<Entry>& entries)
{
    archive* writer = archive_write_new();
    if (path.endsWith(".tar.gz"_L1)) {
        archive_write_set_format_gnutar(writer);
        archive_write_add_filter_gzip(writer);
    } else {
        archive_write_set_format_zip(writer);
    }
    archive_write_open_filename(writer, QFile::encodeName(path).constData());
    for (const Entry& one : entries) {
        archive_entry* entry = archive_entry_new();
        archive_entry_set_pathname(entry, one.name.constData());
        archive_entry_set_perm(entry, static_cast<mode_t>(one.mode));
        archive_entry_set_filetype(entry, one.name.endsWith('/') ? AE_IFDIR : AE_IFREG);
        archive_entry_set_size(entry, one.content.size());
        if (!one.symlink.isEmpty()) {
            archive_entry_set_filetype(entry, AE_IFLNK);
            archive_entry_set_symlink(entry, one.symlink.constData());
        }
        if (!one.hardlink.isEmpty())
            archive_entry_set_hardlink(entry, one.hardlink.constData());
        archive_write_header(writer, entry);
        archive_write_data(writer, one.content.constData(),
                           static_cast<size_t>(one.content.size()));
        archive_entry_free(entry);
    }
    archive_write_close(writer);
    archive_write_free(writer);
    return path;
}

// What a ZIP holds, read from its own directory: name -> "mode content" or "-> target".
QMap<QByteArray, QByteArray> contentsOf(const QByteArray& zip)
{
    QMap<QByteArray, QByteArray> found;
    archive* reader = archive_read_new();
    archive_read_support_format_zip_seekable(reader);
    archive_read_open_memory(reader, zip.constData(), static_cast<size_t>(zip.size()));
    archive_entry* entry = nullptr;
    while (archive_read_next_header(reader, &entry) == ARCHIVE_OK) {
        QByteArray text;
        if (archive_entry_filetype(entry) == AE_IFLNK) {
            text = QByteArray("-> ") + archive_entry_symlink(entry);
        } else {
            QByteArray content(archive_entry_size(entry), '\0');
            archive_read_data(reader, content.data(), static_cast<size_t>(content.size()));
            text = QByteArray::number(archive_entry_perm(entry), 8) + ' ' + content;
        }
        found.insert(archive_entry_pathname(entry), text);
    }
    archive_read_free(reader);
    return found;
}

QString writeFile(const QString& path, const QByteArray& content)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(content);
    return path;
}

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString sha256Of(const QByteArray& data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex());
}

QString writeJar(const QString& path, const QByteArray& content)
{
    return writeArchive(
        path, {{"META-INF/MANIFEST.MF", "Manifest-Version: 1.0\n"}, {"Game.class", content}});
}

QList<Entry> runtimeEntries()
{
    return {{"jdk-11.0.25+9-jre/", {}, 0755},
            {"jdk-11.0.25+9-jre/bin/", {}, 0755},
            {"jdk-11.0.25+9-jre/bin/java", "#!/bin/sh\n", 0755},
            {"jdk-11.0.25+9-jre/lib/naïve.txt", "text", 0640}};
}

} // namespace

void TestBackendPublish::initTestCase()
{
    QVERIFY2(m_backend.start(), m_backend.output().constData());
}

RawReply TestBackendPublish::fetch(const QJsonValue& entry)
{
    const QString url = entry[u"url"_s].toString();
    if (!url.startsWith(m_backend.origin()))
        return {};
    return raw_http::get(m_backend.port(), url.mid(m_backend.origin().size()).toUtf8());
}

void TestBackendPublish::offersVersionsNewestFirst()
{
    const QString first = writeJar(path(u"first.jar"_s), "one");
    const QString second = writeJar(path(u"second.jar"_s), QByteArray(300'000, 'x'));
    QCOMPARE(m_backend
                 .command({u"publish"_s, u"version"_s, u"--id"_s, u"0.1.0"_s, u"--file"_s, first,
                           u"--released"_s, u"2026-01-02"_s})
                 .exitCode,
             0);
    QCOMPARE(
        m_backend.command({u"publish"_s, u"version"_s, u"--id"_s, u"0.2.0"_s, u"--file"_s, second})
            .exitCode,
        0);
    const QJsonArray versions = list(u"versions"_s);
    QCOMPARE(versions.size(), 2);
    QCOMPARE(versions[0][u"id"_s].toString(), u"0.2.0"_s);
    QCOMPARE(versions[1][u"id"_s].toString(), u"0.1.0"_s);
    QCOMPARE(versions[1][u"released"_s].toString(), u"2026-01-02"_s);
    QCOMPARE(versions[0][u"sha256"_s].toString(), sha256Of(contentOf(second)));
    const RawReply jar = fetch(versions[0]);
    QCOMPARE(jar.status, 200);
    QCOMPARE(jar.body, contentOf(second));
    QCOMPARE(fetch(versions[1]).body, contentOf(first));
}

void TestBackendPublish::replacesVersionInPlace()
{
    const QString jar = writeJar(path(u"again.jar"_s), "one, better");
    QCOMPARE(m_backend
                 .command({u"publish"_s, u"version"_s, u"--id"_s, u"0.1.0"_s, u"--file"_s, jar,
                           u"--released"_s, u"today"_s})
                 .exitCode,
             0);
    const QJsonArray versions = list(u"versions"_s);
    QCOMPARE(versions.size(), 2);
    QCOMPARE(versions[1][u"id"_s].toString(), u"0.1.0"_s);
    QCOMPARE(versions[1][u"sha256"_s].toString(), sha256Of(contentOf(jar)));
    QCOMPARE(versions[1][u"released"_s].toString(), u"today"_s);
}

void TestBackendPublish::refusesVersion_data()
{
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("file");
    QTest::addColumn<QByteArray>("message");
    const QString good = writeJar(path(u"good.jar"_s), "good");
    const QString cut = writeFile(path(u"cut.jar"_s), contentOf(good).chopped(30));
    QTest::newRow("climbing id") << u"../evil"_s << good << QByteArray("A version id has");
    QTest::newRow("hidden id") << u".hidden"_s << good << QByteArray("A version id has");
    QTest::newRow("id with a line feed") << u"1\n"_s << good << QByteArray("A version id has");
    QTest::newRow("no such file") << u"9"_s << path(u"none.jar"_s) << QByteArray("No such file");
    QTest::newRow("empty file") << u"9"_s << writeFile(path(u"empty.jar"_s), {})
                                << QByteArray("empty.jar: ");
    QTest::newRow("text") << u"9"_s << writeFile(path(u"text.jar"_s), "no archive")
                          << QByteArray("text.jar: ");
    QTest::newRow("cut short") << u"9"_s << cut << QByteArray("cut.jar: ");
    QTest::newRow("ZIP without manifest")
        << u"9"_s << writeArchive(path(u"bare.zip"_s), {{"a.txt", "a"}})
        << QByteArray("has no META-INF/MANIFEST.MF");
    QTest::newRow("directory") << u"9"_s << m_files.path() << QByteArray("error: ");
}

void TestBackendPublish::refusesVersion()
{
    QFETCH(QString, id);
    QFETCH(QString, file);
    QFETCH(QByteArray, message);
    const QJsonObject before = manifest();
    const auto run =
        m_backend.command({u"publish"_s, u"version"_s, u"--id"_s, id, u"--file"_s, file});
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.errors.contains(message), run.errors.constData());
    QCOMPARE(manifest(), before);
}

void TestBackendPublish::offersNewsNewestFirst()
{
    const QString file = writeFile(path(u"body.txt"_s), "From a file — with a dash.\n");
    QCOMPARE(m_backend
                 .command({u"publish"_s, u"news"_s, u"--title"_s, u"Old"_s, u"--date"_s, u"May"_s,
                           u"--body"_s, u"Text"_s})
                 .exitCode,
             0);
    QCOMPARE(
        m_backend.command({u"publish"_s, u"news"_s, u"--title"_s, u"New"_s, u"--body-file"_s, file})
            .exitCode,
        0);
    const QJsonArray news = list(u"news"_s);
    QCOMPARE(news.size(), 2);
    QCOMPARE(news[0][u"title"_s].toString(), u"New"_s);
    QCOMPARE(news[0][u"body"_s].toString(), u"From a file — with a dash.\n"_s);
    QCOMPARE(news[1].toObject(),
             (QJsonObject{{u"title"_s, u"Old"_s}, {u"date"_s, u"May"_s}, {u"body"_s, u"Text"_s}}));
    QCOMPARE(m_backend.command({u"publish"_s, u"news"_s, u"--title"_s, u" "_s}).exitCode, 1);
    QCOMPARE(list(u"news"_s).size(), 2);
}

void TestBackendPublish::offersLauncherBuilds()
{
    const QString build = writeFile(path(u"launcher"_s), "launcher build");
    const QString full = writeArchive(path(u"full.zip"_s), {{"TessellanLauncher.exe", "exe"}});
    const auto publish = [this](const QStringList& words) {
        return m_backend.command(QStringList{u"publish"_s, u"launcher"_s} + words).exitCode;
    };
    QCOMPARE(publish({u"--version"_s, u"1.0.17"_s, u"--file"_s, build}), 0);
    QCOMPARE(
        publish({u"--version"_s, u"1.0.16"_s, u"--file"_s, build, u"--platform"_s, u"generic"_s}),
        0);
    QCOMPARE(publish({u"--file"_s, full, u"--platform"_s, u"archive"_s}), 0);
    QCOMPARE(manifest()[u"launcherLinux"_s][u"version"_s].toString(), u"1.0.17"_s);
    QCOMPARE(manifest()[u"launcher"_s][u"version"_s].toString(), u"1.0.16"_s);
    QCOMPARE(manifest()[u"launcher"_s][u"sha256"_s].toString(), sha256Of("launcher build"));
    QVERIFY(!manifest()[u"launcherArchive"_s].toObject().contains(u"version"_s));
    QCOMPARE(fetch(manifest()[u"launcherLinux"_s]).body, "launcher build");
    QCOMPARE(fetch(manifest()[u"launcherArchive"_s]).body, contentOf(full));

    // A newer build takes the older one's place.
    writeFile(build, "newer build");
    QCOMPARE(publish({u"--version"_s, u"1.0.18"_s, u"--file"_s, build}), 0);
    QCOMPARE(manifest()[u"launcherLinux"_s][u"version"_s].toString(), u"1.0.18"_s);
    QCOMPARE(fetch(manifest()[u"launcherLinux"_s]).body, "newer build");
}

void TestBackendPublish::refusesLauncherArchive()
{
    const QString deep = writeArchive(path(u"deep.zip"_s), {{"bin/TessellanLauncher.exe", "exe"}});
    const QJsonObject before = manifest();
    const auto run = m_backend.command(
        {u"publish"_s, u"launcher"_s, u"--file"_s, deep, u"--platform"_s, u"archive"_s});
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.errors.contains("holds no TessellanLauncher.exe at its top"),
             run.errors.constData());
    QCOMPARE(manifest(), before);
}

void TestBackendPublish::answersWithoutRuntime()
{
    BackendProcess fresh;
    QVERIFY(fresh.start());
    const RawReply none = raw_http::get(fresh.port(), runtimePath);
    QCOMPARE(none.status, 404);
    QCOMPARE(none.error(), u"No Java runtime is published here."_s);
}

void TestBackendPublish::repacksRuntimeFromTarGz()
{
    QList<Entry> entries = runtimeEntries();
    entries.append({"jdk-11.0.25+9-jre/legal/a/LICENSE", "license", 0444});
    entries.append({"jdk-11.0.25+9-jre/legal/b/LICENSE", {}, 0777, "../a/LICENSE"});
    entries.append({"jdk-11.0.25+9-jre/bin/same", {}, 0755, {}, "jdk-11.0.25+9-jre/bin/java"});
    for (Entry& entry : entries)
        entry.name.prepend("./");
    const QString file = writeArchive(path(u"jre.tar.gz"_s), entries);
    const auto run = m_backend.command({u"publish"_s, u"runtime"_s, file});
    QVERIFY2(run.exitCode == 0, run.errors.constData());

    const RawReply got = raw_http::get(m_backend.port(), runtimePath);
    QCOMPARE(got.status, 200);
    QCOMPARE(got.headers.value("content-type"), "application/zip");
    const auto contents = contentsOf(got.body);
    QCOMPARE(contents.size(), entries.size());
    QCOMPARE(contents.value("jdk-11.0.25+9-jre/bin/java"), "755 #!/bin/sh\n");
    QCOMPARE(contents.value("jdk-11.0.25+9-jre/lib/naïve.txt"), "640 text");
    QCOMPARE(contents.value("jdk-11.0.25+9-jre/legal/a/LICENSE"), "444 license");
    QCOMPARE(contents.value("jdk-11.0.25+9-jre/legal/b/LICENSE"), "-> ../a/LICENSE");
    QCOMPARE(contents.value("jdk-11.0.25+9-jre/bin/same"), "-> ../../jdk-11.0.25+9-jre/bin/java");
    QVERIFY(QDir(m_backend.data() + u"/tmp"_s).isEmpty());
}

void TestBackendPublish::offersRuntimeZipUnchanged()
{
    const QString file = writeArchive(path(u"jre.zip"_s), runtimeEntries());
    QCOMPARE(m_backend.command({u"publish"_s, u"runtime"_s, file}).exitCode, 0);
    QCOMPARE(raw_http::get(m_backend.port(), runtimePath).body, contentOf(file));
    QVERIFY(QFileInfo::exists(file));
}

void TestBackendPublish::refusesRuntime_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QByteArray>("message");
    const auto row = [this](const char* name, const QString& file, const QList<Entry>& more,
                            const char* message, bool whole = true) {
        QTest::newRow(name) << writeArchive(path(file), whole ? runtimeEntries() + more : more)
                            << QByteArray(message);
    };
    const char* layout = "must hold one directory at its top";
    row("two directories", u"two.zip"_s, {{"other/file", "x"}}, layout);
    row("named jre", u"jre-name.tar.gz"_s, {{"jre/bin/java", "x", 0755}}, layout, false);
    row("file at the top", u"flat.zip"_s, {{"jdk-file", "x"}}, layout);
    row("no java", u"nojava.zip"_s, {{"jdk-11/bin/javac", "x", 0755}},
        "no executable file bin/java", false);
    row("java not executable", u"noexec.tar.gz"_s, {{"jdk-11/bin/java", "x", 0644}},
        "no executable file bin/java", false);
    row("climbing entry", u"climb.tar.gz"_s, {{"jdk-11.0.25+9-jre/../../evil", "x"}},
        "leads out of the archive");
    row("absolute entry", u"absolute.zip"_s, {{"/etc/evil", "x"}}, "leads out of the archive");
    row("link to outside", u"link.tar.gz"_s,
        {{"jdk-11.0.25+9-jre/lib/l", {}, 0777, "../../../outside"}}, "leads out of the archive");
    row("absolute link", u"abslink.zip"_s, {{"jdk-11.0.25+9-jre/l", {}, 0777, "/etc/passwd"}},
        "leads out of the archive");
    row("hard link to outside", u"hard.tar.gz"_s,
        {{"jdk-11.0.25+9-jre/h", {}, 0644, {}, "../outside"}}, "leads out of the archive");
    QTest::newRow("tar.gz called zip") << [this] {
        QFile::copy(writeArchive(path(u"real.tar.gz"_s), runtimeEntries()), path(u"fake.zip"_s));
        return path(u"fake.zip"_s);
    }() << QByteArray("fake.zip: ");
    QTest::newRow("cut tar.gz") << writeFile(path(u"cut.tar.gz"_s),
                                             contentOf(path(u"real.tar.gz"_s)).chopped(60))
                                << QByteArray("cut.tar.gz: is ");
    QTest::newRow("another kind") << writeFile(path(u"jre.rar"_s), "x")
                                  << QByteArray("must be a .zip or a .tar.gz");
    QTest::newRow("missing") << path(u"missing.zip"_s) << QByteArray("No such file");
}

void TestBackendPublish::refusesRuntime()
{
    QFETCH(QString, file);
    QFETCH(QByteArray, message);
    const QByteArray before = raw_http::get(m_backend.port(), runtimePath).body;
    const auto run = m_backend.command({u"publish"_s, u"runtime"_s, file});
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.errors.contains(message), run.errors.constData());
    QCOMPARE(raw_http::get(m_backend.port(), runtimePath).body, before);
    QVERIFY(QDir(m_backend.data() + u"/tmp"_s).isEmpty());
}

void TestBackendPublish::namesPublicOrigins()
{
    BackendProcess backend;
    QVERIFY(backend.start({u"--public-origin"_s, u"https://play.example/"_s}));
    const QString jar = writeJar(path(u"origin.jar"_s), "x");
    QCOMPARE(
        backend.command({u"publish"_s, u"version"_s, u"--id"_s, u"1"_s, u"--file"_s, jar}).exitCode,
        0);
    const auto url = [&backend] {
        return raw_http::get(backend.port(), "/manifest.json")
            .json()[u"versions"_s][0][u"url"_s]
            .toString();
    };
    QVERIFY2(url().startsWith(u"https://play.example/files/"_s), qPrintable(url()));
    backend.stop();

    QVERIFY(backend.start({u"--files-origin"_s, u"https://cdn.example/game"_s}));
    QVERIFY2(url().startsWith(u"https://cdn.example/game/files/"_s), qPrintable(url()));
    const QString runtime = writeArchive(path(u"cdn.zip"_s), runtimeEntries());
    QCOMPARE(backend.command({u"publish"_s, u"runtime"_s, runtime}).exitCode, 0);
    const RawReply moved = raw_http::get(backend.port(), runtimePath);
    QCOMPARE(moved.status, 302);
    QVERIFY(moved.headers.value("location").startsWith("https://cdn.example/game/files/"));
}

QTEST_GUILESS_MAIN(TestBackendPublish)
#include "tst_backend_publish.moc"
