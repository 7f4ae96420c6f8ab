#include "profiles/profile_manager.h"
#include "ui/foreign_text.h"
#include "ui/main_window.h"
#include "ui/page_keys.h"
#include "ui/pages.h"
#include "versions/version_manager.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

namespace {

QString markedVersion(const QString& id, bool needsInstall)
{
    return id + (needsInstall ? u"  (update available)" : u"  (installed)");
}

} // namespace

void MainWindow::buildLaunchSelector(QWidget* bar)
{
    m_launchSelector = pages::makeCombo(QStringLiteral("launchSelector"), bar);
    // Assistive technology calls a combo box by its current entry, and says what it is for only by
    // its label; the eye sees that it belongs to PLAY.
    auto* label = new QLabel(QStringLiteral("Profile or version to play"), bar);
    label->setBuddy(m_launchSelector);
    label->hide();
    m_launchSelector->installEventFilter(this);
    connect(m_launchSelector, &QComboBox::currentIndexChanged, this,
            &MainWindow::onSelectionChanged);
}

// Records bare versions as well as profiles, and is never blocked: see populateProfiles.
void MainWindow::onSelectionChanged(int index)
{
    const QString entry = m_launchSelector->itemData(index).toString();
    if (!entry.isEmpty() && entry.size() <= pages::maxRecordedChars)
        ProfileManager::get().setActiveProfile(entry);
}

void MainWindow::buildProfilePages()
{
    buildProfileListPage();
    buildProfileEditorPage();
}

void MainWindow::buildProfileListPage()
{
    auto* page = new QWidget(this);
    m_pages->addWidget(page);
    auto* layout = pages::makeLayout(page);
    const auto addButton = [page](QHBoxLayout* row, const QString& text, const QString& name) {
        auto* button = new QPushButton(text, page); // own words
        button->setObjectName(name);
        row->addWidget(button);
        return button;
    };

    auto* headerRow = new QHBoxLayout;
    layout->addLayout(headerRow);
    auto* header = new QLabel(QStringLiteral("Profiles"), page);
    header->setObjectName(QStringLiteral("profilesHeader"));
    pages::makeHeader(header, 14);
    headerRow->addWidget(header);
    headerRow->addStretch();
    auto* create =
        addButton(headerRow, QStringLiteral("New Profile"), QStringLiteral("newProfileButton"));
    connect(create, &QPushButton::clicked, this, [this] { showProfileEditor(nullptr); });

    m_profileList =
        pages::makeList(QStringLiteral("profileList"), QStringLiteral("Launch profiles"), page);
    layout->addWidget(m_profileList, 1);
    connect(m_profileList, &QListWidget::itemDoubleClicked, this, &MainWindow::editProfile);

    auto* row = new QHBoxLayout;
    layout->addLayout(row);
    auto* edit = addButton(row, QStringLiteral("Edit"), QStringLiteral("editProfileButton"));
    connect(edit, &QPushButton::clicked, this,
            [this] { editProfile(m_profileList->currentItem()); });
    auto* play = addButton(row, QStringLiteral("Play"), QStringLiteral("playProfileButton"));
    connect(play, &QPushButton::clicked, this, &MainWindow::playCurrentProfile);
    auto* remove = addButton(row, QStringLiteral("Delete"), QStringLiteral("deleteProfileButton"));
    connect(remove, &QPushButton::clicked, this, &MainWindow::deleteCurrentProfile);
    row->addStretch();
    auto* back = addButton(row, QStringLiteral("← Back"), QStringLiteral("profilesBackButton"));
    back->setFixedWidth(90);
    // The news list is home, wherever the player came from.
    connect(back, &QPushButton::clicked, this,
            [this] { m_pages->setCurrentIndex(pages::NewsList); });

    auto* hint = new QLabel(
        QStringLiteral("A profile picks the version to play and how to launch it (memory, JVM "
                       "flags). Double-click to edit. Session arguments (username/token) are "
                       "managed by the launcher and cannot be overridden."),
        page);
    hint->setObjectName(QStringLiteral("status"));
    hint->setWordWrap(true);
    layout->addWidget(hint);
    new PageKeys(page, [this] { editProfile(m_profileList->currentItem()); });
}

