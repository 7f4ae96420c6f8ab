#pragma once

class Database;
class Store;

// Removes what nobody can reach any more: expired sessions, former names that are free again, what
// counts no more against an account, scratch files, and files that nothing refers to: withdrawn and
// replaced versions and builds, what a crash left behind. A replaced look goes at once; one of them
// is left here only when it was replaced while a check or a backup kept all files, or the database
// did not answer. A clock that jumps ahead is followed by a day at each sweep. Any
// thread; waits for the store as long as it takes. Throws Fault.
namespace sweep {

struct Swept
{
    int sessions = 0;
    int files = 0;
};

Swept run(Database& database, const Store& store);

} // namespace sweep
