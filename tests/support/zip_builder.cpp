#include "tests/support/zip_builder.h"

#include <QFile>

#include <sys/stat.h>
#include <zlib.h>

namespace {

constexpr quint16 utf8Names = 1 << 11;
constexpr quint16 sizesFollow = 1 << 3;
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
    const quint16 flags = names == Names::Utf8 ? utf8Names : 0;
    raw({.name = name, .content = content, .typeAndMode = typeAndMode, .flags = flags});
}

ZipBuilder& ZipBuilder::raw(const Raw& entry)
{
    const QByteArray packed = entry.method == 0 ? entry.content : deflate(entry.content);
    auto checksum =
        static_cast<quint32>(crc32(0, reinterpret_cast<const Bytef*>(entry.content.constData()),
                                   static_cast<uInt>(entry.content.size())));
    if (m_wrongChecksums)
        checksum = ~checksum;
    const quint32 size = entry.size.value_or(static_cast<quint32>(entry.content.size()));
    const quint32 packedSize = entry.packedSize.value_or(static_cast<quint32>(packed.size()));
    const quint16 flags = entry.flags | (entry.sizesFollow ? sizesFollow : 0);
    QByteArray sizes = u32(packedSize) + u32(size);
    QByteArray extra;
    if (entry.sizesAre64Bit) {
        sizes = u32(~0U) + u32(~0U);
        extra = u16(1) + u16(16) + u32(size) + u32(0) + u32(packedSize) + u32(0);
    }
    const auto lengths = [&extra](const QByteArray& name) -> QByteArray {
        return u16(static_cast<quint32>(name.size())) + u16(static_cast<quint32>(extra.size()));
    };
    // Version, flags, method, time, date: the same in both places.
    const QByteArray common =
        u16(readableBy) + u16(flags) + u16(entry.method) + u16(0) + u16(0x5a21);
    const QByteArray localName = entry.localName.isEmpty() ? entry.name : entry.localName;
    const quint32 offset = entry.at.value_or(static_cast<quint32>(m_entries.size()));
    m_directory += "PK\x01\x02" + u16(madeOnUnix) + common + u32(checksum) + sizes +
                   lengths(entry.name) + u16(0) + u16(0) + u16(0) + u32(entry.typeAndMode << 16) +
                   u32(offset) + entry.name + extra;
    ++m_count;
    if (entry.at)
        return *this;
    // Then the checksum and the sizes are not known yet.
    const QByteArray front =
        entry.sizesFollow ? QByteArray(12, '\0') : QByteArray(u32(checksum) + sizes);
    m_entries += "PK\x03\x04" + common + front + lengths(localName) + localName + extra + packed;
    if (entry.sizesFollow)
        m_entries += "PK\x07\x08" + u32(checksum) + u32(packedSize) + u32(size);
    return *this;
}

ZipBuilder& ZipBuilder::comment(const QByteArray& text)
{
    m_comment = text;
    return *this;
}

ZipBuilder& ZipBuilder::with64BitEnd()
{
    m_64BitEnd = true;
    return *this;
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
    const auto directoryBytes = static_cast<quint32>(m_directory.size());
    const auto start = static_cast<quint32>(m_entries.size());
    QByteArray end;
    if (m_64BitEnd) {
        end = "PK\x06\x06" + u32(44) + u32(0) + u16(madeOnUnix) + u16(45) + u32(0) + u32(0) +
              u32(m_count) + u32(0) + u32(m_count) + u32(0) + u32(directoryBytes) + u32(0) +
              u32(start) + u32(0);
        end += "PK\x06\x07" + u32(0) + u32(start + directoryBytes) + u32(0) + u32(1);
    }
    const auto shown = [this](quint32 value) { return m_64BitEnd ? ~0U : value; };
    end += "PK\x05\x06" + u32(0) + u16(shown(m_count)) + u16(shown(m_count)) +
           u32(shown(directoryBytes)) + u32(shown(start)) +
           u16(static_cast<quint32>(m_comment.size())) + m_comment;
    return m_entries + m_directory + end;
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
