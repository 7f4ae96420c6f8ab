#pragma once

#include <QPlainTextEdit>
#include <QStringList>

// What the game prints: read only, a block for each line, the newest 5,000 of them. It follows the
// end while the end is in view; a reader who has scrolled up keeps what is before the eyes. Owned
// by the main window; GUI thread.
class Console : public QPlainTextEdit
{
public:
    explicit Console(QWidget* parent);

    // Lines that come at once are one change of the text. linesToCome says how many more of them
    // follow before the event loop turns again; with the last one all are there.
    void addLine(const QString& line, qsizetype linesToCome);

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    // What the view shows: its end, or from a line of a block on.
    struct Place
    {
        bool atEnd;
        int block;
        int line;
    };

    Place place() const;
    void go(const Place& place);
    void dropFirst(int blocks);
    void write(const QStringList& lines);

    QStringList m_coming;
    int m_end = 0; // the scroll bar's value when the view was last put at the end
};
