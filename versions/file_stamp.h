#pragma once

#include <QtGlobal>

#include <optional>

// How a file looks from outside: what shows that it was changed. What it does not show at all, such
// as writes through a mapping made before, goes unnoticed. Any thread.
struct FileStamp
{
    qint64 size = 0;
    qint64 modifiedNs = 0;
    qint64 changedNs = 0;
    quint64 inode = 0;
    quint64 device = 0;
    bool operator==(const FileStamp&) const = default;

    // Nothing when it is no regular file.
    static std::optional<FileStamp> of(int descriptor);
    // Whether its last change is older than the coarsest clock of a file system can hide: any later
    // change shows then.
    bool isSettled() const;
    // For a file that was written right now, by this system: waits, a few milliseconds at most,
    // until a change by anybody else would show; false when that takes longer. Not for the GUI
    // thread.
    bool settle() const;
};
