#include "archive/archive_source.h"

#include <QFile>

#include <algorithm>

ArchiveSource::ArchiveSource() = default;
ArchiveSource::~ArchiveSource() = default;
ArchiveSource::ArchiveSource(ArchiveSource&& other) noexcept = default;
ArchiveSource& ArchiveSource::operator=(ArchiveSource&& other) noexcept = default;

ArchiveSource ArchiveSource::file(const QString& path)
{
    ArchiveSource source;
    source.m_file = std::make_unique<QFile>(path);
    source.take(source.m_file->open(QIODevice::ReadOnly | QIODevice::Unbuffered));
    return source;
}

ArchiveSource ArchiveSource::descriptor(int descriptor)
{
    ArchiveSource source;
    source.m_file = std::make_unique<QFile>();
    source.take(source.m_file->open(descriptor, QIODevice::ReadOnly | QIODevice::Unbuffered,
                                    QFile::AutoCloseHandle));
    return source;
}

ArchiveSource ArchiveSource::memory(const QByteArray& bytes)
{
    ArchiveSource source;
    source.m_bytes = bytes;
    source.m_size = bytes.size();
    return source;
}

void ArchiveSource::take(bool opened)
{
    if (opened)
        m_size = m_file->size();
    else
        m_error = m_file->errorString();
}

std::optional<QByteArrayView> ArchiveSource::read(qint64 offset, qint64 most)
{
    const qint64 count = std::clamp<qint64>(m_size - offset, 0, most);
    if (!m_file)
        return QByteArrayView(m_bytes).sliced(std::min<qint64>(offset, m_size), count);
    m_bytes.resize(count);
    if (!m_file->seek(offset))
        return {};
    const qint64 got = m_file->read(m_bytes.data(), count);
    if (got < 0)
        return {};
    return QByteArrayView(m_bytes).first(got);
}
