#include "tests/support/zip_builder.h"

#include <QFile>

#include <sys/stat.h>
#include <zlib.h>

namespace {

constexpr quint16 deflated = 8;
constexpr quint16 utf8Names = 1 << 11;
constexpr quint16 madeOnUnix = 3 << 8 | 20;
constexpr quint16 readableBy = 20;

QByteArray u16(quint32 value)
{
    const char bytes[] = {static_cast<char>(value & 0xff), static_cast<char>(value >> 8 & 0xff)};
    return {bytes, 2};
}

QByteArray u32(quint32 value)
{
    return u16(value) + u16(value >> 16);
}

QByteArray deflate(const QByteArray& content)
{
    // qCompress: four bytes of length, two of zlib header, the stream, four of checksum.
    const QByteArray packed = qCompress(content);
    return content.isEmpty() ? QByteArray("\x03\x00", 2) : packed.mid(6, packed.size() - 10);
}

} // namespace

void ZipBuilder::add(const QByteArray& name, const QByteArray& content, unsigned typeAndMode,
                     Names names)
{
    const QByteArray packed = deflate(content);
    auto checksum = static_cast<quint32>(crc32(
        0, reinterpret_cast<const Bytef*>(content.constData()), static_cast<uInt>(content.size())));
    if (m_wrongChecksums)
        checksum = ~checksum;
    const quint16 flags = names == Names::Utf8 ? utf8Names : 0;
    // Version, flags, method, time, date, checksum, sizes, lengths: the same in both places.
    const QByteArray common = u16(readableBy) + u16(flags) + u16(deflated) + u16(0) + u16(0x5a21) +
                              u32(checksum) + u32(static_cast<quint32>(packed.size())) +
                              u32(static_cast<quint32>(content.size())) +
                              u16(static_cast<quint32>(name.size())) + u16(0);
    m_directory += "PK\x01\x02" + u16(madeOnUnix) + common + u16(0) + u16(0) + u16(0) +
                   u32(typeAndMode << 16) + u32(static_cast<quint32>(m_entries.size())) + name;
    m_entries += "PK\x03\x04" + common + name + packed;
    ++m_count;
}

ZipBuilder& ZipBuilder::file(const QByteArray& name, const QByteArray& content, unsigned mode,
                             Names names)
{
    add(name, content, S_IFREG | mode, names);
    return *this;
}

ZipBuilder& ZipBuilder::directory(const QByteArray& name, unsigned mode)
{
    add(name + '/', {}, S_IFDIR | mode, Names::Utf8);
    return *this;
}

ZipBuilder& ZipBuilder::link(const QByteArray& name, const QByteArray& target)
{
    add(name, target, S_IFLNK | 0777, Names::Utf8);
    return *this;
}

ZipBuilder& ZipBuilder::special(const QByteArray& name, unsigned typeAndMode)
{
    add(name, {}, typeAndMode, Names::Utf8);
    return *this;
}

ZipBuilder& ZipBuilder::withWrongChecksums()
{
    m_wrongChecksums = true;
    return *this;
}

QByteArray ZipBuilder::bytes() const
{
    return m_entries + m_directory + "PK\x05\x06" + u32(0) + u16(m_count) + u16(m_count) +
           u32(static_cast<quint32>(m_directory.size())) +
           u32(static_cast<quint32>(m_entries.size())) + u16(0);
}

bool ZipBuilder::write(const QString& path) const
{
    QFile file(path);
    const QByteArray content = bytes();
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size() && file.flush();
}

ZipBuilder ZipBuilder::runtime(const QByteArray& topDirectory, const QByteArray& javaScript)
{
    ZipBuilder builder;
    builder.directory(topDirectory)
        .directory(topDirectory + "/bin")
        .file(topDirectory + "/bin/java", "#!/bin/sh\n" + javaScript + "\n", 0755)
        .file(topDirectory + "/release", "JAVA_VERSION=\"11.0.25\"\n");
    return builder;
}
