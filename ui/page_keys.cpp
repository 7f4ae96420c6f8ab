#include "ui/page_keys.h"

#include <QAbstractButton>
#include <QInputMethodEvent>
#include <QKeyEvent>
#include <QWidget>

#include <utility>

namespace {

bool isReturn(const QKeyEvent& event)
{
    return event.key() == Qt::Key_Return || event.key() == Qt::Key_Enter;
}

class ReturnOnce : public QObject
{
public:
    using QObject::QObject;
    bool eventFilter(QObject*, QEvent* event) override
    {
        if (event->type() != QEvent::KeyPress)
            return false;
        const auto* key = static_cast<QKeyEvent*>(event);
        return isReturn(*key) && key->isAutoRepeat();
    }
};

} // namespace

// The page is handed the keys that its widgets leave to it: a field after it has taken in what was
// typed, a combo box unless its list is open.
PageKeys::PageKeys(QWidget* page, std::function<void()> onReturn, std::function<void()> onEscape)
    : QObject(page), m_page(page), m_onReturn(std::move(onReturn)), m_onEscape(std::move(onEscape))
{
    page->installEventFilter(this);
    for (QWidget* widget : page->findChildren<QWidget*>())
        widget->installEventFilter(this);
}

void PageKeys::takeReturnOnce(QWidget* widget)
{
    widget->installEventFilter(new ReturnOnce(widget));
}

bool PageKeys::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::InputMethod)
        m_composing = !static_cast<QInputMethodEvent*>(event)->preeditString().isEmpty();
    if (event->type() != QEvent::KeyPress || watched != m_page)
        return false;
    const auto* key = static_cast<QKeyEvent*>(event);
    const bool plain = !(key->modifiers() & ~Qt::KeypadModifier);
    const bool escapes = key->key() == Qt::Key_Escape && m_onEscape;
    const bool onButton = qobject_cast<QAbstractButton*>(m_page->focusWidget());
    if (!plain || (!escapes && (!isReturn(*key) || onButton)))
        return false;
    if (!key->isAutoRepeat() && !m_composing)
        escapes ? m_onEscape() : m_onReturn();
    return true;
}
