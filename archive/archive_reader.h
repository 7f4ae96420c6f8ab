#pragma once

#include "archive/archive_limits.h"
#include "archive/archive_source.h"
#include "archive/archive_tree.h"
#include "archive/utf8_locale.h"

#include <QByteArray>
#include <QByteArrayList>
#include <QByteArrayView>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

struct archive;
struct archive_entry;

// Reads an archive entry by entry and judges each: the one place where it stands what an archive
// may be. A name or a link that leads out of the archive's directory, something that is neither
// file, directory nor link, names too long or too deep to be unpacked, one name for two kinds of
// things, something below a link, more entries or bytes than the limits, a hundred times its own
// size, a wrong checksum, a cut end: each ends the reading with a fault. An entry for the directory
// that the archive is unpacked into is passed over, and is a fault unless it is a directory.
//
// One thread at a time; memory is bounded by the limits.
class ArchiveReader
{
public:
    enum class Format { Zip, TarGz };
    using Kind = ArchiveTree::Kind;
    // Asked between blocks; true ends the reading as a fault.
    using Cancelled = std::function<bool()>;

    ArchiveReader(ArchiveSource source, Format format, const ArchiveLimits& limits,
                  Cancelled cancelled = {});
    ~ArchiveReader();
    Q_DISABLE_COPY_MOVE(ArchiveReader)

    // False at the end and on a fault.
    bool next();
    // The current entry's next data, until the next call; empty at its end, nothing on a fault.
    std::optional<QByteArrayView> block();
    // Reads and drops the current entry's data: proves that they are whole.
    bool skim();

    // The current entry. Its name is what the steps say, without "." and the like; they are never
    // none. The mode has no set-user-id and no sticky bit.
    const QByteArrayList& steps() const { return m_steps; }
    QByteArray name() const { return m_steps.join('/'); }
    Kind kind() const { return m_kind; }
    int mode() const;
    // What a link leads to, or the name in the archive that a hard link (in a .tar.gz) stands for.
    const QByteArray& target() const { return m_target; }
    bool isHardLink() const { return m_isHardLink; }
    // Those of its bytes that were read so far.
    qint64 entryBytes() const { return m_entryBytes; }
    archive_entry* entry() const { return m_entry; }

    qint64 bytesRead() const;
    // In words that follow the archive's name; empty when there is none.
    const QString& fault() const { return m_fault; }
    // Whether anything at all was in it, so far.
    bool hasEntries() const { return m_entries > 0; }

private:
    struct Input;

    void open(Format format);
    bool advance();
    bool judge();
    bool judgeLink(const QString& shown);
    bool place(const QString& shown);
    bool fail(const QString& why);

    Utf8Locale m_locale;
    std::unique_ptr<Input> m_input;
    ArchiveLimits m_limits;
    archive* m_reader = nullptr; // none for an archive without entries
    archive_entry* m_entry = nullptr;
    ArchiveTree m_tree;
    QByteArrayList m_steps;
    Kind m_kind = Kind::File;
    QByteArray m_target;
    bool m_isHardLink = false;
    int m_entries = 0;
    qint64 m_entryBytes = 0;
    qint64 m_bytesLeft;
    QString m_fault;
};
