#include "archive/archive_reader.h"

#include "archive/archive_names.h"
#include "archive/zip_end.h"

#include <archive.h>
#include <archive_entry.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 blockBytes = 256 * 1024;
// An archive that unpacks to more than a hundred times its size, and more than this, is a bomb.
constexpr qint64 minBombBytes = 64LL * 1024 * 1024;
constexpr qint64 maxExpansion = 100;
// libarchive holds a ZIP's whole directory in memory before it hands out the first entry. An honest
// one takes about 120 bytes for an entry.
constexpr qint64 directoryBytesPerEntry = 320;

QString errorOf(archive* handle)
{
    const char* text = archive_error_string(handle);
    return text ? QString::fromUtf8(text) : u"unknown error"_s;
}

qint64 budgetFor(qint64 archiveBytes, qint64 limit)
{
    return std::min(limit, std::max(minBombBytes, archiveBytes * maxExpansion));
}

} // namespace

// What libarchive reads through. It can seek: else a ZIP's directory at the end, where modes and
// links stand, would not be read.
struct ArchiveReader::Input
{
    ArchiveSource source;
    Cancelled cancelled;
    qint64 offset = 0;
    qint64 bytesLeft = std::numeric_limits<qint64>::max();

    static la_ssize_t read(archive* handle, void* self, const void** buffer)
    {
        auto* input = static_cast<Input*>(self);
        const auto bytes = input->source.read(input->offset, blockBytes);
        if (!bytes || input->bytesLeft < 0 || (input->cancelled && input->cancelled())) {
            archive_set_error(handle, EIO, "%s",
                              input->bytesLeft < 0 ? "its directory is too large" : "not readable");
            return ARCHIVE_FATAL;
        }
        input->offset += bytes->size();
        input->bytesLeft -= bytes->size();
        *buffer = bytes->data();
        return bytes->size();
    }

    static la_int64_t seek(archive*, void* self, la_int64_t offset, int whence)
    {
        auto* input = static_cast<Input*>(self);
        const qint64 size = input->source.size();
        const qint64 start = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? input->offset : size;
        input->offset = std::clamp<qint64>(start + offset, 0, size);
        return input->offset;
    }
};

ArchiveReader::ArchiveReader(ArchiveSource source, Format format, const ArchiveLimits& limits,
                             Cancelled cancelled)
    : m_input(std::make_unique<Input>(Input{std::move(source), std::move(cancelled)}))
    , m_limits(limits)
    , m_tree(limits.entries)
    , m_bytesLeft(budgetFor(m_input->source.size(), limits.bytes))
{
    if (m_input->source.error().isEmpty())
        open(format);
    else
        fail(u"cannot be read: "_s + m_input->source.error());
}

ArchiveReader::~ArchiveReader()
{
    archive_read_free(m_reader);
}

void ArchiveReader::open(Format format)
{
    if (format == Format::Zip) {
        if (const auto end = ZipEnd::find(m_input->source)) {
            m_input->source.shorten(end->endWithoutComment);
            if (!end->hasEntries)
                return;
        }
        m_input->bytesLeft = m_limits.entries * directoryBytesPerEntry + 2 * blockBytes;
    }
    m_reader = archive_read_new();
    if (format == Format::Zip) {
        archive_read_support_format_zip_seekable(m_reader);
    } else {
        archive_read_support_filter_gzip(m_reader);
        archive_read_support_format_tar(m_reader);
    }
    archive_read_set_read_callback(m_reader, &Input::read);
    archive_read_set_seek_callback(m_reader, &Input::seek);
    archive_read_set_callback_data(m_reader, m_input.get());
    if (archive_read_open1(m_reader) != ARCHIVE_OK)
        fail(u"is no archive of this kind"_s);
}

bool ArchiveReader::next()
{
    const Utf8Locale::Scope scope(m_locale);
    while (advance()) {
        if (!judge())
            return false;
        if (!m_steps.isEmpty())
            return true;
    }
    return false;
}

bool ArchiveReader::advance()
{
    if (!m_fault.isEmpty() || !m_reader)
        return false;
    if (m_input->cancelled && m_input->cancelled())
        return fail(u"was left unread"_s);
    const int status = archive_read_next_header(m_reader, &m_entry);
    m_input->bytesLeft = std::numeric_limits<qint64>::max();
    if (status == ARCHIVE_EOF)
        return false;
    if (status != ARCHIVE_OK)
        return fail(u"is damaged: "_s + errorOf(m_reader));
    if (++m_entries > m_limits.entries)
        return fail(u"has more than %1 entries"_s.arg(m_limits.entries));
    return true;
}

