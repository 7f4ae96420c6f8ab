#pragma once

#include <QObject>

#include <functional>

// What Return and Escape do on a page: they act wherever on the page the keyboard is, except that
// Return on a button is the button's own matter. A held key acts once, and what an input method is
// still composing is finished first. Owned by the page; GUI thread.
class PageKeys : public QObject
{
    Q_OBJECT

public:
    // Made after the page's widgets. Without onEscape the Escape key does nothing.
    PageKeys(QWidget* page, std::function<void()> onReturn, std::function<void()> onEscape = {});

    bool eventFilter(QObject* watched, QEvent* event) override;

    // Swallows the Return key's repetitions while it is held: the widget under it may have become
    // another one since it was pressed.
    static void takeReturnOnce(QWidget* widget);

private:
    QWidget* m_page;
    std::function<void()> m_onReturn;
    std::function<void()> m_onEscape;
    bool m_composing = false;
};
