#include "ui/profile_page.h"

ProfilePage::ProfilePage(AuthClient* auth, QWidget* parent) : QWidget(parent), m_auth(auth) {}
