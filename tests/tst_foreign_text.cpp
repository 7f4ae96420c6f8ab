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

    // What has no width fills no line, however much of it there is. A whole character, with what
    // belongs to it, is far below the bound.
    void boundsWhatHasNoWidth_data()
    {
        QTest::addColumn<QChar>("c");
        QTest::newRow("combining mark") << QChar(0x301);
        QTest::newRow("enclosing mark") << QChar(0x20dd);
        QTest::newRow("word joiner") << QChar(0x2060);
        QTest::newRow("zero-width space") << QChar(0x200b);
    }

    void boundsWhatHasNoWidth()
    {
        QFETCH(QChar, c);
        const QString most = u'a' + QString(32, c) + u'b';
        const QString more = u'a' + QString(300, c) + u'b';
        for (auto* place : {foreign_text::line, foreign_text::spoken, foreign_text::article,
                            foreign_text::consoleBlock}) {
            QCOMPARE(place(most + most), QString(most + most));
            QCOMPARE(place(more), most);
        }
    }

    // A text document takes some characters for its own frames and objects.
    void replacesWhatADocumentTakesForItsOwn()
    {
        for (const QChar c : {QChar(0xfdd0), QChar(0xfdd1), QChar(0xfffc)}) {
            QCOMPARE(foreign_text::line(u'a' + QString(c)), u"a\ufffd"_s);
            QCOMPARE(foreign_text::article(u'a' + QString(c)), u"a\ufffd"_s);
        }
    }

    void leavesATextOfTheGreatestLengthWhole()
    {
        const QString most(1000, u'x');
        QCOMPARE(foreign_text::line(most), most);
        const QString shown = foreign_text::line(most + u'x');
        QCOMPARE(shown.size(), 1000);
        QCOMPARE(shown.count(u'…'), 1);
    }

    void boundsTheParagraphsOfAnArticle()
    {
        const QString shown = foreign_text::article(u"a\n"_s.repeated(25'000));
        QCOMPARE(shown.count(u'a'), 20'000);
        QVERIFY(shown.endsWith(u"\n…"));
        QVERIFY(!foreign_text::article(u"a\n"_s.repeated(20'000)).contains(u'…'));
    }

    void addsNoLineToAParagraphOfTheGreatestLength()
    {
        const QString most = QString(9990, u'x') + u" 123456789\nnext";
        QCOMPARE(foreign_text::article(most), most);
    }

    void showsANameAsTextInTheSidebar()
    {
        QLabel label;
        foreign_text::showName(&label, u"Signed in as <b>%1</b>"_s, u"<i>&%1"_s);
        QCOMPARE(label.text(), u"Signed in as <b>&lt;i&gt;&amp;%1</b>"_s);
        const QString name(24, u'W');
        QCOMPARE(foreign_text::nameHtml(name), name);
        QVERIFY(foreign_text::nameHtml(name + u'W').contains(QChar(0x200b)));
    }

    // Between a letter and its marks there is no place for a break.
    void breaksNoCharacter()
    {
        const QString letter = u"e\u0301\u0302"_s;
        const QStringList pieces =
            foreign_text::paragraph(letter.repeated(50)).split(QChar(0x200b));
        QVERIFY(pieces.size() > 5);
        for (const QString& piece : pieces)
            QVERIFY2(piece.size() % letter.size() == 0, qPrintable(piece));
    }

    // Looking for the end of such a word would cost the square of its length.
    void wrapsAnArticleWithALongWordAnywhere_data()
    {
        QTest::addColumn<QString>("body");
        QTest::addColumn<bool>("anywhere");
        QTest::newRow("words") << u"some words "_s.repeated(1000) << false;
        QTest::newRow("words between tabs") << u"some\twords\t"_s.repeated(1000) << false;
        QTest::newRow("words on lines") << u"some\nwords\n"_s.repeated(1000) << false;
        QTest::newRow("longest word") << QString(500, u'x') << false;
        QTest::newRow("a letter more") << QString(501, u'x') << true;
        QTest::newRow("no-break spaces") << QString(501, QChar(0xa0)) << true;
    }

    void wrapsAnArticleWithALongWordAnywhere()
    {
        QFETCH(QString, body);
        QFETCH(bool, anywhere);
        QTextBrowser browser;
        foreign_text::showArticle(&browser, body);
        QCOMPARE(browser.wordWrapMode() == QTextOption::WrapAnywhere, anywhere);
    }

    // It says again only what the eye does not get whole.
    void describesAloudOnlyWhatIsNotShownWhole()
    {
        QLabel label;
        foreign_text::show(&label, QString(900, u'W'));
        foreign_text::show(&label, u"too short"_s);
        QCOMPARE(label.accessibleDescription(), QString());
    }

    // All entries are measured when a selector opens.
    void givesEachOfManyEntriesLessRoom()
    {
        QComboBox combo;
        const QString name(900, u'x');
        qsizetype sum = 0;
        for (int i = 0; i < 1000; ++i) {
            foreign_text::addEntry(&combo, name, i);
            sum += combo.itemText(i).size();
        }
        QCOMPARE(combo.itemText(0), name);
        QCOMPARE(combo.itemText(999).size(), 40);
        QVERIFY(sum < 200'000);
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

    void asksForNoWidthAndShowsNoMarkup()
    {
        ElidedLabel label;
        label.showText(u"<b>bold</b> "_s.repeated(100));
        QCOMPARE(label.sizeHint().width(), 0);
        QCOMPARE(label.minimumSizeHint().width(), 0);
        QCOMPARE(label.textFormat(), Qt::PlainText);
        QCOMPARE(label.toolTip(), label.text());
    }

    // Blanks around and between, as servers leave them, take no room from the words.
    void drawsAStatusWithoutItsBlanks()
    {
        ElidedLabel label;
        label.resize(200, 30);
        label.showText(u"cut off"_s);
        const QImage plain = label.grab().toImage();
        label.showText(u"  cut \n   off\n\n"_s);
        QCOMPARE(label.grab().toImage(), plain);
    }

    void offersNoToolTipForWhatIsShownWhole()
    {
        ElidedLabel label;
        label.resize(200, 30);
        label.show();
        QVERIFY(QTest::qWaitForWindowExposed(&label));
        QHelpEvent help(QEvent::ToolTip, QPoint(5, 5), label.mapToGlobal(QPoint(5, 5)));
        label.showText(u"Ready"_s);
        QApplication::sendEvent(&label, &help);
        QVERIFY(!QToolTip::isVisible());
        label.showText(u"Ready"_s.repeated(100));
        QApplication::sendEvent(&label, &help);
        QVERIFY(QToolTip::isVisible());
        QToolTip::hideText();
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
