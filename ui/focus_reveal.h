#pragma once

class QWidget;

// Keyboard users see where they are: whenever the focus arrives at a widget inside of `scope`,
// wherever it comes from, every scroll area around the widget scrolls to it. A click does not move
// what lies under the pointer. GUI thread.
namespace focus_reveal {

void watch(QWidget* scope);
// At once; for a window that may not be the active one.
void reveal(QWidget* widget);

} // namespace focus_reveal
