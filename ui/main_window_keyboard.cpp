#include "ui/focus_reveal.h"
#include "ui/main_window.h"

#include <QComboBox>
#include <QKeyEvent>
#include <QLineEdit>
#include <QPushButton>
#include <QToolButton>

// Where the keyboard is when what it was on goes away.

// Whoever plays by the keyboard would be sent to the first button of the window. The keyboard waits
// next to PLAY instead, and unless it is moved from there it comes back.
void MainWindow::enablePlay(bool enabled)
{
    if (!enabled && m_playButton == focusWidget()) {
        m_launchSelector->setFocus();
        m_playAwaitsFocus = true;
    }
    m_playButton->setEnabled(enabled);
    if (enabled && m_playAwaitsFocus) {
        m_playAwaitsFocus = false;
        if (m_launchSelector == focusWidget())
            m_playButton->setFocus();
    }
}

// While the keyboard only waits on the launch selector, the keys are still meant for PLAY: a second
// Space does not open the list. A click on the selector, or a way there with the Tab key, is meant.
bool MainWindow::eventFilter(QObject* watched, QEvent* event)
{
    if (watched != m_launchSelector || !m_playAwaitsFocus)
        return QMainWindow::eventFilter(watched, event);
    if (event->type() == QEvent::KeyPress || event->type() == QEvent::KeyRelease) {
        const int key = static_cast<QKeyEvent*>(event)->key();
        return key == Qt::Key_Space || key == Qt::Key_Select;
    }
    if (event->type() == QEvent::MouseButtonPress)
        m_playAwaitsFocus = false;
    if (event->type() == QEvent::FocusOut) {
        const Qt::FocusReason reason = static_cast<QFocusEvent*>(event)->reason();
        if (reason != Qt::PopupFocusReason && reason != Qt::ActiveWindowFocusReason)
            m_playAwaitsFocus = false;
    }
    return false;
}

// After a sign-in or a sign-out, for a keyboard that was on what is hidden now. Who types elsewhere
// goes on typing there.
void MainWindow::placeKeyboard(const QWidget* before, bool signedIn)
{
    if (!before || !before->isHidden())
        return;
    if (signedIn)
        m_playButton->setFocus();
    else
        m_usernameField->setFocus();
}

bool MainWindow::focusNextPrevChild(bool next)
{
    const bool moved = QMainWindow::focusNextPrevChild(next);
    if (moved && focusWidget())
        focus_reveal::reveal(focusWidget());
    return moved;
}
