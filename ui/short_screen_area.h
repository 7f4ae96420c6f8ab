#pragma once

#include <QScrollArea>

// Shows all of its content, which has a layout; only where the screen is too short for that and for
// the area's siblings, shown or not, it scrolls. Owned by the window; GUI thread.
class ShortScreenArea : public QScrollArea
{
    Q_OBJECT

public:
    ShortScreenArea(QWidget* content, QWidget* parent);

    QSize minimumSizeHint() const override;

protected:
    bool event(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void resizeContent();
};
