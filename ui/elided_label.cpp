#include "ui/elided_label.h"

#include <QHelpEvent>
#include <QStyle>
#include <QStylePainter>
#include <QToolTip>

namespace {

// A server decides how long a text is. No line is this wide and no tool tip this big; measuring
// more than that at every paint would cost the player's time.
constexpr qsizetype maxLineChars = 1000;
constexpr qsizetype maxToolTipChars = 4000;

// Tool tips guess their format and wrap rich text only: escaped, the text stays literal and wraps.
QString toolTipHtml(const QString& text)
{
    return QStringLiteral("<p>%1</p>").arg(text.left(maxToolTipChars).toHtmlEscaped());
}

} // namespace

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
}

QString ElidedLabel::shownText() const
{
    const QString line = text().left(maxLineChars).simplified();
    return fontMetrics().elidedText(line, Qt::ElideRight, contentsRect().width());
}

bool ElidedLabel::event(QEvent* event)
{
    if (event->type() != QEvent::ToolTip)
        return QLabel::event(event);
    // Nothing to add when the whole text can be read already.
    if (shownText() == text())
        QToolTip::hideText();
    else
        QToolTip::showText(static_cast<QHelpEvent*>(event)->globalPos(), toolTipHtml(text()), this);
    return true;
}

void ElidedLabel::paintEvent(QPaintEvent*)
{
    QStylePainter painter(this);
    painter.drawItemText(contentsRect(), Qt::AlignLeft | Qt::AlignVCenter, palette(), isEnabled(),
                         shownText(), foregroundRole());
}
