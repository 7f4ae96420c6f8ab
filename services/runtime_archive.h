#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <functional>

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

    // In place of an old one, in slices until `cancelled` says otherwise; false when not all of it
    // was written, and then nothing is there.
    bool write(const QByteArray& body, const std::function<bool()>& cancelled);
    // Another descriptor for what was written, for the caller to close.
    int descriptor() const;
    // Unless another one has taken its name.
    void remove() const;

private:
    bool create();
    bool writeAll(QByteArrayView body, const std::function<bool()>& cancelled) const;

    QString m_path;
    int m_descriptor = -1;
};
