#include "profiles/profile_manager.h"
#include "services/update_manager.h"
#include "tests/support/throwaway_home.h"
#include "tests/support/window_driver.h"
#include "ui/elided_label.h"
#include "ui/main_window.h"

#include <QAbstractSpinBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPixmap>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QStackedWidget>
#include <QStyleOptionButton>
#include <QStyleOptionComboBox>
#include <QTest>
#include <QTextDocument>
#include <QToolButton>

using namespace Qt::StringLiterals;

namespace {

QString nameOf(const QWidget* widget)
{
    const QString name =
        QLatin1StringView(widget->metaObject()->className()) + u' ' + widget->objectName() + u' ';
    const QVariant text = widget->property("text");
    return name + u'"' + text.toString() + u'"';
}

bool isScrolled(const QWidget* content)
{
    const auto* area = qobject_cast<QScrollArea*>(
        content->parentWidget() ? content->parentWidget()->parentWidget() : nullptr);
    return area && area->widget() == content;
}

// Parts of one control, which may lie over each other.
bool isControl(const QWidget* widget)
{
    return qobject_cast<const QAbstractScrollArea*>(widget) ||
           qobject_cast<const QAbstractSpinBox*>(widget) || qobject_cast<const QComboBox*>(widget);
}

int widthOf(const QWidget* widget, const QString& text)
{
    return widget->fontMetrics().horizontalAdvance(text);
}

bool labelFits(const QLabel* label)
{
    if (label->text().isEmpty() || qobject_cast<const ElidedLabel*>(label))
        return true;
    if (!label->wordWrap())
        return label->width() >= label->sizeHint().width() &&
               label->height() >= label->sizeHint().height();
    // A word that is wider than the label is cut, however high the label is.
    QTextDocument document;
    document.setDefaultFont(label->font());
    document.setDocumentMargin(0);
    if (label->textFormat() == Qt::RichText)
        document.setHtml(label->text());
    else
        document.setPlainText(label->text());
    document.setTextWidth(label->contentsRect().width());
    return document.idealWidth() <= label->contentsRect().width() &&
           label->height() >= label->heightForWidth(label->width());
}

bool buttonFits(const QPushButton* button)
{
    QStyleOptionButton option;
    option.initFrom(button);
    option.text = button->text();
    const QRect contents =
        button->style()->subElementRect(QStyle::SE_PushButtonContents, &option, button);
    return contents.width() >= widthOf(button, button->text()) &&
           contents.height() >= button->fontMetrics().height();
}

bool comboFits(const QComboBox* combo)
{
    QStyleOptionComboBox option;
    option.initFrom(combo);
    const QRect field = combo->style()->subControlRect(QStyle::CC_ComboBox, &option,
                                                       QStyle::SC_ComboBoxEditField, combo);
    return field.width() >= widthOf(combo, combo->currentText()) &&
           field.height() >= combo->fontMetrics().height();
}

// A field scrolls what is typed; only what it shows by itself has to fit.
bool fieldFits(const QLineEdit* field)
{
    const bool inSpinBox = qobject_cast<const QAbstractSpinBox*>(field->parentWidget());
    const QString text = inSpinBox ? u"65536 MB"_s : field->placeholderText();
    return field->contentsRect().width() >= widthOf(field, text) &&
           field->contentsRect().height() >= field->fontMetrics().height();
}

bool textFits(const QWidget* widget)
{
    if (const auto* label = qobject_cast<const QLabel*>(widget))
        return labelFits(label);
    if (const auto* button = qobject_cast<const QPushButton*>(widget))
        return buttonFits(button);
    if (const auto* button = qobject_cast<const QToolButton*>(widget))
        return button->width() >= button->sizeHint().width();
    if (const auto* combo = qobject_cast<const QComboBox*>(widget))
        return comboFits(combo);
    if (const auto* field = qobject_cast<const QLineEdit*>(widget))
        return fieldFits(field);
    return true;
}

} // namespace

