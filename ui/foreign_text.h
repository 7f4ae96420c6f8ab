#pragma once

#include <QString>

class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QListWidgetItem;
class QPlainTextEdit;
class QTextBrowser;
class QVariant;

// The one door through which a text that the launcher did not write itself (from a server, the
// game, the settings file or the player) reaches a widget. What a server may send in megabytes, and
// in any characters, is brought here to what its place can show without freezing or bursting it.
// Ordinary texts come out as they went in, character for character; only what a widget shows is
// changed, never what is stored or sent. scripts/texts refuses other ways. GUI thread.
namespace foreign_text {

// No list and no selector offers more of a manifest's entries than this: each costs time and
// memory, and nobody looks through more.
constexpr qsizetype maxEntries = 5000;

// What the places show of a text. Where it is too long its middle is left out, because the reason
// for a failure tends to stand at its end.

// One line: in a list, a selector, an ElidedLabel. Nothing in it can turn round the order of the
// words beside it.
QString line(const QString& text);
// For a label that wraps its words: words that are too long for a line can be broken.
QString paragraph(const QString& text);
// The same in the narrow sidebar, as rich text.
QString nameHtml(const QString& name);
// As rich text, the only kind that tool tips wrap.
QString toolTipHtml(const QString& text);
// For assistive technology: long enough to be whole in all but hostile cases.
QString spoken(const QString& text);
// An article, which keeps its paragraphs. One that is longer than a book is cut at its end.
QString article(const QString& text);
// For one block of the console.
QString consoleBlock(const QString& text);

// To the widgets. The label and the list item keep what they were given besides.
void show(QLabel* label, const QString& text);
// The name takes the place of %1 in the launcher's own rich text.
void showName(QLabel* label, const QString& ownHtml, const QString& name);
void showArticle(QTextBrowser* browser, const QString& text);
void appendTo(QPlainTextEdit* console, const QString& line);
void addEntry(QComboBox* combo, const QString& text, const QVariant& data);
void changeEntry(QComboBox* combo, int index, const QString& text);
void addRow(QListWidget* list, QListWidgetItem* item, const QString& text);

// What a field shows is its value, or as much of it as a field can hold. valueOf is the whole value
// again, unless the player has changed the text.
void fill(QLineEdit* field, const QString& value);
QString valueOf(const QLineEdit* field);

} // namespace foreign_text
