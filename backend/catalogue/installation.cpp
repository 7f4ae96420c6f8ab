#include "backend/catalogue/installation.h"

#include "archive/archive_reader.h"

#include <QFileInfo>
#include <QVersionNumber>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// Whether a library that has all of these versions is known to have this one: who has GLIBC_2.36
// has GLIBC_2.34 as well.
bool isCovered(const QByteArray& version, const Linkage::Symbols& had)
{
    const qsizetype number = version.lastIndexOf('_') + 1;
    const auto numberOf = [number](const QByteArray& name) {
        return QVersionNumber::fromString(QString::fromLatin1(name.mid(number)));
    };
    return std::any_of(had.cbegin(), had.cend(), [&](const QByteArray& one) {
        return one == version ||
               (number > 0 && one.left(number) == version.left(number) &&
                !numberOf(version).isNull() && numberOf(version) <= numberOf(one));
    });
}

} // namespace

Outcome<Installation> Installation::of(const QString& archive)
{
    const bool isTar = archive.endsWith(".tar.gz"_L1, Qt::CaseInsensitive);
    ArchiveReader reader(ArchiveSource::file(archive),
                         isTar ? ArchiveReader::Format::TarGz : ArchiveReader::Format::Zip,
                         archive_limits::launcher);
    Installation installation;
    while (reader.next()) {
        QByteArray bytes;
        auto block = reader.block();
        while (block && !block->isEmpty()) {
            bytes.append(*block);
            block = reader.block();
        }
        if (reader.kind() == ArchiveReader::Kind::File)
            installation.add(reader.steps().constLast(), Linkage::of(bytes));
    }
    if (!reader.fault().isEmpty())
        return Refusal{400, QFileInfo(archive).fileName() + u": "_s + reader.fault()};
    return installation;
}

void Installation::add(const QByteArray& name, const Linkage& linkage)
{
    if (!linkage.isElf())
        return;
    if (!linkage.soname.isEmpty()) {
        m_brought << name << linkage.soname;
        m_versions[linkage.soname] = m_versions[name] = linkage.versions;
    }
    m_asked.libraries.unite(linkage.libraries);
    m_asked.imports.unite(linkage.imports);
    for (auto it = linkage.wanted.cbegin(); it != linkage.wanted.cend(); ++it)
        m_asked.wanted[it.key()].unite(it.value());
    m_exports.unite(linkage.exports);
}

QStringList Installation::missingFor(const Linkage& program) const
{
    QStringList missing;
    for (const QByteArray& library : program.libraries) {
        if (!m_brought.contains(library) && !m_asked.libraries.contains(library))
            missing.append(
                u"%1 is neither there nor asked for so far"_s.arg(QLatin1StringView(library)));
        else
            missing += missingIn(library, program.wanted.value(library));
    }
    const auto isKnown = [this](const QByteArray& name) {
        return m_exports.contains(name) || m_asked.imports.contains(name);
    };
    for (const QByteArray& name : program.imports) {
        if (!isKnown(name))
            missing.append(u"no library there is known to have %1"_s.arg(QLatin1StringView(name)));
    }
    std::sort(missing.begin(), missing.end());
    return missing;
}

QStringList Installation::missingIn(const QByteArray& library, const Linkage::Symbols& wanted) const
{
    const bool isBrought = m_brought.contains(library);
    const Linkage::Symbols had =
        isBrought ? m_versions.value(library) : m_asked.wanted.value(library);
    QStringList missing;
    for (const QByteArray& version : wanted) {
        // A library that is there has exactly what it has.
        if (isBrought ? !had.contains(version) : !isCovered(version, had))
            missing.append(isBrought ? u"%1 there has no %2"_s.arg(QLatin1StringView(library),
                                                                   QLatin1StringView(version))
                                     : u"%1 was never asked for %2"_s.arg(
                                           QLatin1StringView(library), QLatin1StringView(version)));
    }
    return missing;
}
