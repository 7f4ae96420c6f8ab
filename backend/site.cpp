#include "backend/site.h"

using namespace Qt::StringLiterals;

Site::Site(const QString& directory)
    : m_store(directory), m_database(directory + u"/tessellan.sqlite"_s)
{
    m_database.migrate();
}
