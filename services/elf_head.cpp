#include "services/elf_head.h"

#include <QFile>

#include <cstring>

#include <link.h>

namespace {

constexpr int maxSegments = 100; // linkers make about a dozen
constexpr quint64 maxInterpreterBytes = 4096;

template <typename Record>
bool readAt(QFile& file, qint64 offset, Record& record)
{
    return file.seek(offset) &&
           file.read(reinterpret_cast<char*>(&record), sizeof record) == sizeof record;
}

bool isElf(const ElfW(Ehdr) & header)
{
    const unsigned char* ident = header.e_ident;
    return std::memcmp(ident, ELFMAG, SELFMAG) == 0 && ident[EI_VERSION] == EV_CURRENT &&
           (ident[EI_CLASS] == ELFCLASS32 || ident[EI_CLASS] == ELFCLASS64) &&
           (ident[EI_DATA] == ELFDATA2LSB || ident[EI_DATA] == ELFDATA2MSB);
}

bool isInside(const ElfW(Phdr) & segment, quint64 fileSize)
{
    return segment.p_filesz <= fileSize && segment.p_offset <= fileSize - segment.p_filesz;
}

// A path, and the NUL that ends it.
QByteArray interpreterAt(QFile& file, const ElfW(Phdr) & segment)
{
    if (segment.p_filesz > maxInterpreterBytes || !file.seek(static_cast<qint64>(segment.p_offset)))
        return {};
    const QByteArray path = file.read(static_cast<qint64>(segment.p_filesz));
    return path.left(path.indexOf('\0'));
}

} // namespace

std::optional<ElfHead> ElfHead::of(const QString& path)
{
    QFile file(path);
    ElfW(Ehdr) header;
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered) || !readAt(file, 0, header) ||
        !isElf(header))
        return {};
    ElfHead head;
    head.machine = QByteArray(reinterpret_cast<const char*>(&header.e_ident[EI_CLASS]), 2) +
                   QByteArray(reinterpret_cast<const char*>(&header.e_machine), 2);
    // The segments of another class are laid out in another way.
    if (header.e_phentsize != sizeof(ElfW(Phdr)) || header.e_phnum > maxSegments)
        return head;
    const auto fileSize = static_cast<quint64>(file.size());
    for (int i = 0; i < header.e_phnum; ++i) {
        ElfW(Phdr) segment;
        const quint64 at = header.e_phoff + quint64{header.e_phentsize} * static_cast<quint64>(i);
        if (at > fileSize || !readAt(file, static_cast<qint64>(at), segment)) {
            head.isWhole = false;
            return head;
        }
        const bool isThere = isInside(segment, fileSize);
        if (segment.p_type == PT_LOAD && !isThere)
            head.isWhole = false;
        if (segment.p_type == PT_INTERP && isThere)
            head.interpreter = interpreterAt(file, segment);
    }
    return head;
}
