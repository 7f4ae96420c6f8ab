#include "backend/data/data_directory.h"

#include "backend/base/outcome.h"
#include "backend/data/schema.h"

#include <QFileInfo>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// What root writes there, the server's own account could not read.
QString checkedOwner(const QString& directory)
{
    const QFileInfo info(directory);
    if (::geteuid() == 0 && info.exists() && info.ownerId() != 0)
        throw Fault(u"%1 belongs to %2: run this as that user (runuser -u %2 -- ...)"_s.arg(
            directory, info.owner()));
    return directory;
}

} // namespace

DataDirectory::DataDirectory(const DataLocation& location)
    : m_store(checkedOwner(location.directory))
    , m_database(location.database.isEmpty() ? databaseFile(location.directory) : location.database)
{
    m_database.migrate(schema::migrations());
}

QString DataDirectory::databaseFile(const QString& directory)
{
    return directory + "/tessellan.sqlite"_L1;
}
