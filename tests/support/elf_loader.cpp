#include "tests/support/elf_loader.h"

#include <cstring>

#include <elf.h>

QByteArray withLoader(QByteArray program, const QByteArray& path)
{
    Elf64_Ehdr header;
    std::memcpy(&header, program.constData(), sizeof header);
    for (int i = 0; i < header.e_phnum; ++i) {
        Elf64_Phdr segment;
        const auto at = static_cast<qsizetype>(header.e_phoff) + i * header.e_phentsize;
        std::memcpy(&segment, program.constData() + at, sizeof segment);
        if (segment.p_type != PT_INTERP)
            continue;
        segment.p_offset = static_cast<Elf64_Off>(program.size());
        segment.p_filesz = static_cast<Elf64_Xword>(path.size() + 1);
        program.replace(at, sizeof segment, reinterpret_cast<const char*>(&segment),
                        sizeof segment);
    }
    return program.append(path).append('\0');
}
