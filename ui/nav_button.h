#pragma once

#include <QToolButton>

// A button of the sidebar's navigation: as wide as the sidebar, checkable, its text at the left
// edge. A tool button centres its text whatever the style sheet says. Pressed through the
// accessibility bus, it is clicked. Owned by the sidebar; GUI
// thread.
class NavButton : public QToolButton
{
    Q_OBJECT

public:
    NavButton(const QString& text, QWidget* parent);

protected:
    void paintEvent(QPaintEvent* event) override;
};
