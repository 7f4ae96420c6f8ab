#include "ui/main_window.h"

#include "app/deployment.h"
#include "app/settings.h"
#include "services/auth_client.h"
#include "services/update_manager.h"
#include "ui/banner_widget.h"
#include "ui/console.h"
#include "ui/elided_label.h"
#include "ui/first_expose.h"
#include "ui/focus_reveal.h"
#include "ui/pages.h"
#include "ui/profile_page.h"
#include "ui/short_screen_area.h"
#include "ui/style_sheet.h"
#include "versions/version_manager.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QShowEvent>
#include <QStackedWidget>
#include <QToolButton>
#include <QVBoxLayout>

MainWindow::MainWindow(QWidget* parent)
    : QMainWindow(parent)
    , m_versions(new VersionManager(this))
    , m_updates(new UpdateManager(this))
    , m_auth(new AuthClient(this))
{
    buildUi();
    connectAuthClient();
    updateAuthUi();
    const QString token = Settings::get().authToken();
    if (!token.isEmpty())
        m_auth->validate(token);
    connectServices();
    m_versions->refreshManifest();
    m_updates->checkForUpdate();
}

// On a screen smaller than the window nothing may lie beyond the edge, PLAY least of all. The disk
// is left to the start of the window until it is there.
void MainWindow::showEvent(QShowEvent* event)
{
    if (!event->spontaneous()) {
        resize(size().boundedTo(screen()->availableSize()));
        m_versions->holdReading();
        new FirstExpose(this, [this] { m_versions->resumeReading(); });
    }
    QMainWindow::showEvent(event);
}

// Widgets are made in the order the eye meets them, which makes it the order of the Tab key.
void MainWindow::buildUi()
{
    setWindowTitle(QStringLiteral("Tessellan Launcher %1").arg(deployment::version)); // own words
    resize(1080, 600);
    setStyleSheet(windowStyleSheet());

    auto* central = new QWidget(this);
    auto* rows = new QVBoxLayout(central);
    rows->setContentsMargins(0, 0, 0, 0);
    rows->setSpacing(0);
    setCentralWidget(central);

    rows->addWidget(new BannerWidget(this));

    auto* middleRow = new QWidget(this);
    auto* middle = new QHBoxLayout(middleRow);
    middle->setContentsMargins(0, 0, 0, 0);
    middle->setSpacing(0);
    rows->addWidget(new ShortScreenArea(middleRow, central), 1);
    focus_reveal::watch(middleRow);
    buildSidebar();
    middle->addWidget(m_sidebar);
    m_pages = new QStackedWidget(this);
    m_pages->setObjectName(QStringLiteral("pages"));
    middle->addWidget(m_pages, 1);
    // Each is put in its place before it is filled: moving it would find all its styles anew.
    buildNewsPages();
    buildProfilePages();
    buildProfilePage();
    buildSettingsPage();
    connect(m_pages, &QStackedWidget::currentChanged, this,
            [this] { syncNavButtons(m_pages->currentWidget()); });

    rows->addWidget(buildBottomBar());
    buildConsole();
    rows->addWidget(m_console);
}

void MainWindow::buildProfilePage()
{
    m_profilePage = new ProfilePage(m_auth, this);
    m_pages->addWidget(m_profilePage);
}

QWidget* MainWindow::buildBottomBar()
{
    auto* bar = new QWidget(centralWidget());
    bar->setObjectName(QStringLiteral("bottomBar"));
    auto* row = new QHBoxLayout(bar);
    row->setContentsMargins(12, 6, 12, 12);

    m_statusLabel = new ElidedLabel(bar);
    m_statusLabel->setObjectName(QStringLiteral("status"));
    m_statusLabel->showText(QStringLiteral("Checking for versions..."));
    row->addWidget(m_statusLabel, 1);

    m_progressBar = new QProgressBar(bar);
    m_progressBar->setObjectName(QStringLiteral("progressBar"));
    m_progressBar->setAccessibleName(QStringLiteral("Progress"));
    m_progressBar->setFixedWidth(180);
    m_progressBar->hide();
    row->addWidget(m_progressBar);

    buildLaunchSelector(bar);
    row->addWidget(m_launchSelector);

    m_playButton = new QPushButton(QStringLiteral("PLAY"), bar);
    m_playButton->setObjectName(QStringLiteral("playButton"));
    m_playButton->setEnabled(false);
    m_playButton->hide();
    connect(m_playButton, &QPushButton::clicked, this, &MainWindow::onPlayClicked);
    row->addWidget(m_playButton);
    return bar;
}

void MainWindow::buildConsole()
{
    m_console = new Console(centralWidget());
    m_console->setObjectName(QStringLiteral("console"));
    m_console->setAccessibleName(QStringLiteral("Game console"));
    QFont font(QStringLiteral("Consolas"));
    font.setStyleHint(QFont::Monospace, QFont::PreferDefault);
    m_console->setFont(font);
    // The launcher's style sheet beats setFont; only the widget's own wins again.
    m_console->setStyleSheet(
        QStringLiteral("QPlainTextEdit#console { font-family:'Consolas','monospace'; }"));
    m_console->setMinimumHeight(120); // the pages would leave it three lines
    m_console->hide();
}

void MainWindow::syncNavButtons(QWidget* page)
{
    const int index = m_pages->indexOf(page);
    m_newsButton->setChecked(index == pages::NewsList || index == pages::NewsReader);
    m_profilesButton->setChecked(index == pages::ProfileList || index == pages::ProfileEditor);
    m_profileButton->setChecked(page == m_profilePage);
    m_settingsButton->setChecked(page == m_settingsPage);
}

void MainWindow::setBusy(bool busy, const QString& text)
{
    // A new task does not start at the end of the last one.
    if (busy && m_progressBar->isHidden())
        m_progressBar->reset();
    m_isBusy = busy;
    enablePlay(!busy);
    m_progressBar->setVisible(busy);
    m_statusLabel->showText(text);
}

// What is added to the text of something that was stored; nothing when its file took it.
QString MainWindow::unlessWritten(const QString& unwrittenFile)
{
    return unwrittenFile.isEmpty()
               ? QString()
               : QString(u", only until you quit: cannot write " + unwrittenFile);
}

void MainWindow::appendConsole(const QString& line)
{
    if (m_console->isHidden())
        m_console->show();
    m_console->addLine(line, m_versions->linesToCome());
}
