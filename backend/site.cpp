#include "backend/site.h"

using namespace Qt::StringLiterals;

Site::Site(const QString& directory, const QString& databaseUrl)
    : m_store(directory)
    , m_database(databaseUrl.isEmpty() ? QString(directory + u"/tessellan.sqlite"_s) : databaseUrl)
{
    m_database.migrate();
}
