#include "backend/data/schema.h"

using namespace Qt::StringLiterals;

namespace schema {

QList<QStringList> migrations()
{
    const QStringList first = {
        // Content-addressed: the bytes lie in the file store under this digest.
        u"CREATE TABLE files ("
        " sha256 TEXT PRIMARY KEY,"
        " size BIGINT NOT NULL)"_s,
        // name_key is the name in lower case: names are unique whatever their case.
        u"CREATE TABLE accounts ("
        " uuid TEXT PRIMARY KEY,"
        " name TEXT NOT NULL,"
        " name_key TEXT NOT NULL UNIQUE,"
        " password_hash TEXT NOT NULL,"
        " disabled INTEGER NOT NULL DEFAULT 0,"
        " created BIGINT NOT NULL,"
        " skin TEXT REFERENCES files(sha256),"
        " model TEXT REFERENCES files(sha256))"_s,
        u"CREATE TABLE sessions ("
        " token_hash TEXT PRIMARY KEY,"
        " account TEXT NOT NULL REFERENCES accounts(uuid) ON DELETE CASCADE,"
        " last_used BIGINT NOT NULL)"_s,
        u"CREATE INDEX sessions_by_account ON sessions(account)"_s,
        u"CREATE TABLE versions ("
        " id TEXT PRIMARY KEY,"
        " file TEXT NOT NULL REFERENCES files(sha256),"
        " released TEXT NOT NULL,"
        " position BIGINT NOT NULL)"_s,
        u"CREATE TABLE news ("
        " position BIGINT PRIMARY KEY,"
        " title TEXT NOT NULL,"
        " date TEXT NOT NULL,"
        " body TEXT NOT NULL)"_s,
        u"CREATE TABLE launchers ("
        " platform TEXT PRIMARY KEY,"
        " version TEXT NOT NULL,"
        " file TEXT NOT NULL REFERENCES files(sha256))"_s,
        u"CREATE TABLE runtimes ("
        " platform TEXT PRIMARY KEY,"
        " file TEXT NOT NULL REFERENCES files(sha256))"_s,
        // One counter, raised by everything that changes the manifest.
        u"CREATE TABLE catalogue (revision BIGINT NOT NULL)"_s,
        u"INSERT INTO catalogue (revision) VALUES (0)"_s,
    };
    const QStringList second = {
        // What an account did of what it may do so often within some time: see Allowance.
        u"CREATE TABLE spendings ("
        " account TEXT NOT NULL REFERENCES accounts(uuid) ON DELETE CASCADE,"
        " what TEXT NOT NULL,"
        " spent_at BIGINT NOT NULL,"
        " amount BIGINT NOT NULL)"_s,
        u"CREATE INDEX spendings_by_account ON spendings(account, what, spent_at)"_s,
        // Names that accounts gave up, and since when.
        u"CREATE TABLE former_names ("
        " name_key TEXT PRIMARY KEY,"
        " account TEXT NOT NULL REFERENCES accounts(uuid) ON DELETE CASCADE,"
        " since BIGINT NOT NULL)"_s,
        // Whether something refers to a file is asked at every upload.
        u"CREATE INDEX accounts_by_skin ON accounts(skin)"_s,
        u"CREATE INDEX accounts_by_model ON accounts(model)"_s,
        u"CREATE INDEX versions_by_file ON versions(file)"_s,
    };
    const QStringList third = {
        // What the clock said at the last sweep. Nothing: there was none, and nobody was here.
        u"CREATE TABLE clock (seen BIGINT)"_s,
        u"INSERT INTO clock (seen) SELECT MAX(last_used) FROM sessions"_s,
    };
    return {first, second, third};
}

} // namespace schema
