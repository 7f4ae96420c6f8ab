#pragma once

#include <QStringList>

// The tables, as the steps that lead to them. Step n brings a database of version n to n + 1; a
// step that has shipped is never changed. Written in the SQL that SQLite and PostgreSQL share.
namespace schema {

QList<QStringList> migrations();

} // namespace schema
