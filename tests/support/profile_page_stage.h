#pragma once

#include "services/auth_client.h"
#include "tests/support/http_server.h"
#include "ui/profile_page.h"

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

#include <memory>

class QLabel;
class QLineEdit;
class SkinPreview3D;

// The account page with all that it talks to, worked by clicks. The server is the account server
// from the start; answers that are none are 404.
struct ProfilePageStage
{
    static const QString uuid;
    static const QByteArray skinPath; // of that uuid
    static const QByteArray modelPath;
    static const QByteArray twoCubes; // a block model

    // For the test's initMain and initTestCase.
    static void prepareProgram();
    static void prepareStyle();

    HttpServer server;
    AuthClient auth;
    std::unique_ptr<ProfilePage> page;
    QTemporaryDir files;

    ProfilePageStage();

    // Before open: a session as an earlier run stored it, of "Ada" with the token "t0ken".
    static void signIn();
    // Made, shown, and the preview stands.
    void open();
    // Opened, and the answers to its first requests have arrived: neither skin nor model.
    void openSignedIn();

    QLabel* label(const char* name) const;
    QString text(const char* name) const;
    QLineEdit* nameField() const;
    SkinPreview3D* preview() const;

    // Neither before nor now: no request has arrived, and none is on its way.
    bool hasAskedNothing() const;

    void click(const QByteArray& text) const;
    QString fileWith(const QString& name, const QByteArray& content) const;
    // Chooses the file in the dialog that the button opens.
    void upload(const char* button, const QString& path) const;
};
