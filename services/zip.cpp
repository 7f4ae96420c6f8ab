#include "services/zip.h"

#include "services/tree_removal.h"

#include <QFile>
#include <QSet>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

using Kind = ArchiveReader::Kind;

constexpr int ownerReadsAndWrites = 0600;

QByteArray workName()
{
    return archive_limits::launcherWorkName.toByteArray();
}

// Where the file or link that is being made stands until it is whole.
QByteArrayList workSteps()
{
    return {workName(), "entry"};
}

bool copyData(ArchiveReader& reader, TreeWriter& writer)
{
    auto data = reader.block();
    while (data && !data->isEmpty()) {
        if (!writer.write(*data))
            return false;
        data = reader.block();
    }
    return data.has_value();
}

bool unpack(ArchiveReader& reader, TreeWriter& writer)
{
    switch (reader.kind()) {
    case Kind::Directory:
        return writer.makeDirectory(reader.steps(), reader.mode()) && reader.skim();
    case Kind::Link:
        return writer.makeLink(reader.steps(), reader.target()) && reader.skim();
    case Kind::File:
        break;
    }
    return writer.beginFile(reader.steps(), reader.mode()) && copyData(reader, writer) &&
           writer.endFile();
}

// The place of each top-level entry is cleared when the archive first names it.
class TopLevel
{
public:
    explicit TopLevel(const QString& destination) : m_destination(QFile::encodeName(destination)) {}

    bool clear(const QByteArray& name, const zip::Cancelled& cancelled)
    {
        if (m_names.contains(name))
            return true;
        m_names.insert(name);
        return removeTree(m_destination + '/' + name, cancelled);
    }
    QStringList names() const
    {
        QStringList names;
        for (const QByteArray& name : m_names)
            names.append(QFile::decodeName(name));
        return names;
    }

private:
    QByteArray m_destination;
    QSet<QByteArray> m_names;
};

} // namespace

namespace zip {

std::optional<QStringList> extract(ArchiveSource source, const QString& destination,
                                   const Cancelled& cancelled, const ArchiveLimits& limits)
{
    TreeWriter writer(destination);
    ArchiveReader reader(std::move(source), ArchiveReader::Format::Zip, limits, cancelled);
    TopLevel topLevel(destination);
    while (writer.isOpen() && reader.next()) {
        if (!topLevel.clear(reader.steps().first(), cancelled) || !unpack(reader, writer))
            return {};
    }
    if (!writer.isOpen() || !reader.fault().isEmpty() || !writer.closeDirectories(cancelled))
        return {};
    return topLevel.names();
}

UnpackingOver::UnpackingOver(const QString& name, const QByteArray& archive,
                             const QString& destination)
    : m_name(name.toUtf8())
    , m_workPath(QFile::encodeName(destination) + '/' + workName())
    , m_writer(destination)
    , m_reader(ArchiveSource::memory(archive), ArchiveReader::Format::Zip, archive_limits::launcher)
{
    // One that was killed on its way may have left it.
    if (!m_writer.isOpen() || !removeTree(m_workPath))
        m_state = State::Failed;
}

UnpackingOver::~UnpackingOver()
{
    if (m_writer.isOpen())
        removeTree(m_workPath);
}

UnpackingOver::State UnpackingOver::step()
{
    if (m_state != State::Working)
        return m_state;
    if (!m_inEntry) {
        if (!m_reader.next()) {
            if (!m_reader.fault().isEmpty() || !removeTree(m_workPath))
                return fail();
            return m_state = State::Done;
        }
        m_inEntry = begin();
        return m_inEntry ? m_state : fail();
    }
    const auto block = m_reader.block();
    if (!block)
        return fail();
    m_inEntry = !block->isEmpty();
    return (m_inEntry ? take(*block) : finish()) ? m_state : fail();
}

UnpackingOver::State UnpackingOver::fail()
{
    m_kept.reset();
    return m_state = State::Failed;
}

bool UnpackingOver::begin()
{
    const QByteArrayList& steps = m_reader.steps();
    m_isKept =
        m_reader.kind() == Kind::File && steps.size() == 1 &&
        QString::fromUtf8(steps.first()).compare(QString::fromUtf8(m_name), Qt::CaseInsensitive) ==
            0;
    if (m_isKept)
        m_kept.emplace();
    else if (m_reader.kind() == Kind::File)
        return m_writer.makeDirectory({workName()}, 0700) &&
               m_writer.beginFile(workSteps(), m_reader.mode() | ownerReadsAndWrites);
    else if (m_reader.kind() == Kind::Directory)
        return m_writer.makeDirectory(steps, m_reader.mode() | 0700);
    return true;
}

bool UnpackingOver::take(QByteArrayView block)
{
    if (m_isKept && m_kept)
        m_kept->append(block);
    return m_isKept || m_reader.kind() != Kind::File || m_writer.write(block);
}

// A program that uses the old file keeps it, and so does a full disk.
bool UnpackingOver::finish()
{
    if (m_isKept || m_reader.kind() == Kind::Directory)
        return true;
    if (m_reader.kind() == Kind::File)
        return m_writer.endFile(TreeWriter::Sync::Yes) &&
               m_writer.move(workSteps(), m_reader.steps());
    return m_writer.makeDirectory({workName()}, 0700) &&
           m_writer.makeLink(workSteps(), m_reader.target()) &&
           m_writer.move(workSteps(), m_reader.steps());
}

} // namespace zip
