#pragma once

#include <QObject>

#include <functional>

class QWidget;

// Calls `then` once a window that is being shown is on the screen, or after a second when it stays
// hidden behind others, and is gone with that. Owned by the window; GUI thread.
class FirstExpose : public QObject
{
    Q_OBJECT

public:
    FirstExpose(QWidget* window, std::function<void()> then);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void end();

    std::function<void()> m_then;
};
