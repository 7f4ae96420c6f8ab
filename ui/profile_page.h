#pragma once

#include <QWidget>

class AuthClient;

// The signed-in player's account page. Owned by the main window; GUI thread.
class ProfilePage : public QWidget
{
    Q_OBJECT

public:
    ProfilePage(AuthClient* auth, QWidget* parent);

private:
    AuthClient* m_auth;
};
