#include "backend/site.h"

#include "backend/schema.h"

using namespace Qt::StringLiterals;

Site::Site(const SiteLocation& location)
    : m_store(location.directory)
    , m_database(location.database.isEmpty() ? databaseFile(location.directory) : location.database)
{
    m_database.migrate(schema::migrations());
}

QString Site::databaseFile(const QString& directory)
{
    return directory + "/tessellan.sqlite"_L1;
}
