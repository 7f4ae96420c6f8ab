#include "tests/support/profile_page_stage.h"

#include "app/settings.h"
#include "preview/open_gl.h"
#include "preview/skin_preview_3d.h"
#include "tests/support/file_dialog_script.h"
#include "tests/support/throwaway_home.h"
#include "ui/style_sheet.h"

#include <QApplication>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPushButton>
#include <QSurfaceFormat>
#include <QTest>

const QString ProfilePageStage::uuid = QStringLiteral("3b241101-e2bb-4255-8caf-4136c566a962");
const QByteArray ProfilePageStage::skinPath = "/skins/3b241101-e2bb-4255-8caf-4136c566a962.png";
const QByteArray ProfilePageStage::modelPath = "/models/3b241101-e2bb-4255-8caf-4136c566a962.json";
const QByteArray ProfilePageStage::twoCubes =
    R"({"elements":[{"box_uv":true,"from":[0,0,0],"to":[8,8,8],"uuid":"a"},)"
    R"({"box_uv":true,"from":[0,9,0],"to":[8,16,8],"uuid":"b"}],"outliner":["a","b"]})";

void ProfilePageStage::prepareProgram()
{
    throwaway_home::enter();
    QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
    QSurfaceFormat::setDefaultFormat(open_gl::format());
}

void ProfilePageStage::prepareStyle()
{
    qApp->setStyleSheet(launcherStyleSheet());
}

ProfilePageStage::ProfilePageStage()
{
    Settings::get().setServerUrl(server.origin());
}

void ProfilePageStage::signIn()
{
    Settings::get().setAuth(QStringLiteral("t0ken"), QStringLiteral("Ada"), uuid);
}

void ProfilePageStage::open()
{
    page = std::make_unique<ProfilePage>(&auth, nullptr);
    page->resize(900, 700);
    page->show();
    QTRY_VERIFY(preview()); // made after the first show
}

void ProfilePageStage::openSignedIn()
{
    signIn();
    open();
    QTRY_COMPARE(text("modelStatus"), QStringLiteral("No custom model (default character)."));
    QTRY_COMPARE(text("skinStatus"), QStringLiteral("No skin uploaded (default look)."));
    server.forgetRequests();
}

QLabel* ProfilePageStage::label(const char* name) const
{
    return page->findChild<QLabel*>(QLatin1StringView(name));
}

QString ProfilePageStage::text(const char* name) const
{
    return label(name)->text();
}

QLineEdit* ProfilePageStage::nameField() const
{
    return page->findChild<QLineEdit*>();
}

SkinPreview3D* ProfilePageStage::preview() const
{
    return page->findChild<SkinPreview3D*>();
}

bool ProfilePageStage::hasAskedNothing() const
{
    const auto* network = page->findChild<QNetworkAccessManager*>();
    return server.requests().isEmpty() && network->findChildren<QNetworkReply*>().isEmpty();
}

void ProfilePageStage::click(const QByteArray& text) const
{
    for (QPushButton* button : page->findChildren<QPushButton*>()) {
        if (button->text().toUtf8() == text)
            return QTest::mouseClick(button, Qt::LeftButton);
    }
    QFAIL(text.constData());
}

QString ProfilePageStage::fileWith(const QString& name, const QByteArray& content) const
{
    QFile file(files.filePath(name));
    (void)file.open(QIODevice::WriteOnly);
    file.write(content);
    return file.fileName();
}

void ProfilePageStage::upload(const char* button, const QString& path) const
{
    const FileDialogScript script(path);
    click(button);
    QVERIFY(script.wasShown());
}
