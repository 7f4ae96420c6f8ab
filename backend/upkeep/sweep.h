#pragma once

class Database;
class Store;

// Removes what nobody can reach any more: expired sessions, files that nothing refers to (replaced
// skins, withdrawn versions, what a crash left behind), scratch files.
namespace sweep {

struct Swept
{
    int sessions = 0;
    int files = 0;
};

Swept run(Database& database, const Store& store);

} // namespace sweep
