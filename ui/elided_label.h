#pragma once

#include <QLabel>

// One line of text that gives way: it asks for no width, shows an ellipsis where its text does not
// fit, and then offers the whole text as a tool tip. For texts that come from outside and may be of
// any length; always plain text. text() is the whole text. Owned by its layout's widget; GUI
// thread.
class ElidedLabel : public QLabel
{
    Q_OBJECT

public:
    explicit ElidedLabel(QWidget* parent = nullptr);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

    // Sets the text, and the tool tip to the same.
    void showText(const QString& text);

protected:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    QString shownText() const;
};
