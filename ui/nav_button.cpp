#include "ui/nav_button.h"

#include <QStyleOptionToolButton>
#include <QStylePainter>

namespace {

constexpr int textMargin = 15; // the style sheet's padding and border

} // namespace

NavButton::NavButton(const QString& text, QWidget* parent) : QToolButton(parent)
{
    setObjectName(QStringLiteral("navButton"));
    setText(text);
    setCheckable(true);
    setToolButtonStyle(Qt::ToolButtonTextOnly);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

// The style centres the text in the button it is asked to draw. So the button is drawn bare, and
// over its left end a second one, just wide enough that the centred text starts at the margin. Its
// right end, where the two would differ, is clipped away.
void NavButton::paintEvent(QPaintEvent*)
{
    QStylePainter painter(this);
    QStyleOptionToolButton option;
    initStyleOption(&option);
    QStyleOptionToolButton bare = option;
    bare.text.clear();
    painter.drawComplexControl(QStyle::CC_ToolButton, bare);

    QFont shownFont = font();
    if (isChecked())
        shownFont.setWeight(QFont::DemiBold);
    const int textWidth = QFontMetrics(shownFont).horizontalAdvance(text());
    painter.setClipRect(0, 0, textMargin + textWidth, height());
    option.rect.setWidth(textWidth + 2 * textMargin);
    painter.drawComplexControl(QStyle::CC_ToolButton, option);
}
