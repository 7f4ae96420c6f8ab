#include "archive/zip_end.h"

#include "archive/archive_source.h"

#include <QByteArray>
#include <QtEndian>

#include <algorithm>

namespace {

constexpr qsizetype recordBytes = 22;
constexpr qsizetype maxCommentBytes = 65'535;
constexpr qsizetype entriesAt = 10;
constexpr qsizetype directoryBytesAt = 12;
constexpr qsizetype commentBytesAt = 20;

QByteArray tailOf(ArchiveSource& source)
{
    const qint64 size = std::min<qint64>(source.size(), recordBytes + maxCommentBytes);
    const qint64 start = source.size() - size;
    QByteArray tail;
    while (tail.size() < size) {
        const auto more = source.read(start + tail.size(), size - tail.size());
        if (!more || more->isEmpty())
            return {};
        tail.append(*more);
    }
    return tail;
}

} // namespace

std::optional<ZipEnd> ZipEnd::find(ArchiveSource& source)
{
    const QByteArray tail = tailOf(source);
    for (qsizetype at = tail.size() - recordBytes; at >= 0; --at) {
        const char* record = tail.constData() + at;
        if (!QByteArrayView(record, 4).startsWith("PK\x05\x06"))
            continue;
        const auto comment = qFromLittleEndian<quint16>(record + commentBytesAt);
        if (at + recordBytes + comment != tail.size())
            continue;
        return ZipEnd{source.size() - comment,
                      qFromLittleEndian<quint16>(record + entriesAt) != 0 ||
                          qFromLittleEndian<quint32>(record + directoryBytesAt) != 0};
    }
    return {};
}
