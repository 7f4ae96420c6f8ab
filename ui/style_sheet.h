#pragma once

#include <QString>

// The whole look of the launcher: one style sheet for the application. The pages rely on the
// object names it targets: "playButton", "sidebar", "navButton" and "status".
QString launcherStyleSheet();
