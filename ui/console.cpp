#include "ui/console.h"

#include "ui/foreign_text.h"

#include <QPaintEvent>
#include <QPainter>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextCursor>

#include <utility>

namespace {

constexpr int maxLines = 5000;
constexpr int withinCorners = 2;

} // namespace

Console::Console(QWidget* parent) : QPlainTextEdit(parent)
{
    setReadOnly(true);
    setMaximumBlockCount(maxLines);
    // Looking for the words of a line costs the square of its length: a game that prints megabytes
    // without a blank would freeze the window.
    setWordWrapMode(QTextOption::WrapAnywhere);
    // The text stands on a ground of its own within the rounded corners, so that nothing behind it
    // is painted again with every line.
    viewport()->setAttribute(Qt::WA_OpaquePaintEvent);
    setViewportMargins(withinCorners, withinCorners, withinCorners, withinCorners);
    document()->setDocumentMargin(document()->documentMargin() - withinCorners);
}

void Console::paintEvent(QPaintEvent* event)
{
    QPainter(viewport()).fillRect(event->rect(), palette().base());
    QPlainTextEdit::paintEvent(event);
}

// The first lines come before the window has made room for the console.
void Console::resizeEvent(QResizeEvent* event)
{
    const bool atEnd = verticalScrollBar()->value() == m_end;
    QPlainTextEdit::resizeEvent(event);
    if (atEnd)
        go({true, 0, 0});
}

// What the lines to come push out at once is never laid out. A pipe holds 32,000 short lines.
void Console::addLine(const QString& line, qsizetype linesToCome)
{
    if (linesToCome < maxLines)
        m_coming.append(line);
    if (linesToCome == 0)
        write(std::exchange(m_coming, {}));
}

// What a change costs is the view of it, not the text: a line of its own costs twenty times what it
// costs among others. The document's own maximum lays out each block that it drops, and when it
// drops several the reader loses the place.
void Console::write(const QStringList& lines)
{
    Place kept = place();
    const int dropped = blockCount() + static_cast<int>(lines.size()) - maxLines;
    if (dropped > 0) {
        dropFirst(dropped);
        kept = {kept.atEnd, qMax(kept.block - dropped, 0), kept.block < dropped ? 0 : kept.line};
    }
    QTextCursor change(document());
    change.beginEditBlock();
    for (const QString& line : lines)
        foreign_text::appendTo(this, line);
    change.endEditBlock();
    go(kept);
}

Console::Place Console::place() const
{
    const QRectF last = blockBoundingGeometry(document()->lastBlock()).translated(contentOffset());
    const QTextBlock first = firstVisibleBlock();
    return {last.bottom() <= viewport()->rect().bottom(), first.blockNumber(),
            verticalScrollBar()->value() - first.firstLineNumber()};
}

void Console::go(const Place& place)
{
    QScrollBar* bar = verticalScrollBar();
    const QTextBlock first = document()->findBlockByNumber(place.block);
    bar->setValue(place.atEnd ? bar->maximum() : first.firstLineNumber() + place.line);
    m_end = place.atEnd ? bar->value() : -1;
}

void Console::dropFirst(int blocks)
{
    QTextCursor first(document());
    first.beginEditBlock(); // outside of one every step lays out its line
    const QTextBlock kept = document()->findBlockByNumber(blocks);
    first.setPosition(kept.isValid() ? kept.position() : document()->characterCount() - 1,
                      QTextCursor::KeepAnchor);
    first.removeSelectedText();
    first.endEditBlock();
}
