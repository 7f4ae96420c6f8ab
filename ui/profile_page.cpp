#include "ui/profile_page.h"

#include "app/settings.h"
#include "preview/model_import.h"
#include "preview/open_gl.h"
#include "preview/skin_preview_3d.h"
#include "services/account_session.h"
#include "services/auth_client.h"
#include "ui/focus_reveal.h"
#include "ui/foreign_text.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QNetworkAccessManager>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>
#include <QWindow>

#include <utility>

namespace {

// Plain text and as narrow as need be: what it shows may come from a server.
QLabel* hintLabel(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent); // own words
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    label->setMinimumWidth(1);
    label->setStyleSheet(
        QStringLiteral("color:#8b96ad; font-size:12px; border:none; background:transparent;"));
    return label;
}

QFrame* makeCard(const QString& title, QVBoxLayout** bodyLayout, QWidget* parent)
{
    auto* card = new QFrame(parent);
    card->setObjectName(QStringLiteral("card"));
    card->setStyleSheet(QStringLiteral("QFrame#card { background:#111624; border:1px solid "
                                       "#2c3a5e; border-radius:10px; }"));
    auto* layout = new QVBoxLayout(card);
    layout->setContentsMargins(16, 12, 16, 16);
    auto* heading = new QLabel(title, card); // own words
    heading->setStyleSheet(QStringLiteral("font-size:15px; font-weight:600; color:#e8ecf4; "
                                          "border:none; background:transparent;"));
    layout->addWidget(heading);
    *bodyLayout = new QVBoxLayout;
    (*bodyLayout)->setSpacing(8);
    layout->addLayout(*bodyLayout);
    return card;
}

// The page scrolls rather than makes the window grow.
QWidget* makeScrolledContent(QWidget* page)
{
    auto* outer = new QVBoxLayout(page);
    outer->setContentsMargins(0, 0, 0, 0);
    auto* area = new QScrollArea(page);
    area->setFrameShape(QFrame::NoFrame);
    area->setWidgetResizable(true);
    area->setFocusPolicy(Qt::NoFocus); // the fields inside take it, and are scrolled to
    auto* content = new QWidget;
    area->setWidget(content);
    outer->addWidget(area);
    return content;
}

// Qt makes the native window anew when its first OpenGL widget arrives, and leaves its place to the
// window manager. The new one stands where the old one stood, maximized if that was.
class WindowPlace
{
public:
    explicit WindowPlace(QWidget* window)
        : m_window(window)
        , m_geometry(window->normalGeometry())
        , m_states(window->windowState())
        , m_id(window->internalWinId())
    {
        window->setAttribute(Qt::WA_Moved);
    }

    void restore() const
    {
        QWindow* handle = m_window->windowHandle();
        if (!handle || m_window->internalWinId() == m_id)
            return;
        // A maximized window would take the geometry for its maximized one.
        handle->setWindowStates(Qt::WindowNoState);
        handle->setGeometry(m_geometry);
        handle->setWindowStates(m_states);
    }

private:
    QWidget* m_window;
    QRect m_geometry;
    Qt::WindowStates m_states;
    WId m_id;
};

} // namespace

ProfilePage::ProfilePage(AuthClient* auth, QWidget* parent)
    : QWidget(parent)
    , m_auth(auth)
    , m_network(new QNetworkAccessManager(this))
    , m_uuid(Settings::get().authUuid())
    , m_token(Settings::get().authToken())
{
    buildUi();
    connect(m_auth->session(), &AccountSession::ended, this, &ProfilePage::forgetUploads);
    m_auth->session()->follow(m_token);
    if (!m_token.isEmpty())
        takeSession(Settings::get().authUsername(), m_uuid, m_token);
    connect(m_auth, &AuthClient::loginSucceeded, this, &ProfilePage::takeSession);
    connect(m_auth, &AuthClient::loggedOut, this, [this] {
        forgetSession();
        m_skinStatus->clear();
        m_modelStatus->clear();
        m_username->clear();
    });
    connect(m_auth, &AuthClient::validationResult, this, [this](bool valid) {
        if (!valid)
            forgetSession();
    });
}

// Widgets are made in the order of the Tab key.
void ProfilePage::buildUi()
{
    QWidget* content = makeScrolledContent(this);
    focus_reveal::watch(content);
    auto* page = new QVBoxLayout(content);
    page->setContentsMargins(24, 20, 24, 20);
    buildHeader(page);
    buildAccountCard(page);
    buildAppearanceCard(page);
    page->addStretch();
}

void ProfilePage::buildHeader(QVBoxLayout* page)
{
    QWidget* content = page->parentWidget();
    auto* row = new QHBoxLayout;
    auto* title = new QLabel(QStringLiteral("Profile"), content);
    title->setStyleSheet(QStringLiteral("font-size:20px; font-weight:700;"));
    auto* refresh = new QPushButton(QStringLiteral("Refresh"), content);
    refresh->setToolTip(QStringLiteral("Re-check what the auth server has for this account"));
    connect(refresh, &QPushButton::clicked, this, &ProfilePage::refreshAppearance);
    row->addWidget(title);
    row->addStretch();
    row->addWidget(refresh);
    page->addLayout(row);
}

