#pragma once

#include "backend/base/outcome.h"
#include "backend/catalogue/linkage.h"

#include <QString>
#include <QStringList>

// What players have who installed an archive of the launcher, as far as the loader asks for it: an
// update replaces the program alone, so the next program must start with the libraries of the last
// archive, and ask of the system only what that archive asks already.
class Installation
{
public:
    // Reads a .tar.gz, or by any other name a ZIP, one file of it in memory at a time.
    static Outcome<Installation> of(const QString& archive);

    // What a program would not find there, in words; none when it would start, or when it is no ELF
    // file, of which nothing is known.
    QStringList missingFor(const Linkage& program) const;

private:
    void add(const QByteArray& name, const Linkage& linkage);
    QStringList missingIn(const QByteArray& library, const Linkage::Symbols& wanted) const;

    QHash<QByteArray, Linkage::Symbols> m_versions; // of the libraries that it brings
    QSet<QByteArray> m_brought;
    Linkage m_asked; // all that its files ask for together
    Linkage::Symbols m_exports;
};
