#include "versions/file_digests.h"

#include "services/sha256.h"
#include "services/slices.h"

#include <QFile>

#include <fcntl.h>
#include <unistd.h>

namespace {

class OpenFile
{
public:
    // Opening waits for nobody: a named pipe may stand there.
    explicit OpenFile(const QString& path)
        : m_descriptor(open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))
    {
    }
    ~OpenFile()
    {
        if (m_descriptor >= 0)
            close(m_descriptor);
    }
    Q_DISABLE_COPY_MOVE(OpenFile)

    std::optional<FileStamp> stamp() const { return FileStamp::of(m_descriptor); }

    FileDigests::Reading read(const FileStamp& stamp, const std::stop_token& stop) const
    {
        // Asked before the reading: what is read first could change until the end of it.
        const bool settled = stamp.isSettled();
        const QString sha256 = Sha256::ofFile(m_descriptor, stop);
        const bool stable = FileStamp::of(m_descriptor) == stamp;
        return {sha256, stable ? std::optional(stamp) : std::nullopt, stable && settled};
    }

private:
    int m_descriptor;
};

} // namespace

FileDigests::Reading FileDigests::read(const QString& path, const std::stop_token& stop)
{
    const OpenFile file(path);
    const auto stamp = file.stamp();
    if (!stamp)
        return {};
    const auto known = m_known.constFind(path);
    if (known != m_known.cend() && known->stamp == stamp)
        return *known;
    Reading reading = file.read(*stamp, stop);
    if (reading.isLasting)
        insert(path, reading);
    return reading;
}

std::optional<QString> FileDigests::find(const QString& path)
{
    const auto stamp = OpenFile(path).stamp();
    if (!stamp)
        return QString();
    const auto known = m_known.constFind(path);
    if (known != m_known.cend() && known->stamp == stamp)
        return known->sha256;
    return stamp->size <= sliceBytes ? std::optional(read(path).sha256) : std::nullopt;
}

void FileDigests::insert(const QString& path, const Reading& reading)
{
    if (reading.stamp && !reading.sha256.isEmpty())
        m_known.insert(path, reading);
}

void FileDigests::forgetFleeting()
{
    m_known.removeIf([](const auto& known) { return !known.value().isLasting; });
}