// Whether everything can be read and reached. CMakeLists.txt runs it on small screens of several
// densities and with larger fonts. Where FIT_PICTURES names a directory, it saves every page there.
class TestMainWindowFit : public QObject
{
    Q_OBJECT

public:
    static void initMain() { throwaway_home::enter(); }

private Q_SLOTS:
    void init()
    {
        m_driver = std::make_unique<WindowDriver>();
        m_driver->serveManifest(
            {{u"1.20.4"_s, u"http://x/"_s, {}, {}}},
            {{u"A headline that says a little more than most of them do"_s, u"2026-01-02"_s,
              u"What is new in this version, told in a sentence or two. "_s.repeated(60)}});
        QVERIFY(ProfileManager::get().save({u"Building with friends"_s, u"1.20.4"_s, 512, 2048,
                                            u"-XX:+UseG1GC -XX:MaxGCPauseMillis=50"_s},
                                           {}, nullptr));
    }
    void cleanup() { m_driver.reset(); }

    void cutsNothingOff_data()
    {
        QTest::addColumn<bool>("signedIn");
        QTest::addColumn<bool>("console");
        QTest::addColumn<bool>("busy");
        QTest::newRow("signed out") << false << false << false;
        QTest::newRow("signed out, console") << false << true << false;
        QTest::newRow("signed in") << true << false << false;
        QTest::newRow("signed in, console, busy") << true << true << true;
    }

    void cutsNothingOff()
    {
        QFETCH(bool, signedIn);
        QFETCH(bool, console);
        QFETCH(bool, busy);
        if (signedIn)
            m_driver->storeSession();
        m_driver->openAndWait();
        m_driver->clickRow(m_driver->find<QListWidget>("newsList"), 0);
        if (console)
            m_driver->click("consoleButton");
        if (busy)
            Q_EMIT m_driver->updates().updateProgress(40, 100);

        for (int page = 0; page < m_driver->pages()->count(); ++page) {
            m_driver->pages()->setCurrentIndex(page);
            if (page == 3)
                showEditorError();
            QTest::qWait(0); // layouts settle in the event loop
            savePicture(page);
            QStringList faults = faultsOf(m_driver->window());
            QVERIFY2(faults.isEmpty(),
                     qPrintable(u"page %1: %2"_s.arg(page).arg(faults.join(u"\n    "_s))));
            QCOMPARE(m_driver->play()->isVisible(), signedIn);
        }
    }

private:
    void showEditorError()
    {
        m_driver->type("extraArgsField", u"-Xmx4G --token=mine"_s);
        m_driver->click("editorSaveButton");
        QVERIFY(m_driver->editorError()->isVisible());
    }

    static QStringList faultsOf(const QWidget& window)
    {
        QStringList faults;
        if (!window.screen()->availableGeometry().contains(window.frameGeometry()))
            faults.append(u"the window of %1 x %2 is larger than the screen"_s.arg(window.width())
                              .arg(window.height()));
        for (const QWidget* widget : window.findChildren<QWidget*>()) {
            if (!widget->isVisible() || widget->isWindow())
                continue;
            const QWidget* parent = widget->parentWidget();
            if (!parent->rect().contains(widget->geometry()) && !isScrolled(widget))
                faults.append(nameOf(widget) + u" reaches out of " + nameOf(parent));
            if (!textFits(widget))
                faults.append(nameOf(widget) + u" is cut");
            if (isControl(parent))
                continue;
            for (const QWidget* other :
                 parent->findChildren<QWidget*>(Qt::FindDirectChildrenOnly)) {
                if (other > widget && other->isVisible() && !other->isWindow() &&
                    other->geometry().intersects(widget->geometry()))
                    faults.append(nameOf(widget) + u" lies over " + nameOf(other));
            }
        }
        return faults;
    }

    void savePicture(int page)
    {
        const QString directory = qEnvironmentVariable("FIT_PICTURES");
        if (directory.isEmpty())
            return;
        const QString state =
            QString::fromLatin1(QTest::currentDataTag()).remove(u',').replace(u' ', u'-');
        QTest::qWait(300); // for the eye
        const QPixmap screen = m_driver->window().screen()->grabWindow();
        QVERIFY(screen.save(u"%1/%2-%3.png"_s.arg(directory, state).arg(page)));
    }

    std::unique_ptr<WindowDriver> m_driver;
};

QTEST_MAIN(TestMainWindowFit)
#include "tst_main_window_fit.moc"
