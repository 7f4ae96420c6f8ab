#pragma once

#include <QHash>
#include <QString>

// SHA-256 of files, remembered for as long as a file looks as it did: size, times, inode, device.
// A file is remembered only when the last change that its times show is older than the coarsest
// clock of a file system can hide, so that any later change shows. What the times do not show at
// all, such as writes through a mapping made before, goes unnoticed. Owned by whoever asks; one
// thread at a time.
class FileDigests
{
public:
    // 64 lower-case hexadecimal characters; empty when it cannot be read or is no regular file.
    QString sha256(const QString& path);

private:
    struct Stamp
    {
        qint64 size = 0;
        qint64 modifiedNs = 0;
        qint64 changedNs = 0;
        quint64 inode = 0;
        quint64 device = 0;
        bool operator==(const Stamp&) const = default;
    };
    struct Known
    {
        Stamp stamp;
        QString sha256;
    };

    static bool read(int fileDescriptor, Stamp& stamp);
    static bool isSettled(const Stamp& stamp);

    QHash<QString, Known> m_known; // by path
};
