#include "app/settings.h"
#include "services/account_session.h"
#include "services/auth_client.h"
#include "ui/console.h"
#include "ui/elided_label.h"
#include "ui/foreign_text.h"
#include "ui/main_window.h"
#include "ui/nav_button.h"
#include "ui/page_keys.h"
#include "ui/pages.h"

#include <QHBoxLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

// Without a button group: syncNavButtons alone checks and unchecks, after the page has changed.
void MainWindow::buildSidebar()
{
    m_sidebar = new QWidget(this);
    m_sidebar->setObjectName(QStringLiteral("sidebar"));
    m_sidebar->setFixedWidth(176);
    auto* column = new QVBoxLayout(m_sidebar);
    column->setContentsMargins(10, 12, 10, 12);
    column->setSpacing(4);

    const auto addButton = [this, column](const QString& text) {
        auto* button = new NavButton(text, m_sidebar); // own words
        column->addWidget(button);
        return button;
    };
    m_newsButton = addButton(QStringLiteral("News"));
    m_newsButton->setChecked(true);
    connect(m_newsButton, &QToolButton::clicked, this,
            [this] { m_pages->setCurrentIndex(pages::NewsList); });
    m_profilesButton = addButton(QStringLiteral("Profiles"));
    connect(m_profilesButton, &QToolButton::clicked, this, &MainWindow::showProfilesPage);
    m_profileButton = addButton(QStringLiteral("Profile"));
    m_profileButton->hide();
    connect(m_profileButton, &QToolButton::clicked, this,
            [this] { m_pages->setCurrentIndex(pages::Account); });
    m_settingsButton = addButton(QStringLiteral("Settings"));
    connect(m_settingsButton, &QToolButton::clicked, this,
            [this] { m_pages->setCurrentWidget(m_settingsPage); });

    column->addStretch(1);
    buildSignInForm(column);

    m_consoleButton = new QPushButton(QStringLiteral("Console"), m_sidebar);
    m_consoleButton->setObjectName(QStringLiteral("consoleButton"));
    m_consoleButton->setToolTip(QStringLiteral("Toggle debug console (game stdout/stderr)"));
    connect(m_consoleButton, &QPushButton::clicked, this,
            [this] { m_console->setVisible(m_console->isHidden()); });
    column->addWidget(m_consoleButton);
}

void MainWindow::buildSignInForm(QVBoxLayout* column)
{
    m_usernameField = new QLineEdit(m_sidebar);
    m_usernameField->setObjectName(QStringLiteral("usernameField"));
    m_usernameField->setAccessibleName(QStringLiteral("Username"));
    m_usernameField->setPlaceholderText(QStringLiteral("Username"));
    column->addWidget(m_usernameField);
    m_passwordField = new QLineEdit(m_sidebar);
    m_passwordField->setObjectName(QStringLiteral("passwordField"));
    m_passwordField->setAccessibleName(QStringLiteral("Password"));
    m_passwordField->setPlaceholderText(QStringLiteral("Password"));
    m_passwordField->setEchoMode(QLineEdit::Password);
    PageKeys::takeReturnOnce(m_passwordField);
    connect(m_passwordField, &QLineEdit::returnPressed, this, &MainWindow::onLoginClicked);
    column->addWidget(m_passwordField);

    auto* row = new QHBoxLayout;
    row->setSpacing(4);
    column->addLayout(row);
    m_loginButton = new QPushButton(QStringLiteral("Login"), m_sidebar);
    m_loginButton->setObjectName(QStringLiteral("loginButton"));
    connect(m_loginButton, &QPushButton::clicked, this, &MainWindow::onLoginClicked);
    row->addWidget(m_loginButton);
    m_registerButton = new QPushButton(QStringLiteral("Register"), m_sidebar);
    m_registerButton->setObjectName(QStringLiteral("registerButton"));
    connect(m_registerButton, &QPushButton::clicked, this, &MainWindow::onRegisterClicked);
    row->addWidget(m_registerButton);

    m_authLabel = new QLabel(m_sidebar);
    m_authLabel->setObjectName(QStringLiteral("authLabel"));
    m_authLabel->setTextFormat(Qt::RichText);
    m_authLabel->setWordWrap(true);
    m_authLabel->hide();
    column->addWidget(m_authLabel);
    m_logoutButton = new QPushButton(QStringLiteral("Logout"), m_sidebar);
    m_logoutButton->setObjectName(QStringLiteral("logoutButton"));
    m_logoutButton->hide();
    connect(m_logoutButton, &QPushButton::clicked, this, &MainWindow::onLogoutClicked);
    column->addWidget(m_logoutButton);
}

// False, with the reason in the status line, when a field is empty. The password is taken as typed.
bool MainWindow::readCredentials(QString& username, QString& password)
{
    username = m_usernameField->text().trimmed();
    password = m_passwordField->text();
    const bool complete = !username.isEmpty() && !password.isEmpty();
    if (!complete)
        m_statusLabel->showText(QStringLiteral("Enter username and password"));
    return complete;
}

void MainWindow::onLoginClicked()
{
    QString username;
    QString password;
    if (!readCredentials(username, password))
        return;
    setBusy(true, QStringLiteral("Logging in..."));
    m_auth->login(username, password);
}

// Answered by the same signals as a login.
void MainWindow::onRegisterClicked()
{
    QString username;
    QString password;
    if (!readCredentials(username, password))
        return;
    setBusy(true, QStringLiteral("Registering..."));
    m_auth->registerAccount(username, password);
}

void MainWindow::onLogoutClicked()
{
    const QString token = Settings::get().authToken();
    if (token.isEmpty())
        forgetSession();
    else
        m_auth->logout(token); // cleared when it answers
}

void MainWindow::onLoginSucceeded(const QString& username, const QString& uuid,
                                  const QString& token)
{
    Settings::get().setAuth(token, username, uuid);
    updateAuthUi();
    m_statusLabel->showText(u"Logged in as " + username +
                            unlessWritten(Settings::get().unwrittenFile()));
}

void MainWindow::forgetSession()
{
    Settings::get().clearAuth();
    updateAuthUi();
}

void MainWindow::updateAuthUi()
{
    const QString token = Settings::get().authToken();
    const bool signedIn = !token.isEmpty();
    const QWidget* keyboard = focusWidget();
    m_auth->session()->follow(token);
    for (QWidget* widget : std::initializer_list<QWidget*>{m_usernameField, m_passwordField,
                                                           m_loginButton, m_registerButton})
        widget->setVisible(!signedIn);
    for (QWidget* widget : std::initializer_list<QWidget*>{m_authLabel, m_logoutButton,
                                                           m_profileButton, m_playButton})
        widget->setVisible(signedIn);
    if (signedIn) {
        foreign_text::showName(m_authLabel, QStringLiteral("Playing as <b>%1</b>"),
                               Settings::get().authUsername());
        m_passwordField->clear();
    }
    // Ends a sign-in's busy state and keeps its message.
    setBusy(false, m_statusLabel->text());
    placeKeyboard(keyboard, signedIn);
}
