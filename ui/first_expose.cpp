#include "ui/first_expose.h"

#include <QEvent>
#include <QTimer>
#include <QWidget>
#include <QWindow>

#include <chrono>
#include <utility>

using namespace std::chrono_literals;

FirstExpose::FirstExpose(QWidget* window, std::function<void()> then)
    : QObject(window), m_then(std::move(then))
{
    window->windowHandle()->installEventFilter(this);
    QTimer::singleShot(1s, this, &FirstExpose::end);
}

// After this event's own work, which is to draw the window.
bool FirstExpose::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::Expose)
        QTimer::singleShot(0, this, &FirstExpose::end);
    return QObject::eventFilter(watched, event);
}

void FirstExpose::end()
{
    if (!m_then)
        return;
    std::exchange(m_then, {})();
    deleteLater();
}
