#pragma once

#include <QByteArray>
#include <QString>

// The downloaded archive while a worker needs it. Another download may put its own under the same
// name at any time, in this process or another one: each has a file of its own, is read through the
// descriptor it was written with, and takes only its own away. Any thread, one at a time.
class RuntimeArchive
{
public:
    explicit RuntimeArchive(const QString& path) : m_path(path) {}
    // Closes it; it stays where it is.
    ~RuntimeArchive();
    RuntimeArchive(RuntimeArchive&& other) noexcept;
    Q_DISABLE_COPY(RuntimeArchive)
    RuntimeArchive& operator=(RuntimeArchive&&) = delete;

    // In place of an old one; false when not all of it was written, and then nothing is there.
    bool write(const QByteArray& body);
    // Another descriptor for what was written, for the caller to close.
    int descriptor() const;
    // Unless another one has taken its name.
    void remove() const;

private:
    bool create();
    bool writeAll(const QByteArray& body) const;

    QString m_path;
    int m_descriptor = -1;
};
