#include "ui/foreign_text.h"

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QTextBoundaryFinder>
#include <QTextBrowser>
#include <QTextCursor>
#include <QVariant>

using namespace Qt::StringLiterals;

namespace {

// Every bound is far above what anybody writes in such a place, and far below what costs time: a
// thousand characters are laid out in 1 to 3 ms, at every paint, whatever their script.
constexpr qsizetype maxLineChars = 1000;
constexpr qsizetype maxParagraphChars = 1000;
// A selector measures all of its entries when it opens. The more there are, the less each may take;
// even among thousands there is room for a name.
constexpr qsizetype maxSelectorChars = 30'000;
constexpr qsizetype minEntryChars = 40;
constexpr qsizetype maxParagraphBreaks = 20;
constexpr qsizetype maxNameChars = 100;
constexpr qsizetype maxToolTipChars = 1500; // some 25 lines
constexpr qsizetype maxSpokenChars = 10'000;
constexpr qsizetype maxConsoleChars = 20'000;
constexpr qsizetype maxArticleChars = 300'000;
constexpr qsizetype maxArticleParagraphs = 20'000;
// A paragraph is laid out at once, and from about three million characters on for ever.
constexpr qsizetype maxArticleParagraphChars = 10'000;
// Combining marks and what is invisible take no room, so that no line is ever full of them.
constexpr int maxWithoutWidth = 32;
// Looking for the end of a word costs the square of its length.
constexpr qsizetype longestWrappedWord = 500;

constexpr char16_t zeroWidthSpace = u'\x200b';
constexpr char16_t ellipsis = u'…';
constexpr const char* valueProperty = "foreignValue";

bool isLineSeparator(QChar c)
{
    switch (c.unicode()) {
    case '\n':
    case '\v':
    case '\f':
    case '\r':
    case 0x85:
    case QChar::LineSeparator:
    case QChar::ParagraphSeparator:
        return true;
    default:
        return false;
    }
}

// Embeddings, overrides and isolates: one that its text leaves open goes on in what follows.
bool isDirectionControl(QChar c)
{
    return (c >= u'\x202a' && c <= u'\x202e') || (c >= u'\x2066' && c <= u'\x2069');
}

// NUL, escapes and the like, and what a text document takes for its own frames and objects.
bool isUnprintable(QChar c)
{
    return (c.category() == QChar::Other_Control && c != u'\t') || c == u'\xfdd0' ||
           c == u'\xfdd1' || c == QChar::ObjectReplacementCharacter;
}

// Not between the halves of a character.
qsizetype wholeCharacters(QStringView text, qsizetype length)
{
    const bool cuts = length > 0 && length < text.size() && text[length].isLowSurrogate() &&
                      text[length - 1].isHighSurrogate();
    return cuts ? length - 1 : length;
}

QString withoutMiddle(const QString& text, qsizetype maxChars)
{
    if (text.size() <= maxChars)
        return text;
    const qsizetype tail = maxChars / 3;
    const qsizetype head = wholeCharacters(text, maxChars - tail - 1);
    const qsizetype end = wholeCharacters(text, text.size() - tail);
    return text.first(head) + ellipsis + text.sliced(end);
}

bool hasNoWidth(QChar c)
{
    return c.isMark() || c.category() == QChar::Other_Format;
}

// Appends characters that can all be shown.
class CleanText
{
public:
    explicit CleanText(qsizetype size) { m_text.reserve(size); }

    void append(QChar c)
    {
        m_withoutWidth = hasNoWidth(c) ? m_withoutWidth + 1 : 0;
        if (m_withoutWidth <= maxWithoutWidth)
            m_text += isUnprintable(c) ? QChar(QChar::ReplacementCharacter) : c;
    }
    void appendBreak(QChar c) { m_text += c; }
    const QString& text() const { return m_text; }

private:
    QString m_text;
    int m_withoutWidth = 0;
};

// On one line, or with its first few line breaks.
QString cleaned(const QString& text, qsizetype lineBreaks)
{
    CleanText shown(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (isDirectionControl(c) || QStringView(text).sliced(i).startsWith(u"\r\n"))
            continue;
        if (isLineSeparator(c))
            shown.appendBreak(lineBreaks-- > 0 ? u'\n' : u' ');
        else
            shown.append(c);
    }
    return shown.text();
}

// Lets a word that is too long for a line be broken, between what the eye sees as characters; a
// heap of combining marks, which counts as one, anywhere.
void appendBroken(QString& shown, const QString& word)
{
    constexpr qsizetype piece = 10;
    constexpr qsizetype longestCharacter = 64;
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, word);
    qsizetype from = 0;
    while (from < word.size()) {
        finder.setPosition(qMin(from + piece, word.size()));
        qsizetype to = finder.isAtBoundary() ? finder.position() : finder.toNextBoundary();
        if (to < 0 || to > from + longestCharacter)
            to = wholeCharacters(word, qMin(from + longestCharacter, word.size()));
        if (from > 0)
            shown += zeroWidthSpace;
        shown += QStringView(word).sliced(from, to - from);
        from = to;
    }
}

QString withBreaks(const QString& text, qsizetype longestWord)
{
    QString shown;
    QTextBoundaryFinder finder(QTextBoundaryFinder::Line, text);
    qsizetype from = 0;
    for (qsizetype to = finder.toNextBoundary(); to > 0; to = finder.toNextBoundary()) {
        const QString word = text.sliced(from, to - from);
        if (word.size() > longestWord)
            appendBroken(shown, word);
        else
            shown += word;
        from = to;
    }
    return shown;
}

QString wrapped(const QString& text, qsizetype maxChars, qsizetype longestWord)
{
    return withBreaks(cleaned(withoutMiddle(text, maxChars), maxParagraphBreaks), longestWord);
}

