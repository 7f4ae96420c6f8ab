#include "ui/foreign_text.h"

#include "tests/support/throwaway_home.h"
#include "ui/elided_label.h"
#include "ui/style_sheet.h"

#include <QComboBox>
#include <QHelpEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QTest>
#include <QTextBrowser>
#include <QTextDocument>
#include <QToolTip>

using namespace Qt::StringLiterals;

// What becomes of texts from outside at the door: nothing, when they are ordinary; otherwise what
// their place can show.
class TestForeignText : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void initTestCase() { qApp->setStyleSheet(launcherStyleSheet()); }

    void leavesOrdinaryTextsAlone_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("nothing") << QString();
        QTest::newRow("blanks around") << u"  two  words\t"_s;
        QTest::newRow("markup") << u"<b>x</b> & \"y\" 'z'"_s;
        QTest::newRow("a uuid") << u"UUID: 3b241101-e2bb-4255-8caf-4136c566a962"_s;
        QTest::newRow("a path")
            << u"/home/somebody/.local/share/Tessellan/Tessellan Launcher/game"_s;
        QTest::newRow("an address")
            << u"Error transferring http://127.0.0.1:40123/auth/login - server replied: no"_s;
        QTest::newRow("German") << u"Überraschung für Größere"_s;
        QTest::newRow("Hebrew") << u"שלום עולם"_s;
        QTest::newRow("Chinese, without blanks") << u"我们发布了新的版本"_s.repeated(10);
        QTest::newRow("emoji") << u"👩‍👩‍👧 🇩🇪 👍🏽"_s;
        QTest::newRow("accents of their own") << u"e\u0301a\u0308"_s;
        QTest::newRow("right-to-left marks") << u"\u200fabc\u200e"_s;
    }

    void leavesOrdinaryTextsAlone()
    {
        QFETCH(QString, text);
        QCOMPARE(foreign_text::line(text), text);
        QCOMPARE(foreign_text::paragraph(text), text);
        QCOMPARE(foreign_text::spoken(text), text);
        QCOMPARE(foreign_text::article(text), text);
        QCOMPARE(foreign_text::consoleBlock(text), text);
        QCOMPARE(foreign_text::toolTipHtml(text), QString(u"<p>" + text.toHtmlEscaped() + u"</p>"));
    }

    void keepsTheParagraphsOfAnArticle()
    {
        const QString body = u"\n  first\n\n\tsecond <b>\n\nlast\n"_s;
        QCOMPARE(foreign_text::article(body), body);
        QTextBrowser browser;
        foreign_text::showArticle(&browser, body);
        QCOMPARE(browser.toPlainText(), body);
        QCOMPARE(foreign_text::article(u"a\r\nb\rc\u2028d\u2029e\vf"_s), u"a\nb\nc\nd\ne\nf"_s);
    }

    void boundsEveryPlace_data()
    {
        QTest::addColumn<QString>("piece");
        QTest::newRow("letters") << u"x"_s;
        QTest::newRow("no-break spaces") << u"\u00a0"_s;
        QTest::newRow("combining marks") << u"\u0301"_s;
        QTest::newRow("line separators") << u"\u2028"_s;
        QTest::newRow("CRLF") << u"\r\n"_s;
        QTest::newRow("joiners") << u"\u200d"_s;
        QTest::newRow("emoji") << u"👩\u200d"_s;
        QTest::newRow("high surrogates") << QString(QChar(0xd800));
        QTest::newRow("overrides") << u"\u202e"_s;
        QTest::newRow("NULs") << QString(QChar(0));
    }

    void boundsEveryPlace()
    {
        QFETCH(QString, piece);
        const QString text = u"start" + piece.repeated(2'000'000) + u"end";
        for (const QString& shown : {foreign_text::line(text), foreign_text::paragraph(text)}) {
            QVERIFY(shown.size() <= 1200);
            QVERIFY(shown.startsWith(u"start"));
            QVERIFY(shown.endsWith(u"end"));
        }
        QVERIFY(foreign_text::nameHtml(text).size() <= 200);
        QVERIFY(foreign_text::toolTipHtml(text).size() <= 2000);
        QVERIFY(foreign_text::spoken(text).size() <= 10'000);
        QVERIFY(foreign_text::consoleBlock(text).size() <= 20'000);
        const QString article = foreign_text::article(text);
        QVERIFY(article.size() <= 310'000);
        QVERIFY(article.startsWith(u"start"));
        for (const QString& paragraph : article.split(u'\n'))
            QVERIFY(paragraph.size() <= 10'000);
    }

    void keepsCharactersWhole()
    {
        for (int i = 0; i < 4; ++i) {
            const QString text = QString(i, u'x') + u"👩"_s.repeated(300'000);
            for (const QString& shown : {foreign_text::line(text), foreign_text::paragraph(text),
                                         foreign_text::article(text)})
                QVERIFY(shown.isValidUtf16());
        }
    }

    void breaksLongParagraphsOfAnArticleAtBlanks()
    {
        const QString body = u"some words "_s.repeated(5000);
        const QString shown = foreign_text::article(body);
        QCOMPARE(QString(shown).remove(u'\n'), body);
        const QStringList paragraphs = shown.split(u'\n');
        QVERIFY(paragraphs.size() > 4);
        for (const QString& paragraph : paragraphs)
            QVERIFY(paragraph.isEmpty() || paragraph.endsWith(u' '));
    }

    void putsARowOnOneLine()
    {
        QCOMPARE(foreign_text::line(u"a\nb\r\nc\u2028d\u2029e\u0085f\vg\fh"_s),
                 u"a b c d e f g h"_s);
        QCOMPARE(foreign_text::line(u"a\u0000b\u001bc"_s), u"a\ufffdb\ufffdc"_s);
    }

    // An override that a name leaves open would turn round what stands behind the name.
    void takesDirectionControlsOut()
    {
        QCOMPARE(foreign_text::line(u"Downloading \u202eevil\u2066..."_s),
                 u"Downloading evil..."_s);
    }

    void letsLongWordsBeBroken_data()
    {
        QTest::addColumn<QString>("word");
        QTest::newRow("letters") << QString(900, u'W');
        QTest::newRow("no-break spaces") << QString(900, QChar(0xa0));
        QTest::newRow("word joiners") << u"W\u2060"_s.repeated(450);
        QTest::newRow("emoji") << u"👩\u200d"_s.repeated(300);
        QTest::newRow("Arabic") << QString(900, QChar(0x628));
        QTest::newRow("Hebrew") << QString(900, QChar(0x5d0));
        QTest::newRow("underscores") << QString(900, u'_');
    }

    void letsLongWordsBeBroken()
    {
        QFETCH(QString, word);
        QLabel label;
        label.setTextFormat(Qt::PlainText);
        label.setWordWrap(true);
        foreign_text::show(&label, word);
        QCOMPARE(QString(label.text()).remove(QChar(0x200b)), word);
        QTextDocument document;
        document.setDefaultFont(label.font());
        document.setPlainText(label.text());
        QTextOption words;
        words.setWrapMode(QTextOption::WordWrap);
        document.setDefaultTextOption(words);
        document.setTextWidth(220);
        QVERIFY2(document.idealWidth() <= 220, qPrintable(QString::number(document.idealWidth())));
        QCOMPARE(label.accessibleDescription(), word);
    }

    void keepsTheEndOfAStatusInSight()
    {
        ElidedLabel label;
        label.resize(200, 30);
        label.showText(u"Download failed: "_s + u"something "_s.repeated(200) + u"ends here"_s);
        const QImage first = label.grab().toImage();
        QString other = label.text();
        other.replace(u"ends here"_s, u"ends HERE"_s);
        label.showText(other);
        QVERIFY(label.grab().toImage() != first);
        QCOMPARE(label.text(), other);
        QCOMPARE(label.accessibleDescription(), other);
    }

    void wrapsToolTipsWithoutBlanks()
    {
        ElidedLabel label;
        label.setFixedWidth(80);
        label.showText(QString(5000, u'W'));
        label.show();
        QVERIFY(QTest::qWaitForWindowExposed(&label));
        QHelpEvent help(QEvent::ToolTip, QPoint(5, 5), label.mapToGlobal(QPoint(5, 5)));
        QApplication::sendEvent(&label, &help);
        QWidget* tip = nullptr;
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            if (widget->inherits("QTipLabel"))
                tip = widget;
        }
        QVERIFY(tip);
        QVERIFY2(tip->width() <= 900 && tip->height() <= 600,
                 qPrintable(u"%1 x %2"_s.arg(tip->width()).arg(tip->height())));
        QToolTip::hideText();
    }

    void keepsTheDataOfAnEntry()
    {
        const QString id(1'000'000, u'x');
        QComboBox combo;
        foreign_text::addEntry(&combo, id, id);
        QCOMPARE(combo.itemData(0).toString(), id);
        QVERIFY(combo.itemText(0).size() <= 1000);
        QListWidget list;
        auto* item = new QListWidgetItem;
        item->setData(Qt::UserRole, id);
        foreign_text::addRow(&list, item, id);
        QCOMPARE(list.item(0)->data(Qt::UserRole).toString(), id);
        QVERIFY(list.item(0)->text().size() <= 1000);
    }

    // A field holds 32,767 characters at most; saving must not cut what nobody touched.
    void keepsTheValueOfAFieldThatNobodyTouched()
    {
        const QString value = u"-Dx=y "_s.repeated(10'000);
        QLineEdit field;
        foreign_text::fill(&field, value);
        QVERIFY(field.text().size() < value.size());
        QCOMPARE(foreign_text::valueOf(&field), value);
        field.setText(u"other"_s);
        QCOMPARE(foreign_text::valueOf(&field), u"other"_s);
        foreign_text::fill(&field, u"short\nlines"_s);
        QCOMPARE(foreign_text::valueOf(&field), u"short\nlines"_s);
        QTest::keyClicks(&field, u"!"_s);
        QCOMPARE(foreign_text::valueOf(&field), field.text());
        field.clear();
        QCOMPARE(foreign_text::valueOf(&field), QString());
    }

    void keepsALineInOneBlockOfTheConsole()
    {
        QPlainTextEdit console;
        foreign_text::appendTo(&console, u"a\nb\u2029c\rd"_s);
        QCOMPARE(console.blockCount(), 1);
        foreign_text::appendTo(&console, QString(1'000'000, u'x'));
        QCOMPARE(console.blockCount(), 2);
        QVERIFY(console.toPlainText().size() < 30'000);
    }
};

QTEST_MAIN(TestForeignText)
#include "tst_foreign_text.moc"
