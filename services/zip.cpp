#include "services/zip.h"

#include <QByteArrayList>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <archive.h>
#include <archive_entry.h>

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <memory>

#include <unistd.h>

namespace {

constexpr size_t readBlockBytes = 256 * 1024;
constexpr qint64 maxUnpackedBytes = 4LL * 1024 * 1024 * 1024;
// An archive that unpacks to more than a hundred times its size, and more than this, is a bomb.
constexpr qint64 minBombBytes = 64LL * 1024 * 1024;
constexpr qint64 maxExpansion = 100;
constexpr int maxEntries = 100'000;

using Reader = std::unique_ptr<archive, decltype(&archive_read_free)>;
using Writer = std::unique_ptr<archive, decltype(&archive_write_free)>;

// libarchive converts names through the thread's locale; in "C" every non-ASCII name would be lost.
class Utf8Locale
{
public:
    Utf8Locale() : m_locale(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr))
    {
        if (m_locale)
            m_previous = uselocale(m_locale);
    }
    ~Utf8Locale()
    {
        if (!m_locale)
            return;
        uselocale(m_previous);
        freelocale(m_locale);
    }
    Q_DISABLE_COPY_MOVE(Utf8Locale)

private:
    locale_t m_locale;
    locale_t m_previous = {};
};

// The steps of a stored name below the destination; nothing when the name is absolute or climbs.
std::optional<QByteArrayList> stepsOf(const QByteArray& name)
{
    if (name.isEmpty() || name.startsWith('/'))
        return {};
    QByteArrayList steps;
    for (const QByteArray& step : name.split('/')) {
        if (step == "..")
            return {};
        if (!step.isEmpty() && step != ".")
            steps.append(step);
    }
    return steps;
}

// A link may climb only at its start, where it stands in a real directory, and not out of the
// destination; a later ".." could follow another link and end up anywhere.
bool staysInside(const QByteArray& linkTarget, qsizetype depth)
{
    if (linkTarget.isEmpty() || linkTarget.startsWith('/'))
        return false;
    bool descended = false;
    for (const QByteArray& step : linkTarget.split('/')) {
        if (step.isEmpty() || step == ".")
            continue;
        if (step != "..")
            descended = true;
        else if (descended || --depth < 0)
            return false;
    }
    return true;
}

Reader openForReading(const QString& path)
{
    Reader reader(archive_read_new(), &archive_read_free);
    // By file name: through a callback libarchive cannot seek to the directory at the end, where
    // modes and links are kept.
    if (archive_read_support_format_zip_seekable(reader.get()) != ARCHIVE_OK ||
        archive_read_open_filename(reader.get(), QFile::encodeName(path).constData(),
                                   readBlockBytes) != ARCHIVE_OK)
        reader.reset();
    return reader;
}

Reader openForReading(const QByteArray& archive)
{
    Reader reader(archive_read_new(), &archive_read_free);
    if (archive_read_support_format_zip_seekable(reader.get()) != ARCHIVE_OK ||
        archive_read_open_memory(reader.get(), archive.constData(),
                                 static_cast<size_t>(archive.size())) != ARCHIVE_OK)
        reader.reset();
    return reader;
}

Writer openForWriting()
{
    Writer writer(archive_write_disk_new(), &archive_write_free);
    archive_write_disk_set_options(writer.get(), ARCHIVE_EXTRACT_PERM |
                                                     ARCHIVE_EXTRACT_SECURE_NODOTDOT |
                                                     ARCHIVE_EXTRACT_SECURE_SYMLINKS);
    return writer;
}

// Rewrites the entry's name to its place below root; false when it must not be unpacked.
bool placeBelow(const QByteArray& root, archive_entry* entry, QSet<QString>& topLevel)
{
    const auto steps = stepsOf(archive_entry_pathname(entry));
    if (!steps)
        return false;
    const mode_t type = archive_entry_filetype(entry);
    if (type == AE_IFLNK) {
        if (!staysInside(archive_entry_symlink(entry), steps->size() - 1))
            return false;
    } else if (type != AE_IFREG && type != AE_IFDIR) {
        return false;
    }

    if (!steps->isEmpty())
        topLevel.insert(QFile::decodeName(steps->first()));
    // No set-user-id, no sticky: an archive has no business with them.
    archive_entry_set_perm(entry, archive_entry_perm(entry) & 0777);
    const QByteArray place = root + '/' + steps->join('/');
    archive_entry_copy_pathname(entry, place.constData());
    return true;
}

bool copyData(archive* reader, archive* writer, qint64& budget, const zip::Cancelled& cancelled)
{
    for (;;) {
        const void* block = nullptr;
        size_t size = 0;
        la_int64_t offset = 0;
        const int status = archive_read_data_block(reader, &block, &size, &offset);
        if (status == ARCHIVE_EOF)
            return true;
        budget -= static_cast<qint64>(size);
        if (status != ARCHIVE_OK || budget < 0 || (cancelled && cancelled()))
            return false;
        if (archive_write_data_block(writer, block, size, offset) != ARCHIVE_OK)
            return false;
    }
}

