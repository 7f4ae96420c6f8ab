#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

// Unpacking of ZIP archives, for the runtime and for full launcher updates. Thread-safe: no state
// outside the call. Names are taken as the bytes that the archive stores; UTF-8 names come out
// right in every locale.
namespace zip {

// Asked between blocks of data; true ends the extraction as a failure.
using Cancelled = std::function<bool()>;

// Unpacks the archive file into the existing directory `destination`, with the Unix mode bits and
// links that the archive stores. Returns the names of the top-level entries, or nothing on
// failure: not a ZIP, damaged, cancelled, disk full, an entry or a link that would lead out of the
// directory, or more data than an honest archive of that size holds. What was unpacked before a
// failure stays.
std::optional<QStringList> extract(const QString& archivePath, const QString& destination,
                                   const Cancelled& cancelled = {});

// Unpacks an archive held in memory over the existing directory `destination`, each file replaced
// as a whole, but for the entry called `name` (its whole name, in any letter case): the contents
// of the last such entry are returned. Nothing when there is none, and on failure as above; links
// in the destination are not followed.
std::optional<QByteArray> extractAllBut(const QString& name, const QByteArray& archive,
                                        const QString& destination);

} // namespace zip
