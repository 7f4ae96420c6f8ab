#pragma once

#include "archive/archive_reader.h"
#include "archive/archive_source.h"
#include "services/tree_writer.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

// Unpacking of ZIP archives, for the runtime and for full launcher updates. What an archive may be
// is ArchiveReader's to say. Names are taken as the bytes that the archive stores; UTF-8 names come
// out right in every locale.
namespace zip {

// Asked before every step; true ends the extraction as a failure.
using Cancelled = std::function<bool()>;

// Unpacks the archive into the existing directory `destination`, with the Unix mode bits and links
// that the archive stores. Returns the names of the top-level entries, or nothing on failure: not a
// ZIP, damaged, cancelled, disk full, or an archive that breaks the rules. What was unpacked before
// a failure stays; what an earlier extraction left at a top-level name of the archive goes first.
// Any thread.
std::optional<QStringList> extract(ArchiveSource source, const QString& destination,
                                   const Cancelled& cancelled = {},
                                   const ArchiveLimits& limits = archive_limits::runtime);

// Unpacks an archive over the existing directory `destination`, piece by piece, each file replaced
// as a whole once it is on the disk, but for the entry called `name` (its whole name, in any letter
// case), which is kept in memory. Links in the destination are not followed. The owner can read and
// write all that it brings. What was unpacked before a failure stays.
class UnpackingOver
{
public:
    enum class State { Working, Done, Failed };

    UnpackingOver(const QString& name, const QByteArray& archive, const QString& destination);
    // Removes what an unfinished step left.
    ~UnpackingOver();
    Q_DISABLE_COPY_MOVE(UnpackingOver)

    // Does a little: an entry, or a block of one.
    State step();
    // When it is done: the contents of the last entry of that name; nothing when there was none.
    const std::optional<QByteArray>& kept() const { return m_kept; }

private:
    State fail();
    bool begin();
    bool take(QByteArrayView block);
    bool finish();

    QByteArray m_name;
    QByteArray m_workPath;
    TreeWriter m_writer;
    ArchiveReader m_reader;
    bool m_inEntry = false;
    bool m_isKept = false;
    State m_state = State::Working;
    std::optional<QByteArray> m_kept;
};

} // namespace zip