void MainWindow::showProfilesPage()
{
    populateProfiles();
    m_pages->setCurrentIndex(pages::ProfileList);
}

void MainWindow::editProfile(const QListWidgetItem* item)
{
    if (item)
        showProfileEditor(ProfileManager::get().find(item->data(Qt::UserRole).toString()));
}

void MainWindow::playCurrentProfile()
{
    const QListWidgetItem* item = m_profileList->currentItem();
    if (!item)
        return;
    ProfileManager::get().setActiveProfile(item->data(Qt::UserRole).toString());
    populateProfiles();
    onPlayClicked();
}

void MainWindow::deleteCurrentProfile()
{
    const QListWidgetItem* item = m_profileList->currentItem();
    if (!item)
        return;
    ProfileManager::get().remove(item->data(Qt::UserRole).toString());
    populateProfiles();
}

QList<GameVersion> MainWindow::listedVersions() const
{
    const QList<GameVersion>& all = m_versions->versions();
    return all.first(qMin(all.size(), foreign_text::maxEntries));
}

// What was installed or changed while the launcher runs may be large: until it is read, it counts
// as up to date.
QString MainWindow::versionText(const GameVersion& version)
{
    if (!m_versions->isInstalled(version.id))
        return version.id;
    const auto needed = m_versions->knownNeed(version);
    if (!needed)
        m_versions->whenKnown(version,
                              [this, version](bool needs) { markVersion(version, needs); });
    return markedVersion(version.id, needed.value_or(false));
}

void MainWindow::markVersion(const GameVersion& version, bool needsInstall)
{
    const QString text = markedVersion(version.id, needsInstall);
    const auto mark = [&text](QComboBox* combo, const QString& entry) {
        const int index = combo->findData(entry);
        if (index >= 0)
            foreign_text::changeEntry(combo, index, text);
    };
    mark(m_launchSelector, QString(pages::versionPrefix + version.id));
    mark(m_versionCombo, version.id);
}

// The selector's change handler stays connected. Inserting the first entry makes it current, so the
// handler records it as active before the active profile is read back below: every refill ends with
// the first entry selected and active. That order is intended.
void MainWindow::populateProfiles()
{
    ProfileManager& manager = ProfileManager::get();
    m_launchSelector->clear();
    for (const LaunchProfile& p : manager.profiles())
        foreign_text::addEntry(m_launchSelector, p.name + u"  (" + p.version + u')', p.name);
    if (m_launchSelector->count() > 0)
        m_launchSelector->insertSeparator(m_launchSelector->count());
    for (const GameVersion& version : listedVersions())
        foreign_text::addEntry(m_launchSelector, versionText(version),
                               QString(pages::versionPrefix + version.id));

    const QString active = manager.activeProfile();
    if (!active.isEmpty()) {
        const int index = m_launchSelector->findData(active);
        if (index >= 0)
            m_launchSelector->setCurrentIndex(index);
    } else if (m_launchSelector->count() > 0) {
        m_launchSelector->setCurrentIndex(0);
    }
    enablePlay(m_launchSelector->count() > 0);

    m_profileList->clear();
    for (const LaunchProfile& p : manager.profiles()) {
        QString text = p.name + u"  -  " + p.version + u"  Xmx " + QString::number(p.xmx) + u" MB";
        if (!p.extraJvmArgs.isEmpty())
            text += u"  " + p.extraJvmArgs;
        auto* item = new QListWidgetItem;
        item->setData(Qt::UserRole, p.name);
        foreign_text::addRow(m_profileList, item, text);
    }
}
