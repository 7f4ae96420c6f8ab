#include "backend/catalogue/archives.h"

#include "archive/archive_reader.h"

#include <QFile>
#include <QFileInfo>

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
    void see(const ArchiveReader& reader)
    {
        const QByteArrayList& steps = reader.steps();
        m_isAlone = m_isAlone && (m_top.isEmpty() || m_top == steps.first());
        m_top = steps.first();
        m_topIsDirectory = m_topIsDirectory && (steps.size() > 1 || isDirectory(reader));
        if (steps.mid(1) == QByteArrayList{"bin", "java"})
            m_java = reader.kind() == ArchiveReader::Kind::File && (reader.mode() & 0111) != 0;
    }
    QString complaint() const
    {
        if (!m_isAlone || !m_top.startsWith("jdk") || !m_topIsDirectory)
            return u"must hold one directory at its top, named like \"jdk-11.0.25+9-jre\""_s;
        if (!m_java)
            return u"holds no executable file bin/java in its directory"_s;
        return {};
    }

private:
    static bool isDirectory(const ArchiveReader& reader)
    {
        return reader.kind() == ArchiveReader::Kind::Directory;
    }

    QByteArray m_top;
    bool m_isAlone = true;
    bool m_topIsDirectory = true;
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
void makeSymbolic(archive_entry* entry, const ArchiveReader& reader)
{
    QByteArray target = reader.target();
    for (qsizetype i = reader.steps().size() - 1; i > 0; --i)
        target.prepend("../");
    archive_entry_set_hardlink(entry, nullptr);
    archive_entry_set_filetype(entry, AE_IFLNK);
    archive_entry_set_symlink(entry, target.constData());
    archive_entry_set_size(entry, 0);
}

bool copyEntry(ArchiveReader& reader, ZipWriter& zip)
{
    archive_entry* entry = reader.entry();
    archive_entry_set_pathname(entry, reader.name().constData());
    if (reader.isHardLink())
        makeSymbolic(entry, reader);
    zip.begin(entry);
    auto data = reader.block();
    while (data && !data->isEmpty()) {
        zip.add(data->data(), static_cast<size_t>(data->size()));
        data = reader.block();
    }
    return data.has_value();
}

Refusal refusal(const QString& path, const QString& why)
{
    return {400, QString(QFileInfo(path).fileName() + u": "_s + why)};
}

// What is wrong with an archive that was read as far as it can be.
QString complaintAbout(const ArchiveReader& reader)
{
    if (!reader.fault().isEmpty())
        return reader.fault();
    return reader.hasEntries() ? QString() : u"is empty"_s;
}

Outcome<Done> checkHolds(const QString& path, const ArchiveLimits& limits, const QByteArray& wanted,
                         const QString& otherwise)
{
    ArchiveReader reader(ArchiveSource::file(path), ArchiveReader::Format::Zip, limits);
    bool found = false;
    // The launcher takes the last one of that name, and none that is empty.
    while (reader.next() && reader.skim()) {
        if (reader.kind() == ArchiveReader::Kind::File &&
            reader.name().compare(wanted, Qt::CaseInsensitive) == 0)
            found = reader.entryBytes() > 0;
    }
    if (const QString complaint = complaintAbout(reader); !complaint.isEmpty())
        return refusal(path, complaint);
    if (!found)
        return refusal(path, otherwise);
    return Done();
}

// Reads the archive to its end; with a writer, every entry goes there as well.
QString readRuntime(ArchiveReader& reader, ZipWriter* zip, const archives::Progress& progress,
                    qint64 total)
{
    RuntimeLayout layout;
    while (reader.next()) {
        layout.see(reader);
        if (!(zip ? copyEntry(reader, *zip) : reader.skim()))
            break;
        if (progress)
            progress(std::min(reader.bytesRead(), total), total);
    }
    const QString complaint = complaintAbout(reader);
    return complaint.isEmpty() ? layout.complaint() : complaint;
}

// By the launcher's own rules for what it downloads.
QString complaintAboutRuntimeZip(const QString& path, const archives::Progress& progress)
{
    ArchiveReader reader(ArchiveSource::file(path), ArchiveReader::Format::Zip,
                         archive_limits::runtime);
    return readRuntime(reader, nullptr, progress, QFileInfo(path).size());
}

QString repack(const QString& path, const QString& zipPath, const archives::Progress& progress)
{
    const Utf8Locale locale;
    const Utf8Locale::Scope scope(locale);
    ArchiveReader reader(ArchiveSource::file(path), ArchiveReader::Format::TarGz,
                         archive_limits::runtime);
    if (!reader.fault().isEmpty())
        return reader.fault();
    ZipWriter zip(zipPath);
    QString complaint = readRuntime(reader, &zip, progress, QFileInfo(path).size());
    if (complaint.isEmpty())
        zip.close();
    return complaint;
}

} // namespace

namespace archives {

Outcome<Done> checkJar(const QString& path)
{
    return checkHolds(path, archive_limits::jar, "META-INF/MANIFEST.MF",
                      u"is no jar: it has no META-INF/MANIFEST.MF"_s);
}

Outcome<Done> checkLauncherArchive(const QString& path)
{
    return checkHolds(path, archive_limits::launcher, "TessellanLauncher.exe",
                      u"holds no TessellanLauncher.exe at its top"_s);
}

Outcome<QString> runtimeAsZip(const QString& path, const QString& zipPath, const Progress& progress)
{
    const bool isZip = path.endsWith(".zip"_L1, Qt::CaseInsensitive);
    QString complaint =
        isZip ? complaintAboutRuntimeZip(path, progress) : repack(path, zipPath, progress);
    // What became of a tape archive is held to the rules as well: a link may have another length,
    // and the whole another ratio to what it unpacks to.
    if (!isZip && complaint.isEmpty())
        complaint = complaintAboutRuntimeZip(zipPath, {});
    if (!complaint.isEmpty())
        return refusal(path, complaint);
    return isZip ? path : zipPath;
}

} // namespace archives
