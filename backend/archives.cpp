#include "backend/archives.h"

#include "backend/archive_walk.h"

#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <archive.h>
#include <archive_entry.h>

#include <algorithm>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

// Gathers, entry by entry, whether the launcher will find a runtime in the archive.
class RuntimeLayout
{
public:
    void see(const ArchiveWalk& walk)
    {
        const QByteArray& name = walk.name();
        if (!name.isEmpty())
            m_top.insert(name.left(name.indexOf('/')));
        if (name.endsWith("/bin/java") && name.count('/') == 2)
            m_java = walk.isExecutable();
    }
    QString fault() const
    {
        if (m_top.size() != 1 || !m_top.begin()->startsWith("jdk"))
            return u"must hold one directory at its top, named like \"jdk-11.0.25+9-jre\""_s;
        if (!m_java)
            return u"holds no executable file bin/java in its directory"_s;
        return {};
    }

private:
    QSet<QByteArray> m_top;
    bool m_java = false;
};

class ZipWriter
{
public:
    explicit ZipWriter(const QString& path) : m_writer(archive_write_new())
    {
        archive_write_set_format_zip(m_writer);
        const QByteArray file = QFile::encodeName(path);
        check(archive_write_open_filename(m_writer, file.constData()));
    }
    ~ZipWriter() { archive_write_free(m_writer); }
    Q_DISABLE_COPY_MOVE(ZipWriter)

    void begin(archive_entry* entry) { check(archive_write_header(m_writer, entry)); }
    void add(const void* data, size_t size)
    {
        if (archive_write_data(m_writer, data, size) != static_cast<la_ssize_t>(size))
            check(ARCHIVE_FATAL);
    }
    void close() { check(archive_write_close(m_writer)); }

private:
    void check(int status)
    {
        if (status == ARCHIVE_OK)
            return;
        const char* text = archive_error_string(m_writer);
        throw Fault(u"cannot write the ZIP: "_s + QString::fromLocal8Bit(text ? text : "?"));
    }

    archive* m_writer;
};

// ZIP knows no hard links; a relative symbolic link says the same.
void makeSymbolic(archive_entry* entry, const QByteArray& name)
{
    QByteArray target = archive_entry_hardlink(entry);
    while (target.startsWith("./"))
        target.remove(0, 2);
    for (qsizetype i = name.count('/'); i > 0; --i)
        target.prepend("../");
    archive_entry_set_hardlink(entry, nullptr);
    archive_entry_set_filetype(entry, AE_IFLNK);
    archive_entry_set_symlink(entry, target.constData());
    archive_entry_set_size(entry, 0);
}

bool copyEntry(ArchiveWalk& walk, ZipWriter& zip)
{
    if (walk.name().isEmpty())
        return true;
    archive_entry* entry = walk.entry();
    const QByteArray name = walk.name();
    archive_entry_set_pathname(entry, name.constData());
    if (archive_entry_hardlink(entry))
        makeSymbolic(entry, name);
    zip.begin(entry);
    return walk.read([&zip](const void* data, size_t size) {
        zip.add(data, size);
        return true;
    });
}

Outcome<Done> checkHolds(const QString& path, const QByteArray& wanted, const QString& otherwise)
{
    ArchiveWalk walk(path, ArchiveWalk::Kind::Zip);
    bool found = false;
    while (walk.next() && walk.skim())
        found = found || walk.name().compare(wanted, Qt::CaseInsensitive) == 0;
    if (!walk.fault() && !found)
        walk.fail(otherwise);
    if (walk.fault())
        return *walk.fault();
    return Done();
}

} // namespace

namespace archives {

Outcome<Done> checkJar(const QString& path)
{
    return checkHolds(path, "META-INF/MANIFEST.MF", u"is no jar: it has no META-INF/MANIFEST.MF"_s);
}

Outcome<Done> checkLauncherArchive(const QString& path)
{
    return checkHolds(path, "TessellanLauncher.exe",
                      u"holds no TessellanLauncher.exe at its top"_s);
}

Outcome<QString> runtimeAsZip(const QString& path, const QString& zipPath, const Progress& progress)
{
    const bool repack = !path.endsWith(".zip"_L1, Qt::CaseInsensitive);
    ArchiveWalk walk(path, repack ? ArchiveWalk::Kind::TarGz : ArchiveWalk::Kind::Zip);
    const qint64 total = QFileInfo(path).size();
    std::unique_ptr<ZipWriter> zip;
    if (repack && !walk.fault())
        zip = std::make_unique<ZipWriter>(zipPath);

    RuntimeLayout layout;
    while (walk.next()) {
        layout.see(walk);
        if (!(zip ? copyEntry(walk, *zip) : walk.skim()))
            break;
        if (progress)
            progress(std::min(walk.bytesRead(), total), total);
    }
    if (const QString why = layout.fault(); !walk.fault() && !why.isEmpty())
        walk.fail(why);
    if (walk.fault())
        return *walk.fault();
    if (zip)
        zip->close();
    return repack ? zipPath : path;
}

} // namespace archives
