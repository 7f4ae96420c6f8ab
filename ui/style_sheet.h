#pragma once

#include <QString>

// The whole look of the launcher: one style sheet for the application. The pages rely on the
// object names it targets: "playButton", "sidebar", "navButton" and "status".
QString launcherStyleSheet();

// The main window's own, on top of the launcher's. It shows which button, list or text view has the
// keyboard focus, which the launcher's rules do for input fields only; makes room for two buttons
// side by side in the sidebar; and gives the launch selector its minimum width of 200, which the
// launcher's min-width would beat.
QString windowStyleSheet();
