#include "profiles/profile_manager.h"
#include "ui/main_window.h"
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

namespace {

QSpinBox* addHeapSpin(QHBoxLayout* row, const QString& label, const QString& name, QWidget* page)
{
    auto* caption = new QLabel(label, page);
    auto* spin = new QSpinBox(page);
    spin->setObjectName(name);
    spin->setAccessibleName(label);
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
    m_pages->addWidget(page);
}

QFormLayout* MainWindow::buildEditorForm(QWidget* page)
{
    auto* form = new QFormLayout;
    m_nameField = new QLineEdit(page);
    m_nameField->setObjectName(QStringLiteral("nameField"));
    form->addRow(QStringLiteral("Name:"), m_nameField);

    m_versionCombo = new QComboBox(page);
    m_versionCombo->setObjectName(QStringLiteral("versionCombo"));
    m_versionCombo->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    m_versionCombo->setMinimumContentsLength(20);
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
    m_nameField->setText(shown.name);
    m_xmsSpin->setValue(shown.xms);
    m_xmxSpin->setValue(shown.xmx);
    m_extraArgsField->setText(shown.extraJvmArgs);
    m_errorLabel->hide();

    m_versionCombo->clear();
    for (const GameVersion& version : m_versions->versions())
        m_versionCombo->addItem(versionText(version), version.id);
    // A version that the manifest no longer lists leaves the first one selected.
    const int index = profile ? m_versionCombo->findData(profile->version) : -1;
    m_versionCombo->setCurrentIndex(qMax(index, 0));

    m_pages->setCurrentIndex(pages::ProfileEditor);
    m_nameField->setFocus();
}

void MainWindow::saveProfile()
{
    const LaunchProfile profile{m_nameField->text().trimmed(),
                                m_versionCombo->currentData().toString(), m_xmsSpin->value(),
                                m_xmxSpin->value(), m_extraArgsField->text().trimmed()};
    ProfileManager& manager = ProfileManager::get();
    QString error;
    if (!manager.save(profile, m_previousName, &error)) {
        m_errorLabel->setText(error);
        m_errorLabel->show();
        return;
    }
    manager.setActiveProfile(profile.name);
    populateProfiles();
    m_pages->setCurrentIndex(pages::NewsList);
}
