#pragma once

#include <QByteArrayView>
#include <QFile>
#include <QString>

// A file that gets its name only when it is whole: a process that dies on the way, or a second
// one at the same work, leaves no half of it under that name. Where the file system cannot hold
// unnamed files it has its name from the start, and loses it again on failure. Replaces an old
// file, never through a link, and only once it is whole itself where that can be. Not for the GUI
// thread, which a disk would hold; one thread at a time.
class StagedFile
{
public:
    explicit StagedFile(const QString& path);
    // Discards what keep() did not name.
    ~StagedFile();
    Q_DISABLE_COPY_MOVE(StagedFile)

    bool create();
    // Waits until the bytes are on the disk: piece by piece, so that no one wait is long.
    bool write(QByteArrayView bytes);
    // Closes the file and gives it its name, also through a loss of power from here on; on failure
    // nothing of it is left.
    bool keep();
    void discard();

private:
    bool name();
    bool isStillNamed() const;
    bool syncDirectory() const;

    QString m_path;
    QFile m_file;
    bool m_named = false;
};
