#include "backend/archive_walk.h"

#include <QFile>
#include <QFileInfo>

#include <archive.h>
#include <archive_entry.h>

#include <clocale>

using namespace Qt::StringLiterals;

namespace {

constexpr size_t blockBytes = 256 * 1024;
constexpr int maxEntries = 100'000;
constexpr qint64 maxUnpackedBytes = 4LL * 1024 * 1024 * 1024;

QString errorOf(archive* handle)
{
    const char* text = archive_error_string(handle);
    return text ? QString::fromUtf8(text) : u"unknown error"_s;
}

// Whether a name, or the target of a link that stands `depth` directories deep, stays inside the
// archive. A target may climb only at its start: a later ".." could follow another link and end up
// anywhere, and the launcher refuses it too.
bool staysInside(const QByteArray& path, qsizetype depth = 0)
{
    if (path.isEmpty() || path.startsWith('/'))
        return false;
    bool descended = false;
    for (const QByteArray& step : path.split('/')) {
        if (step.isEmpty() || step == ".")
            continue;
        if (step != "..")
            descended = true;
        else if (descended || --depth < 0)
            return false;
    }
    return true;
}

QByteArray withoutDotSlash(QByteArray name)
{
    while (name.startsWith("./"))
        name.remove(0, 2);
    return name;
}

} // namespace

// libarchive converts names through the thread's locale; in "C" every non-ASCII name is lost.
class ArchiveWalk::Utf8Locale
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

ArchiveWalk::ArchiveWalk(const QString& path, Kind kind)
    : m_locale(std::make_unique<Utf8Locale>()), m_path(path), m_reader(archive_read_new())
{
    if (kind == Kind::Zip) {
        archive_read_support_format_zip_seekable(m_reader);
    } else {
        archive_read_support_filter_gzip(m_reader);
        archive_read_support_format_tar(m_reader);
    }
    QFile probe(path);
    const QString unreadable = probe.open(QIODevice::ReadOnly)
                                   ? QString()
                                   : QString(u"cannot be read: "_s + probe.errorString());
    // By file name: a read callback cannot seek to the ZIP directory, where modes and links stand.
    const QByteArray file = QFile::encodeName(path);
    if (archive_read_open_filename(m_reader, file.constData(), blockBytes) != ARCHIVE_OK)
        fail(unreadable.isEmpty() ? u"is no archive of this kind"_s : unreadable);
}

ArchiveWalk::~ArchiveWalk()
{
    archive_read_free(m_reader);
}

bool ArchiveWalk::next()
{
    if (m_fault)
        return false;
    const int status = archive_read_next_header(m_reader, &m_entry);
    if (status == ARCHIVE_EOF)
        return m_entries > 0 ? false : fail(u"is empty"_s);
    if (status != ARCHIVE_OK)
        return fail(u"is damaged: "_s + errorOf(m_reader));
    if (++m_entries > maxEntries)
        return fail(u"has more than %1 entries"_s.arg(maxEntries));
    return judge();
}

bool ArchiveWalk::judge()
{
    const char* stored = archive_entry_pathname(m_entry);
    m_name = withoutDotSlash(stored ? QByteArray(stored) : QByteArray());
    const auto type = archive_entry_filetype(m_entry);
    if (m_name.isEmpty() && stored && type == AE_IFDIR)
        return true; // "./", the top itself
    const QString shown = QString::fromUtf8(m_name);
    if (!staysInside(m_name))
        return fail(u"the entry \"%1\" leads out of the archive"_s.arg(shown));

    bool inside = true;
    if (type == AE_IFLNK)
        inside = staysInside(archive_entry_symlink(m_entry), m_name.count('/'));
    else if (const char* target = archive_entry_hardlink(m_entry))
        inside = staysInside(withoutDotSlash(target));
    else if (type != AE_IFREG && type != AE_IFDIR)
        return fail(u"\"%1\" is neither a file, a directory nor a link"_s.arg(shown));
    return inside || fail(u"the link \"%1\" leads out of the archive"_s.arg(shown));
}

bool ArchiveWalk::read(const Sink& sink)
{
    for (;;) {
        const void* block = nullptr;
        size_t size = 0;
        la_int64_t offset = 0;
        const int status = archive_read_data_block(m_reader, &block, &size, &offset);
        if (status == ARCHIVE_EOF)
            return true;
        if (status != ARCHIVE_OK)
            return fail(u"is damaged: "_s + errorOf(m_reader));
        m_unpacked += static_cast<qint64>(size);
        if (m_unpacked > maxUnpackedBytes)
            return fail(u"unpacks to more than 4 GiB"_s);
        if (!sink(block, size))
            return false;
    }
}

bool ArchiveWalk::skim()
{
    return read([](const void*, size_t) { return true; });
}

bool ArchiveWalk::isExecutable() const
{
    return archive_entry_filetype(m_entry) == AE_IFREG && (archive_entry_perm(m_entry) & 0111) != 0;
}

qint64 ArchiveWalk::bytesRead() const
{
    return archive_filter_bytes(m_reader, -1);
}

bool ArchiveWalk::fail(const QString& why)
{
    if (!m_fault)
        m_fault = Refusal{400, QString(QFileInfo(m_path).fileName() + u": "_s + why)};
    return false;
}
