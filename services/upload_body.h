#pragma once

#include <QFile>
#include <QIODevice>
#include <QString>

#include <memory>

// A file on its way to a server: read as it is sent, and exactly as long as it was when it was
// opened, for that length has been announced. Owned by the reply it is sent with; GUI thread.
class UploadBody : public QIODevice
{
    Q_OBJECT

public:
    // Null for what is no regular file, or cannot be opened. A pipe would stop the window until
    // somebody writes into it.
    static std::unique_ptr<UploadBody> open(const QString& path);

    // What to show when a file cannot be read.
    static QString errorText();

    qint64 size() const override { return m_size; }
    bool seek(qint64 position) override;

Q_SIGNALS:
    // The file became shorter, or cannot be read any more: the request cannot be completed.
    void broke();

protected:
    qint64 readData(char* data, qint64 maxSize) override;
    qint64 writeData(const char* data, qint64 maxSize) override;

private:
    explicit UploadBody(const QString& path);

    QFile m_file;
    qint64 m_size = 0;
};
