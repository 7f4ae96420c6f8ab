#pragma once

#include <QByteArray>

class Database;
class Store;

// Files of the store that nothing in the database refers to. Any thread.
namespace unused_files {

// Drops their entries; the files are left. Only under StoreLock Alone.
void forgetAll(Database& database);
// Removes a file, entry and content, at once, unless something refers to it; whether it did. Does
// nothing while somebody keeps all files or adds that very content: what is left then is the
// sweep's. Waits for two seconds and for the database. Throws Fault when that refuses.
bool remove(Database& database, const Store& store, const QByteArray& sha256);

} // namespace unused_files
