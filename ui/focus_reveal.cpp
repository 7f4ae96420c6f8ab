#include "ui/focus_reveal.h"

#include <QApplication>
#include <QScrollArea>

// From the inside out: the outer area can only then know where the widget is.
void focus_reveal::reveal(QWidget* widget)
{
    for (QWidget* parent = widget->parentWidget(); parent; parent = parent->parentWidget()) {
        if (auto* area = qobject_cast<QScrollArea*>(parent))
            area->ensureWidgetVisible(widget);
    }
}

void focus_reveal::watch(QWidget* scope)
{
    QObject::connect(qApp, &QApplication::focusChanged, scope, [scope](QWidget*, QWidget* now) {
        if (now && scope->isAncestorOf(now) && QApplication::mouseButtons() == Qt::NoButton)
            reveal(now);
    });
}
