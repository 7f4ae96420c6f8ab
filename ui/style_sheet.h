#pragma once

#include <QString>

// The whole look of the launcher: one style sheet for the application. The pages rely on the
// object names it targets: "playButton", "sidebar", "navButton" and "status".
QString launcherStyleSheet();

// The main window's own, on top of the launcher's, for what that one leaves open: it shows which
// button, list or text view has the keyboard focus; takes away the patches behind the sidebar's
// text and the scroll bars; makes room for two buttons side by side in the sidebar; keeps the
// launch selector 200 wide, which the launcher's min-width would beat; and draws the arrows that Qt
// drops from restyled combo and spin boxes, as wedges of a gradient, since the program carries no
// image but its icon.
QString windowStyleSheet();
