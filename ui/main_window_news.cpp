#include "ui/elided_label.h"
#include "ui/foreign_text.h"
#include "ui/main_window.h"
#include "ui/pages.h"
#include "versions/version_manager.h"

#include <QEvent>
#include <QListWidget>
#include <QPushButton>
#include <QStackedWidget>
#include <QTextBrowser>
#include <QVBoxLayout>

namespace {

// Who double-clicks a headline opens it with the first click; the second must not press the button
// that stands there by then.
class DoubleClickGuard : public QObject
{
public:
    explicit DoubleClickGuard(QWidget* guarded) : QObject(guarded)
    {
        guarded->installEventFilter(this);
    }

    bool eventFilter(QObject*, QEvent* event) override
    {
        return event->type() == QEvent::MouseButtonDblClick;
    }
};

} // namespace

void MainWindow::buildNewsPages()
{
    auto* listPage = new QWidget(this);
    m_pages->addWidget(listPage);
    auto* listLayout = pages::makeLayout(listPage);
    m_newsList = pages::makeList(QStringLiteral("newsList"), QStringLiteral("News"), listPage);
    m_newsList->setTextElideMode(Qt::ElideMiddle); // the date stands at the end
    listLayout->addWidget(m_newsList);
    connect(m_newsList, &QListWidget::itemClicked, this, &MainWindow::openNews);
    // The Return key's way in; a double click opens the same item once more.
    connect(m_newsList, &QListWidget::itemActivated, this, &MainWindow::openNews);

    auto* readerPage = new QWidget(this);
    m_pages->addWidget(readerPage);
    auto* readerLayout = pages::makeLayout(readerPage);
    auto* back = new QPushButton(QStringLiteral("← Back"), readerPage);
    back->setObjectName(QStringLiteral("newsBackButton"));
    back->setFixedWidth(90);
    new DoubleClickGuard(back);
    connect(back, &QPushButton::clicked, this,
            [this] { m_pages->setCurrentIndex(pages::NewsList); });
    readerLayout->addWidget(back, 0, Qt::AlignLeft);

    m_newsTitle = new ElidedLabel(readerPage);
    m_newsTitle->setObjectName(QStringLiteral("newsTitle"));
    pages::makeHeader(m_newsTitle, 16);
    readerLayout->addWidget(m_newsTitle);
    m_newsDate = new ElidedLabel(readerPage);
    m_newsDate->setObjectName(QStringLiteral("status"));
    readerLayout->addWidget(m_newsDate);

    m_newsBody = new QTextBrowser(readerPage);
    m_newsBody->setObjectName(QStringLiteral("newsBody"));
    m_newsBody->setAccessibleName(QStringLiteral("Article"));
    readerLayout->addWidget(m_newsBody, 1);
}

void MainWindow::populateNews()
{
    m_newsList->clear();
    if (m_versions->news().isEmpty()) {
        auto* placeholder = new QListWidgetItem(
            QStringLiteral("No news yet - check back after the next release."), m_newsList);
        placeholder->setFlags(Qt::NoItemFlags);
        return;
    }
    for (const NewsItem& news :
         m_versions->news().first(qMin(m_versions->news().size(), foreign_text::maxEntries))) {
        QString text = news.title;
        if (!news.date.isEmpty())
            text += u"   -   " + news.date;
        auto* item = new QListWidgetItem;
        item->setToolTip(QStringLiteral("Click to read"));
        foreign_text::addRow(m_newsList, item, text);
    }
}

// By row in the present manifest: populateNews keeps rows and manifest in step.
void MainWindow::openNews(const QListWidgetItem* item)
{
    const int row = m_newsList->row(item);
    if (row < 0 || row >= m_versions->news().size())
        return;
    const NewsItem& news = m_versions->news().at(row);
    m_newsTitle->showText(news.title);
    m_newsDate->showText(news.date);
    m_newsDate->setVisible(!news.date.isEmpty());
    foreign_text::showArticle(m_newsBody, news.body);
    m_pages->setCurrentIndex(pages::NewsReader);
}
