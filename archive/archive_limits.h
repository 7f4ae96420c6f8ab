#pragma once

#include <QByteArrayView>
#include <QtGlobal>

#include <array>
#include <span>

// What one archive may cost whoever unpacks it, and which names at its top are not its to bring.
struct ArchiveLimits
{
    // Stored entries, and the files and directories they make: the missing parents count.
    int entries;
    // Unpacked. An archive is also held to a hundred times its own size, see ArchiveReader.
    qint64 bytes;
    // In any letter case.
    std::span<const QByteArrayView> takenNames = {};
};

namespace archive_limits {

// Where the unpacking of a launcher's archive keeps the entry that it is at.
inline constexpr QByteArrayView launcherWorkName = ".tessellan-update";
inline constexpr std::array launcherTakenNames = {launcherWorkName};

// A Java runtime has a few hundred entries and 150 MB. It is unpacked by a thread of its own.
inline constexpr ArchiveLimits runtime = {100'000, 4LL * 1024 * 1024 * 1024};
// The launcher with all its libraries has 150 entries and 200 MB. It is unpacked by the thread that
// draws the window, and each file is waited for until it is on the disk.
inline constexpr ArchiveLimits launcher = {1'000, 1024LL * 1024 * 1024, launcherTakenNames};
// A game jar is not unpacked at all: java reads it.
inline constexpr ArchiveLimits jar = runtime;

} // namespace archive_limits
