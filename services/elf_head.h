#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

// What the system looks at first when it starts a program, before any library.
struct ElfHead
{
    // Of the file at a path; nothing when it is no ELF file, a script for one, or cannot be read.
    // Reads a few kilobytes.
    static std::optional<ElfHead> of(const QString& path);

    QByteArray machine;     // class, byte order, instructions
    QByteArray interpreter; // the loader that it asks for; empty in a static program
    bool isWhole = true;    // all that is loaded of it is there
};
