#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <memory>
#include <optional>

class QFile;

// The bytes of an archive, wherever they are, read at any place. One thread at a time.
class ArchiveSource
{
public:
    static ArchiveSource file(const QString& path);
    // Takes the descriptor over and closes it.
    static ArchiveSource descriptor(int descriptor);
    static ArchiveSource memory(const QByteArray& bytes);
    ~ArchiveSource();
    ArchiveSource(ArchiveSource&& other) noexcept;
    ArchiveSource& operator=(ArchiveSource&& other) noexcept;
    Q_DISABLE_COPY(ArchiveSource)

    // Why it cannot be read; empty when it can.
    const QString& error() const { return m_error; }
    qint64 size() const { return m_size; }
    // From here on the bytes behind `size` are not there.
    void shorten(qint64 size) { m_size = size; }

    // The next bytes from `offset` on, at most `most`; they stay until the next call. Empty at the
    // end, nothing on failure.
    std::optional<QByteArrayView> read(qint64 offset, qint64 most);

private:
    ArchiveSource();
    void take(bool opened);

    std::unique_ptr<QFile> m_file; // or
    QByteArray m_bytes;            // all of them, or the last block of the file
    QString m_error;
    qint64 m_size = 0;
};
