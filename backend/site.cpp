#include "backend/site.h"

#include "backend/outcome.h"
#include "backend/schema.h"

#include <QFileInfo>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// What root writes there, the server's own account could not read.
const QString& checkedOwner(const QString& directory)
{
    const QFileInfo info(directory);
    if (::geteuid() == 0 && info.exists() && info.ownerId() != 0)
        throw Fault(u"%1 belongs to %2: run this as that user (runuser -u %2 -- ...)"_s.arg(
            directory, info.owner()));
    return directory;
}

} // namespace

Site::Site(const SiteLocation& location)
    : m_store(checkedOwner(location.directory))
    , m_database(location.database.isEmpty() ? databaseFile(location.directory) : location.database)
{
    m_database.migrate(schema::migrations());
}

QString Site::databaseFile(const QString& directory)
{
    return directory + "/tessellan.sqlite"_L1;
}
