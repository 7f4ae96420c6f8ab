#include "app/settings.h"
#include "ui/elided_label.h"
#include "ui/foreign_text.h"
#include "ui/main_window.h"
#include "ui/page_keys.h"
#include "ui/pages.h"
#include "versions/version_manager.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

// The fields take the stored values here and never again: edits that were cancelled stay until the
// next start.
void MainWindow::buildSettingsPage()
{
    m_settingsPage = new QWidget(this);
    m_pages->addWidget(m_settingsPage);
    auto* layout = pages::makeLayout(m_settingsPage);
    auto* header = new QLabel(QStringLiteral("Settings"), m_settingsPage);
    header->setObjectName(QStringLiteral("settingsHeader"));
    pages::makeHeader(header, 14);
    layout->addWidget(header);

    auto* form = new QFormLayout;
    layout->addLayout(form);
    const auto addRow = [this, form](const QString& label, const QString& name,
                                     const QString& stored) {
        auto* field = new QLineEdit(m_settingsPage);
        foreign_text::fill(field, stored);
        field->setObjectName(name);
        form->addRow(label, field); // own words
        return field;
    };
    const Settings& settings = Settings::get();
    m_manifestUrlField = addRow(QStringLiteral("Manifest URL:"), QStringLiteral("manifestUrlField"),
                                settings.manifestUrl());
    m_serverUrlField = addRow(QStringLiteral("Auth server:"), QStringLiteral("serverUrlField"),
                              settings.serverUrl());
    m_javaPathField =
        addRow(QStringLiteral("Java path:"), QStringLiteral("javaPathField"), settings.javaPath());
    m_gameDirField = addRow(QStringLiteral("Game directory:"), QStringLiteral("gameDirField"),
                            settings.gameDir());

    layout->addStretch();
    auto* buttons = new QHBoxLayout;
    layout->addLayout(buttons);
    buttons->addStretch();
    auto* save = new QPushButton(QStringLiteral("Save"), m_settingsPage);
    save->setObjectName(QStringLiteral("settingsSaveButton"));
    connect(save, &QPushButton::clicked, this, &MainWindow::saveSettings);
    buttons->addWidget(save);
    auto* cancel = new QPushButton(QStringLiteral("Cancel"), m_settingsPage);
    cancel->setObjectName(QStringLiteral("settingsCancelButton"));
    connect(cancel, &QPushButton::clicked, this,
            [this] { m_pages->setCurrentIndex(pages::NewsList); });
    buttons->addWidget(cancel);
    new PageKeys(
        m_settingsPage, [this] { saveSettings(); },
        [this] { m_pages->setCurrentIndex(pages::NewsList); });
}

// Nothing is validated: an empty field is stored empty.
void MainWindow::saveSettings()
{
    Settings& settings = Settings::get();
    settings.setManifestUrl(foreign_text::valueOf(m_manifestUrlField).trimmed());
    settings.setServerUrl(foreign_text::valueOf(m_serverUrlField).trimmed());
    settings.setJavaPath(foreign_text::valueOf(m_javaPathField).trimmed());
    settings.setGameDir(foreign_text::valueOf(m_gameDirField).trimmed());
    // A new manifest address takes effect at once; the answer replaces the status below.
    m_versions->refreshManifest();
    m_pages->setCurrentIndex(pages::NewsList);
    const QString unwritten = unlessWritten(settings.unwrittenFile());
    m_statusLabel->showText(QStringLiteral("Settings saved") + unwritten);
    m_unwrittenSettings =
        unwritten.isEmpty() ? unwritten : QString(u"; settings saved" + unwritten);
}
