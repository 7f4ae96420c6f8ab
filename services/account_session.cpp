#include "services/account_session.h"

AccountSession::AccountSession(QObject* parent)
    : QObject(parent), m_context(std::make_unique<QObject>())
{
}

AccountSession::~AccountSession() = default;

void AccountSession::follow(const QString& token)
{
    if (token == m_token)
        return;
    m_token = token;
    m_context = std::make_unique<QObject>();
    Q_EMIT ended();
}

QObject* AccountSession::renew(QObject* earlier)
{
    delete earlier;
    return new QObject(m_context.get());
}
