#pragma once

#include "backend/outcome.h"

#include <QByteArray>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

struct archive;
struct archive_entry;

// Reads one archive, entry by entry, and judges each: an entry or a link that leads out of the
// archive's own directory, a device, a damaged block or an absurd size ends the walk with a fault.
class ArchiveWalk
{
public:
    enum class Kind { Zip, TarGz };
    using Sink = std::function<bool(const void* data, size_t size)>;

    ArchiveWalk(const QString& path, Kind kind);
    ~ArchiveWalk();
    Q_DISABLE_COPY_MOVE(ArchiveWalk)

    // False at the end and on a fault.
    bool next();
    // Hands every block of the current entry to `sink` (which may end it with false).
    bool read(const Sink& sink);
    // Reads and drops the current entry's data: proves that they are whole.
    bool skim();

    // The current entry: its name without "./", and what it is.
    const QByteArray& name() const { return m_name; }
    archive_entry* entry() const { return m_entry; }
    bool isExecutable() const;
    qint64 bytesRead() const;

    // Ends the walk; the first fault stays. Always false, so that it can be returned.
    bool fail(const QString& why);
    const std::optional<Refusal>& fault() const { return m_fault; }

private:
    class Utf8Locale;

    bool judge();

    std::unique_ptr<Utf8Locale> m_locale;
    QString m_path;
    archive* m_reader;
    archive_entry* m_entry = nullptr;
    QByteArray m_name;
    int m_entries = 0;
    qint64 m_unpacked = 0;
    std::optional<Refusal> m_fault;
};
