#include "ui/elided_label.h"

#include "ui/foreign_text.h"

#include <QHelpEvent>
#include <QStyle>
#include <QStylePainter>
#include <QToolTip>

ElidedLabel::ElidedLabel(QWidget* parent) : QLabel(parent)
{
    setTextFormat(Qt::PlainText);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
}

QSize ElidedLabel::sizeHint() const
{
    const QMargins margins = contentsMargins();
    return {0, fontMetrics().height() + margins.top() + margins.bottom()};
}

QSize ElidedLabel::minimumSizeHint() const
{
    return sizeHint();
}

void ElidedLabel::showText(const QString& text)
{
    setText(text);
    setToolTip(text);
    setAccessibleDescription(foreign_text::spoken(text));
}

QString ElidedLabel::shownText() const
{
    const QString line = foreign_text::line(text()).simplified();
    return fontMetrics().elidedText(line, Qt::ElideMiddle, contentsRect().width());
}

bool ElidedLabel::event(QEvent* event)
{
    if (event->type() != QEvent::ToolTip)
        return QLabel::event(event);
    // Nothing to add when the whole text can be read already.
    if (shownText() == text())
        QToolTip::hideText();
    else
        QToolTip::showText(static_cast<QHelpEvent*>(event)->globalPos(),
                           foreign_text::toolTipHtml(text()), this);
    return true;
}

void ElidedLabel::paintEvent(QPaintEvent*)
{
    QStylePainter painter(this);
    painter.drawItemText(contentsRect(), Qt::AlignLeft | Qt::AlignVCenter, palette(), isEnabled(),
                         shownText(), foregroundRole());
}
