#pragma once

#include <QByteArray>
#include <QHash>
#include <QSet>

// How an ELF file is tied to others: what it asks of libraries by name, and what it offers them.
struct Linkage
{
    using Symbols = QSet<QByteArray>;

    QByteArray soname;                 // empty for a program
    QSet<QByteArray> libraries;        // that the loader must find
    QHash<QByteArray, Symbols> wanted; // by library: versions that it must define
    Symbols imports;                   // by name alone: no version says which library has them
    Symbols versions;                  // that it defines
    Symbols exports;                   // names that it defines, whatever their version

    // Of a file's bytes; all empty when they are no ELF file.
    static Linkage of(const QByteArray& bytes);
    bool isElf() const { return m_isElf; }

private:
    bool m_isElf = false;
};
