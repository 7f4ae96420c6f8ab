#include "ui/nav_button.h"

#include <QAccessibleWidget>
#include <QStyleOptionToolButton>
#include <QStylePainter>

namespace {

constexpr int textMargin = 15; // the style sheet's padding and border

// A checkable button offers assistive technology to be checked, which is not a click and leads
// nowhere. Here it is clicked.
class AccessibleNavButton : public QAccessibleWidget
{
public:
    explicit AccessibleNavButton(NavButton* button)
        : QAccessibleWidget(button, QAccessible::CheckBox, button->text()), m_button(button)
    {
    }
    QAccessible::State state() const override
    {
        QAccessible::State state = QAccessibleWidget::state();
        state.checkable = true;
        state.checked = m_button->isChecked();
        return state;
    }
    QStringList actionNames() const override
    {
        QStringList names = QAccessibleWidget::actionNames();
        if (m_button->isEnabled())
            names.prepend(pressAction());
        return names;
    }
    void doAction(const QString& name) override
    {
        if (name == pressAction())
            m_button->click();
        else
            QAccessibleWidget::doAction(name);
    }

private:
    NavButton* m_button;
};

QAccessibleInterface* makeAccessible(const QString&, QObject* object)
{
    auto* button = qobject_cast<NavButton*>(object);
    return button ? new AccessibleNavButton(button) : nullptr;
}

} // namespace

NavButton::NavButton(const QString& text, QWidget* parent) : QToolButton(parent)
{
    setObjectName(QStringLiteral("navButton"));
    setText(text); // own words
    setCheckable(true);
    setToolButtonStyle(Qt::ToolButtonTextOnly);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    // Once, whoever makes the first button; it is never taken back.
    [[maybe_unused]] static const bool installed =
        (QAccessible::installFactory(&makeAccessible), true);
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
