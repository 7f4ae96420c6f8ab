#include "services/upload_body.h"

#include <QFileInfo>

#include <algorithm>

using namespace Qt::StringLiterals;

UploadBody::UploadBody(const QString& path) : m_file(path) {}

std::unique_ptr<UploadBody> UploadBody::open(const QString& path)
{
    std::unique_ptr<UploadBody> body(new UploadBody(path));
    if (!QFileInfo(path).isFile() ||
        !body->m_file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return nullptr;
    body->m_size = body->m_file.size();
    body->setOpenMode(QIODevice::ReadOnly | QIODevice::Unbuffered);
    return body;
}

QString UploadBody::errorText()
{
    return u"Cannot read file."_s;
}

// The network layer starts anew when a kept-alive connection turns out to be closed.
bool UploadBody::seek(qint64 position)
{
    return QIODevice::seek(position) && m_file.seek(position);
}

qint64 UploadBody::readData(char* data, qint64 maxSize)
{
    const qint64 wanted = std::min(maxSize, m_size - m_file.pos());
    if (wanted <= 0)
        return maxSize > 0 ? -1 : 0;
    const qint64 count = m_file.read(data, wanted);
    if (count > 0)
        return count;
    // The network layer gives up when a body ends before its announced length.
    Q_EMIT broke();
    return -1;
}

qint64 UploadBody::writeData(const char* /*data*/, qint64 /*maxSize*/)
{
    return -1;
}