void ProfilePage::buildAccountCard(QVBoxLayout* page)
{
    QVBoxLayout* body = nullptr;
    QFrame* card = makeCard(QStringLiteral("Account"), &body, page->parentWidget());
    auto* row = new QHBoxLayout;
    auto* label = new QLabel(QStringLiteral("Username"), card);
    label->setStyleSheet(QStringLiteral("border:none; background:transparent;"));
    m_username = new QLineEdit(card);
    m_username->setObjectName(QStringLiteral("accountName"));
    m_username->setFixedWidth(180);
    label->setBuddy(m_username);
    auto* change = new QPushButton(QStringLiteral("Change"), card);
    change->setFixedWidth(90);
    connect(change, &QPushButton::clicked, this, &ProfilePage::onRenameClicked);
    row->addWidget(label);
    row->addWidget(m_username);
    row->addWidget(change);
    row->addStretch();
    body->addLayout(row);

    m_renameStatus = hintLabel(QString(), card);
    m_renameStatus->setObjectName(QStringLiteral("renameStatus"));
    body->addWidget(m_renameStatus);
    m_uuidLabel = hintLabel(QString(), card);
    m_uuidLabel->setObjectName(QStringLiteral("uuid"));
    m_uuidLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    body->addWidget(m_uuidLabel);
    body->addWidget(hintLabel(
        QStringLiteral("Your uuid is permanent - skins and models stay with it across renames."),
        card));
    page->addWidget(card);
}

void ProfilePage::buildAppearanceCard(QVBoxLayout* page)
{
    QVBoxLayout* body = nullptr;
    QFrame* card = makeCard(QStringLiteral("Appearance"), &body, page->parentWidget());
    auto* row = new QHBoxLayout;
    row->setSpacing(16);
    m_previewPlace = hintLabel(QString(), card);
    m_previewPlace->setAlignment(Qt::AlignCenter);
    m_previewPlace->setMinimumSize(280, 320); // the preview's own
    row->addWidget(m_previewPlace);
    auto* column = new QVBoxLayout;
    column->setSpacing(8);
    row->addLayout(column);
    body->addLayout(row);

    const auto addButton = [&](const QString& text, void (ProfilePage::*slot)()) {
        auto* button = new QPushButton(text, card); // own words
        connect(button, &QPushButton::clicked, this, slot);
        column->addWidget(button);
    };
    const auto addStatus = [&](const QString& name) {
        QLabel* status = hintLabel(QString(), card);
        status->setObjectName(name);
        column->addWidget(status);
        return status;
    };
    m_dragHint = hintLabel(QStringLiteral("Drag to rotate, scroll to zoom."), card);
    column->addWidget(m_dragHint);
    addButton(QStringLiteral("Change skin..."), &ProfilePage::onUploadSkin);
    m_skinStatus = addStatus(QStringLiteral("skinStatus"));
    addButton(QStringLiteral("Change model..."), &ProfilePage::onUploadModel);
    m_modelStatus = addStatus(QStringLiteral("modelStatus"));
    column->addWidget(hintLabel(
        QStringLiteral("Skin: 64x64 or 128x128 PNG (standard MC skins work). Model: BlockBench "
                       ".bbmodel with box UV; groups named head, arm_l, arm_r, leg_l, leg_r "
                       "animate."),
        card));
    column->addStretch();
    page->addWidget(card);
}

void ProfilePage::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    // Later, not from within the window's own show, which is busy with the native window.
    QMetaObject::invokeMethod(this, &ProfilePage::buildPreview, Qt::QueuedConnection);
}

void ProfilePage::buildPreview()
{
    if (m_preview || !m_previewPlace->text().isEmpty())
        return; // made, or found impossible, at an earlier show
    if (!open_gl::isUsable()) {
        m_previewPlace->setText(QStringLiteral("3D preview needs OpenGL 3.3."));
        m_dragHint->hide();
        return;
    }
    QWidget* card = m_previewPlace->parentWidget();
    const WindowPlace place(window());
    m_preview = new SkinPreview3D(card);
    m_preview->setAccessibleName(QStringLiteral("Character preview"));
    m_preview->setModel({}); // the default figure stands before any reply
    delete card->layout()->replaceWidget(m_previewPlace, m_preview);
    delete std::exchange(m_previewPlace, nullptr);
    place.restore();
    if (m_model)
        m_preview->setImportedModel(*m_model);
    describeModel();
    if (!m_skin.isNull())
        m_preview->setSkin(std::exchange(m_skin, {}));
}

// Without a preview yet, the last bytes wait for it.
void ProfilePage::showSkin(const QByteArray& png)
{
    if (m_preview)
        m_preview->setSkin(png);
    else
        m_skin = png;
}

// Read once, whether there is a preview or not: the page shows what was found in it.
qsizetype ProfilePage::showModel(const QByteArray& json)
{
    m_model = std::make_shared<const ImportedModel>(importModel(json));
    if (m_preview)
        m_preview->setImportedModel(*m_model);
    describeModel();
    return m_model->elements;
}

// The status line beside the button counts the file's elements; that the picture shows something
// else is told where the picture is.
void ProfilePage::describeModel()
{
    QString text;
    if (m_model && !m_model->refusal.isEmpty())
        text = QStringLiteral("This model cannot be shown: %1; the default character stands in.")
                   .arg(m_model->refusal);
    else if (m_model && m_model->hasLeftBoxesOut)
        text = QStringLiteral("Only the first %1 boxes of this model are shown; the others would "
                              "take too long to draw.")
                   .arg(m_model->model.boxCount());
    QWidget* place = m_preview ? static_cast<QWidget*>(m_preview) : m_previewPlace;
    place->setToolTip(text);               // own words
    place->setAccessibleDescription(text); // own words
}

void ProfilePage::takeSession(const QString& username, const QString& uuid, const QString& token)
{
    m_uuid = uuid;
    m_token = token;
    m_auth->session()->follow(token);
    foreign_text::fill(m_username, username);
    foreign_text::show(m_uuidLabel, QStringLiteral("UUID: ") + uuid);
    refreshAppearance();
}

void ProfilePage::forgetSession()
{
    m_uuid.clear();
    m_token.clear();
    m_auth->session()->follow({});
    m_uuidLabel->clear();
}