// The position of what ends the paragraph, or, where it goes on too long, a place to break it:
// behind its last blank, if there is one near.
qsizetype endOfParagraph(QStringView text, qsizetype from)
{
    constexpr qsizetype slack = 1000;
    const qsizetype limit = qMin(from + maxArticleParagraphChars, text.size());
    for (qsizetype i = from; i < qMin(limit + 1, text.size()); ++i) {
        if (isLineSeparator(text[i]))
            return i;
    }
    if (limit == text.size())
        return limit;
    const qsizetype blank = text.first(limit).lastIndexOf(u' ');
    return blank >= limit - slack ? blank + 1 : wholeCharacters(text, limit);
}

// No-break spaces and combining marks end no word here, because they end none for the layout.
bool hasLongWord(const QString& text)
{
    qsizetype length = 0;
    for (const QChar c : text) {
        const bool ends = c == u' ' || c == u'\t' || isLineSeparator(c);
        length = ends ? 0 : length + 1;
        if (length > longestWrappedWord)
            return true;
    }
    return false;
}

QString entry(const QString& text, int before)
{
    const qsizetype room = qMax(minEntryChars, maxSelectorChars / (before + 1));
    return foreign_text::line(withoutMiddle(text, room));
}

} // namespace

QString foreign_text::line(const QString& text)
{
    return cleaned(withoutMiddle(text, maxLineChars), 0);
}

QString foreign_text::paragraph(const QString& text)
{
    constexpr qsizetype longestWord = 40; // a uuid stays whole
    return wrapped(text, maxParagraphChars, longestWord);
}

QString foreign_text::nameHtml(const QString& name)
{
    constexpr qsizetype longestWord = 24;
    const QString shown = cleaned(withoutMiddle(name, maxNameChars), 0);
    return withBreaks(shown, longestWord).toHtmlEscaped();
}

QString foreign_text::toolTipHtml(const QString& text)
{
    constexpr qsizetype longestWord = 60;
    return u"<p>%1</p>"_s.arg(wrapped(text, maxToolTipChars, longestWord).toHtmlEscaped());
}

QString foreign_text::spoken(const QString& text)
{
    return cleaned(withoutMiddle(text, maxSpokenChars), maxSpokenChars);
}

// Within a paragraph a direction control may stay: it ends with it, and only the author's own words
// stand there.
QString foreign_text::article(const QString& text)
{
    const QStringView body(text.constData(),
                           wholeCharacters(text, qMin(text.size(), maxArticleChars)));
    CleanText shown(body.size());
    qsizetype from = 0;
    for (qsizetype i = 0; i < maxArticleParagraphs && from < body.size(); ++i) {
        const qsizetype end = endOfParagraph(body, from);
        for (const QChar c : body.sliced(from, end - from))
            shown.append(c);
        from = end;
        if (end == body.size())
            break;
        shown.appendBreak(u'\n');
        if (isLineSeparator(body[end]))
            from += body.sliced(end).startsWith(u"\r\n") ? 2 : 1;
    }
    return from < text.size() ? shown.text() + u'\n' + ellipsis : shown.text();
}

// One block per call: a bare carriage return, which games use to redraw a line, would start another
// one. The line separator breaks within the block.
QString foreign_text::consoleBlock(const QString& text)
{
    const QString block = withoutMiddle(text, maxConsoleChars);
    CleanText shown(block.size());
    for (const QChar c : block) {
        if (isLineSeparator(c))
            shown.appendBreak(QChar::LineSeparator);
        else
            shown.append(c);
    }
    return shown.text();
}

void foreign_text::show(QLabel* label, const QString& text)
{
    const QString shown = paragraph(text);
    label->setText(shown);
    label->setAccessibleDescription(shown == text ? QString() : spoken(text));
}

void foreign_text::showName(QLabel* label, const QString& ownHtml, const QString& name)
{
    label->setText(ownHtml.arg(nameHtml(name)));
}

void foreign_text::showArticle(QTextBrowser* browser, const QString& text)
{
    const QString shown = article(text);
    browser->setWordWrapMode(hasLongWord(shown) ? QTextOption::WrapAnywhere
                                                : QTextOption::WrapAtWordBoundaryOrAnywhere);
    browser->setPlainText(shown);
}

void foreign_text::appendTo(QPlainTextEdit* console, const QString& line)
{
    QTextCursor cursor(console->document());
    cursor.beginEditBlock(); // outside of one every step lays out its line
    cursor.setPosition(console->document()->characterCount() - 1);
    if (!console->document()->isEmpty())
        cursor.insertBlock();
    cursor.insertText(consoleBlock(line));
    cursor.endEditBlock();
}

void foreign_text::addEntry(QComboBox* combo, const QString& text, const QVariant& data)
{
    combo->addItem(entry(text, combo->count()), data);
}

void foreign_text::changeEntry(QComboBox* combo, int index, const QString& text)
{
    combo->setItemText(index, entry(text, index));
}

// The text first: a change of an item that the list shows already is laid out at once.
void foreign_text::addRow(QListWidget* list, QListWidgetItem* item, const QString& text)
{
    item->setText(line(text));
    list->addItem(item);
}

// A field cuts what is longer than its maximum by itself, lays the rest out in some 10 ms, and
// shows line breaks as blanks.
void foreign_text::fill(QLineEdit* field, const QString& value)
{
    field->setText(value);
    field->setProperty(valueProperty, value);
}

QString foreign_text::valueOf(const QLineEdit* field)
{
    const QString value = field->property(valueProperty).toString();
    return field->text() == value.left(field->maxLength()) ? value : field->text();
}
