#pragma once

#include <QObject>
#include <QString>

#include <memory>

// The session that requests to the account server belong to. Its end aborts them and drops their
// answers, so that nothing of one account ever reaches the next. Owned by the auth client, and
// followed by the window and the account page, whichever hears first; GUI thread. As long as
// nobody follows a token there is one session that does not end.
class AccountSession : public QObject
{
    Q_OBJECT

public:
    explicit AccountSession(QObject* parent);
    ~AccountSession() override;

    // From now on the session is that of this token; empty: nobody is signed in. The same token
    // again, as after a rename, changes nothing. Ends the session before.
    void follow(const QString& token);

    // The http::Exchange::context of the session's requests.
    QObject* context() const { return m_context.get(); }

    // A context for one kind of request, in place of the one given, which ends: of its requests
    // only the newest is answered. Null at first; owned by the session.
    QObject* renew(QObject* earlier);

Q_SIGNALS:
    // Its requests are aborted; the next session stands already.
    void ended();

private:
    QString m_token;
    std::unique_ptr<QObject> m_context;
};
