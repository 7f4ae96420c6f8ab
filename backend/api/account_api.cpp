#include "backend/api/account_api.h"

#include "backend/accounts/accounts.h"
#include "backend/accounts/login_guard.h"
#include "backend/accounts/registration_guard.h"
#include "backend/api/router.h"

#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace {

// A name and a password of full length fit several times over.
constexpr qint64 bodyLimit = 8 * 1024;

// The wanted texts of a JSON object, in order; a refusal that names what is missing otherwise.
Outcome<QStringList> textsOf(const QByteArray& body, const QStringList& keys)
{
    QJsonParseError parsed;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parsed);
    if (parsed.error != QJsonParseError::NoError)
        return Refusal{400, u"The body is not valid JSON."_s};
    if (!document.isObject())
        return Refusal{400, u"The body must be a JSON object."_s};
    QStringList texts;
    for (const QString& key : keys) {
        const QJsonValue value = document.object().value(key);
        if (!value.isString())
            return Refusal{400, u"The body must hold the text \"%1\"."_s.arg(key)};
        texts.append(value.toString());
    }
    return texts;
}

Outcome<Reply> sessionReply(const Outcome<Session>& session)
{
    if (!session)
        return session.refusal();
    return reply::json({{u"token"_s, session->token},
                        {u"uuid"_s, session->account.uuid},
                        {u"username"_s, session->account.name}});
}

Reply accountReply(const Account& account)
{
    return reply::json({{u"uuid"_s, account.uuid}, {u"username"_s, account.name}});
}

Outcome<Reply> registerAccount(RegistrationGuard& guard, const Call& call)
{
    const auto texts = textsOf(call.body, {u"username"_s, u"password"_s});
    if (!texts)
        return texts.refusal();
    return sessionReply(guard.registerAccount(texts->at(0), texts->at(1), call.address));
}

Outcome<Reply> login(LoginGuard& guard, const Call& call)
{
    const auto texts = textsOf(call.body, {u"username"_s, u"password"_s});
    if (!texts)
        return texts.refusal();
    return sessionReply(guard.login(texts->at(0), texts->at(1), call.address));
}

Outcome<Reply> rename(Accounts& accounts, const Call& call)
{
    const auto texts = textsOf(call.body, {u"username"_s});
    if (!texts)
        return texts.refusal();
    const auto renamed = accounts.rename(call.account, texts->at(0));
    if (!renamed)
        return renamed.refusal();
    return accountReply(*renamed);
}

Outcome<Reply> logout(Accounts& accounts, const Call& call)
{
    const auto ended = accounts.logout(call.token);
    if (!ended)
        return ended.refusal();
    return reply::json({});
}

} // namespace

namespace account_api {

void addRoutes(Router& router, Accounts& accounts, RegistrationGuard& registration,
               LoginGuard& guard)
{
    const QByteArray json = "application/json";
    router.add({.method = "POST",
                .pattern = "/auth/register",
                .handler =
                    [&registration](const Call& call, const QByteArray&) {
                        return registerAccount(registration, call);
                    },
                .work = Work::Registration,
                .bodyType = json,
                .bodyLimit = bodyLimit});
    router.add(
        {.method = "POST",
         .pattern = "/auth/login",
         .handler = [&guard](const Call& call, const QByteArray&) { return login(guard, call); },
         .work = Work::Login,
         .bodyType = json,
         .bodyLimit = bodyLimit});
    router.add(
        {.method = "GET",
         .pattern = "/auth/validate",
         .handler = [](const Call& call, const QByteArray&) { return accountReply(call.account); },
         .needsSession = true});
    router.add({.method = "POST",
                .pattern = "/auth/logout",
                .handler = [&accounts](const Call& call,
                                       const QByteArray&) { return logout(accounts, call); },
                .work = Work::Writing,
                .needsSession = true});
    router.add({.method = "POST",
                .pattern = "/auth/rename",
                .handler = [&accounts](const Call& call,
                                       const QByteArray&) { return rename(accounts, call); },
                .work = Work::Writing,
                .needsSession = true,
                .bodyType = json,
                .bodyLimit = bodyLimit});
}

} // namespace account_api
