#pragma once

class QString;

// Moves the whole process into a temporary home: settings, data, cache and temporary files land
// there and vanish with the process. Call enter() in the test class's static initMain(), before
// the application object exists.
namespace throwaway_home {

void enter();
// Removes the launcher's settings file and everything in the data directory. A QSettings that is
// already open notices at its next sync.
void clear();
QString path();
// Where the launcher keeps its settings.
QString settingsFile();

} // namespace throwaway_home