bool isFileNamed(archive_entry* entry, const QString& name)
{
    return archive_entry_filetype(entry) == AE_IFREG &&
           QString::fromLocal8Bit(archive_entry_pathname(entry))
                   .compare(name, Qt::CaseInsensitive) == 0;
}

bool readData(archive* reader, qint64& budget, QByteArray& data)
{
    QByteArray block(readBlockBytes, Qt::Uninitialized);
    for (;;) {
        const la_ssize_t size =
            archive_read_data(reader, block.data(), static_cast<size_t>(block.size()));
        budget -= size;
        if (size <= 0 || budget < 0)
            return size == 0;
        data.append(block.constData(), size);
    }
}

// An update must not lock its user out: the owner can always read and write what it brings.
bool unpackOver(const QByteArray& root, archive* reader, archive_entry* entry, archive* writer,
                qint64& budget)
{
    QSet<QString> topLevel;
    if (!placeBelow(root, entry, topLevel))
        return false;
    if (topLevel.isEmpty())
        return true; // the directory itself
    const bool isDirectory = archive_entry_filetype(entry) == AE_IFDIR;
    archive_entry_set_perm(entry, archive_entry_perm(entry) | (isDirectory ? 0700 : 0600));
    if (archive_entry_filetype(entry) != AE_IFREG)
        return archive_write_header(writer, entry) == ARCHIVE_OK;

    // Beside its place first: a program that uses the old file keeps it, and so does a full disk.
    const QByteArray place = archive_entry_pathname(entry);
    const QByteArray part = place + ".part";
    archive_entry_copy_pathname(entry, part.constData());
    if (archive_write_header(writer, entry) != ARCHIVE_OK)
        return false;
    const bool replaced = copyData(reader, writer, budget, {}) &&
                          archive_write_finish_entry(writer) == ARCHIVE_OK &&
                          std::rename(part.constData(), place.constData()) == 0;
    if (!replaced)
        unlink(part.constData());
    return replaced;
}

} // namespace

namespace zip {

std::optional<QStringList> extract(const QString& archivePath, const QString& destination,
                                   const Cancelled& cancelled)
{
    const Utf8Locale locale;
    // Canonical, because SECURE_SYMLINKS also objects to links on the way to the destination.
    const QByteArray root = QFile::encodeName(QFileInfo(destination).canonicalFilePath());
    const Reader reader = openForReading(archivePath);
    if (root.isEmpty() || !reader)
        return {};
    const Writer writer = openForWriting();

    const qint64 bombBytes = std::max(minBombBytes, QFileInfo(archivePath).size() * maxExpansion);
    qint64 budget = std::min(maxUnpackedBytes, bombBytes);
    QSet<QString> topLevel;
    for (int entries = 0;; ++entries) {
        archive_entry* entry = nullptr;
        const int status = archive_read_next_header(reader.get(), &entry);
        if (status == ARCHIVE_EOF)
            break;
        if (status != ARCHIVE_OK || entries == maxEntries || (cancelled && cancelled()))
            return {};
        if (!placeBelow(root, entry, topLevel) ||
            archive_write_header(writer.get(), entry) != ARCHIVE_OK ||
            !copyData(reader.get(), writer.get(), budget, cancelled) ||
            archive_write_finish_entry(writer.get()) != ARCHIVE_OK)
            return {};
    }
    // Closing sets the modes of directories, which had to stay writable until now.
    if (archive_write_close(writer.get()) != ARCHIVE_OK)
        return {};
    return topLevel.values();
}

std::optional<QByteArray> extractAllBut(const QString& name, const QByteArray& archive,
                                        const QString& destination)
{
    const Utf8Locale locale;
    const QByteArray root = QFile::encodeName(QFileInfo(destination).canonicalFilePath());
    const Reader reader = openForReading(archive);
    if (root.isEmpty() || !reader)
        return {};
    const Writer writer = openForWriting();

    qint64 budget =
        std::min(maxUnpackedBytes, std::max<qint64>(minBombBytes, archive.size() * maxExpansion));
    std::optional<QByteArray> kept;
    for (int entries = 0;; ++entries) {
        archive_entry* entry = nullptr;
        const int status = archive_read_next_header(reader.get(), &entry);
        if (status == ARCHIVE_EOF)
            break;
        if (status != ARCHIVE_OK || entries == maxEntries)
            return {};
        const bool unpacked = isFileNamed(entry, name)
                                  ? readData(reader.get(), budget, kept.emplace())
                                  : unpackOver(root, reader.get(), entry, writer.get(), budget);
        if (!unpacked)
            return {};
    }
    if (archive_write_close(writer.get()) != ARCHIVE_OK)
        return {};
    return kept;
}

} // namespace zip
