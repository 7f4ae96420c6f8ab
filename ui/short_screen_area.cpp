#include "ui/short_screen_area.h"

#include <QEvent>
#include <QLayout>
#include <QScreen>

// A resizable widget would be given its preferred height, and scroll where it could give way.
ShortScreenArea::ShortScreenArea(QWidget* content, QWidget* parent) : QScrollArea(parent)
{
    setFrameShape(QFrame::NoFrame);
    setFocusPolicy(Qt::NoFocus); // the widgets inside take it, and are scrolled to
    setWidget(content);
}

QSize ShortScreenArea::minimumSizeHint() const
{
    QSize room = screen()->availableSize();
    for (const QObject* child : parent()->children()) {
        const auto* sibling = qobject_cast<const QWidget*>(child);
        if (sibling && sibling != this)
            room.rheight() -= qMax(sibling->minimumSizeHint().height(), sibling->minimumHeight());
    }
    return widget()->minimumSizeHint().boundedTo(room).expandedTo({0, 0});
}

bool ShortScreenArea::event(QEvent* event)
{
    if (event->type() == QEvent::LayoutRequest) {
        updateGeometry();
        resizeContent();
    }
    return QScrollArea::event(event);
}

void ShortScreenArea::resizeEvent(QResizeEvent* event)
{
    QScrollArea::resizeEvent(event);
    resizeContent();
}

void ShortScreenArea::resizeContent()
{
    widget()->resize(viewport()->size().expandedTo(widget()->layout()->totalMinimumSize()));
}