bool ArchiveReader::judge()
{
    const char* stored = archive_entry_pathname(m_entry);
    const QByteArray name = stored ? QByteArray(stored) : QByteArray();
    const QString shown = QString::fromUtf8(name.left(archive_names::maxStepBytes));
    if (archive_names::isTooLong(name))
        return fail(u"the name of the entry \"%1\" is too long or too deep"_s.arg(shown));
    const auto steps = archive_names::stepsOf(name);
    if (!steps)
        return fail(u"the entry \"%1\" leads out of the archive"_s.arg(shown));
    m_steps = *steps;
    m_entryBytes = 0;
    m_target.clear();
    m_isHardLink = archive_entry_hardlink(m_entry) != nullptr;
    const auto type = archive_entry_filetype(m_entry);
    if (type != AE_IFREG && type != AE_IFDIR && type != AE_IFLNK && !m_isHardLink)
        return fail(u"\"%1\" is neither a file, a directory nor a link"_s.arg(shown));
    m_kind = type == AE_IFDIR ? Kind::Directory : type == AE_IFLNK ? Kind::Link : Kind::File;
    if (m_steps.isEmpty() && m_kind != Kind::Directory)
        return fail(u"the entry \"%1\" takes the place of the archive's directory"_s.arg(shown));
    const auto isTop = [this](QByteArrayView taken) {
        return !m_steps.isEmpty() && taken.compare(m_steps.first(), Qt::CaseInsensitive) == 0;
    };
    if (std::ranges::any_of(m_limits.takenNames, isTop))
        return fail(u"the name of the entry \"%1\" is the launcher's own"_s.arg(shown));
    return judgeLink(shown) && place(shown);
}

bool ArchiveReader::judgeLink(const QString& shown)
{
    bool inside = true;
    if (m_isHardLink) {
        const QByteArray target = archive_entry_hardlink(m_entry);
        const auto steps = archive_names::stepsOf(target);
        inside = steps && !steps->isEmpty() && !archive_names::isTooLong(target);
        m_target = inside ? steps->join('/') : QByteArray();
    } else if (m_kind == Kind::Link) {
        const char* target = archive_entry_symlink(m_entry);
        m_target = target ? QByteArray(target) : QByteArray();
        inside = archive_names::staysInside(m_target, m_steps.size() - 1) &&
                 m_target.size() <= archive_names::maxNameBytes;
    }
    return inside || fail(u"the link \"%1\" leads out of the archive"_s.arg(shown));
}

bool ArchiveReader::place(const QString& shown)
{
    switch (m_tree.add(m_steps, m_kind)) {
    case ArchiveTree::Verdict::Fits:
        return true;
    case ArchiveTree::Verdict::Conflicts:
        return fail(u"the entry \"%1\" stands where another one leads elsewhere"_s.arg(shown));
    case ArchiveTree::Verdict::Full:
        break;
    }
    return fail(u"has more than %1 files and directories"_s.arg(m_limits.entries));
}

std::optional<QByteArrayView> ArchiveReader::block()
{
    const void* data = nullptr;
    size_t size = 0;
    la_int64_t offset = 0;
    while (m_fault.isEmpty()) {
        const int status = archive_read_data_block(m_reader, &data, &size, &offset);
        if (status == ARCHIVE_EOF)
            return QByteArrayView();
        m_bytesLeft -= static_cast<qint64>(size);
        m_entryBytes += static_cast<qint64>(size);
        if (status != ARCHIVE_OK)
            fail(u"is damaged: "_s + errorOf(m_reader));
        else if (m_bytesLeft < 0)
            fail(u"unpacks to more than %1 MB, or than a hundred times its size"_s.arg(
                m_limits.bytes / (1024 * 1024)));
        else if (m_input->cancelled && m_input->cancelled())
            fail(u"was left unread"_s);
        else if (size > 0)
            return QByteArrayView(static_cast<const char*>(data), static_cast<qsizetype>(size));
    }
    return {};
}

bool ArchiveReader::skim()
{
    auto data = block();
    while (data && !data->isEmpty())
        data = block();
    return data.has_value();
}

int ArchiveReader::mode() const
{
    return static_cast<int>(archive_entry_perm(m_entry) & 0777);
}

qint64 ArchiveReader::bytesRead() const
{
    return m_reader ? archive_filter_bytes(m_reader, -1) : 0;
}

bool ArchiveReader::fail(const QString& why)
{
    if (m_fault.isEmpty())
        m_fault = why;
    return false;
}
