#include "profiles/profile_manager.h"
#include "ui/elided_label.h"
#include "ui/foreign_text.h"
#include "ui/main_window.h"
#include "ui/page_keys.h"
#include "ui/pages.h"
#include "versions/version_manager.h"

#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QStackedWidget>
#include <QVBoxLayout>

#include <algorithm>

namespace {

QSpinBox* addHeapSpin(QHBoxLayout* row, const QString& label, const QString& name, QWidget* page)
{
    auto* caption = new QLabel(label, page); // own words
    auto* spin = new QSpinBox(page);
    spin->setObjectName(name);
    spin->setAccessibleName(label); // own words
    spin->setRange(32, 65536);
    spin->setSuffix(QStringLiteral(" MB"));
    caption->setBuddy(spin);
    row->addWidget(caption);
    row->addWidget(spin);
    return spin;
}

} // namespace

void MainWindow::buildProfileEditorPage()
{
    auto* page = new QWidget(this);
    m_pages->addWidget(page);
    auto* layout = pages::makeLayout(page);
    auto* headerRow = new QHBoxLayout;
    layout->addLayout(headerRow);
    auto* header = new QLabel(QStringLiteral("Profile"), page);
    header->setObjectName(QStringLiteral("editorHeader"));
    pages::makeHeader(header, 14);
    headerRow->addWidget(header);
    headerRow->addStretch();

    layout->addLayout(buildEditorForm(page));
    layout->addStretch();

    auto* buttons = new QHBoxLayout;
    layout->addLayout(buttons);
    buttons->addStretch();
    auto* save = new QPushButton(QStringLiteral("Save"), page);
    save->setObjectName(QStringLiteral("editorSaveButton"));
    connect(save, &QPushButton::clicked, this, &MainWindow::saveProfile);
    buttons->addWidget(save);
    auto* cancel = new QPushButton(QStringLiteral("Cancel"), page);
    cancel->setObjectName(QStringLiteral("editorCancelButton"));
    connect(cancel, &QPushButton::clicked, this,
            [this] { m_pages->setCurrentIndex(pages::ProfileList); });
    buttons->addWidget(cancel);
    new PageKeys(
        page, [this] { saveProfile(); }, [this] { m_pages->setCurrentIndex(pages::ProfileList); });
}

QFormLayout* MainWindow::buildEditorForm(QWidget* page)
{
    auto* form = new QFormLayout;
    m_nameField = new QLineEdit(page);
    m_nameField->setObjectName(QStringLiteral("nameField"));
    form->addRow(QStringLiteral("Name:"), m_nameField);

    m_versionCombo = pages::makeCombo(QStringLiteral("versionCombo"), page);
    form->addRow(QStringLiteral("Game version:"), m_versionCombo);

    auto* memory = new QHBoxLayout;
    m_xmsSpin = addHeapSpin(memory, QStringLiteral("Xms"), QStringLiteral("xmsSpin"), page);
    m_xmxSpin = addHeapSpin(memory, QStringLiteral("Xmx"), QStringLiteral("xmxSpin"), page);
    memory->addStretch();
    form->addRow(QStringLiteral("Memory:"), memory);
    qobject_cast<QLabel*>(form->labelForField(memory))->setBuddy(m_xmsSpin);

    m_extraArgsField = new QLineEdit(page);
    m_extraArgsField->setObjectName(QStringLiteral("extraArgsField"));
    m_extraArgsField->setPlaceholderText(
        QStringLiteral("-XX:+UseG1GC -XX:MaxGCPauseMillis=50 ..."));
    form->addRow(QStringLiteral("Extra JVM args:"), m_extraArgsField);

    m_errorLabel = new QLabel(page);
    m_errorLabel->setObjectName(QStringLiteral("status"));
    m_errorLabel->setTextFormat(Qt::PlainText);
    m_errorLabel->setWordWrap(true);
    m_errorLabel->hide();
    form->addRow(QString(), m_errorLabel);
    return form;
}

// Without a profile, for a new one.
void MainWindow::showProfileEditor(const LaunchProfile* profile)
{
    const LaunchProfile shown = profile ? *profile : LaunchProfile();
    m_previousName = shown.name;
    foreign_text::fill(m_nameField, shown.name);
    m_xmsSpin->setValue(shown.xms);
    m_xmxSpin->setValue(shown.xmx);
    foreign_text::fill(m_extraArgsField, shown.extraJvmArgs);
    m_errorLabel->hide();

    m_versionCombo->clear();
    for (const GameVersion& version : listedVersions())
        foreign_text::addEntry(m_versionCombo, versionText(version), version.id);
    // A version that the manifest no longer lists leaves the first one selected.
    const int index = profile ? indexOfVersion(shown.version) : -1;
    m_versionCombo->setCurrentIndex(qMax(index, 0));
    m_previousVersion = shown.version;

    m_pages->setCurrentIndex(pages::ProfileEditor);
    m_nameField->setFocus();
}

// One that stands too far down the manifest to be listed is offered at the end.
int MainWindow::indexOfVersion(const QString& id)
{
    const int index = m_versionCombo->findData(id);
    if (index >= 0)
        return index;
    const auto& versions = m_versions->versions();
    const auto version = std::ranges::find(versions, id, &GameVersion::id);
    if (version == versions.cend())
        return -1;
    foreign_text::addEntry(m_versionCombo, versionText(*version), id);
    return m_versionCombo->count() - 1;
}

void MainWindow::saveProfile()
{
    // Offline, before any manifest was kept, there is nothing to choose from: that is no choice.
    const bool choice = m_versionCombo->count() > 0;
    const LaunchProfile profile{
        foreign_text::valueOf(m_nameField).trimmed(),
        choice ? m_versionCombo->currentData().toString() : m_previousVersion, m_xmsSpin->value(),
        m_xmxSpin->value(), foreign_text::valueOf(m_extraArgsField).trimmed()};
    ProfileManager& manager = ProfileManager::get();
    QString error;
    if (!manager.save(profile, m_previousName, &error)) {
        foreign_text::show(m_errorLabel, error);
        m_errorLabel->show();
        return;
    }
    manager.setActiveProfile(profile.name);
    populateProfiles();
    m_pages->setCurrentIndex(pages::NewsList);
    const QString unwritten = unlessWritten(manager.unwrittenFile());
    if (!unwritten.isEmpty())
        m_statusLabel->showText(u"Profile saved" + unwritten);
}
