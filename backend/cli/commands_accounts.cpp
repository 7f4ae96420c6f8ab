#include "backend/accounts/account_admin.h"
#include "backend/accounts/passwords.h"
#include "backend/cli/command.h"
#include "backend/cli/commands.h"
#include "backend/data/data_directory.h"

#include <QDateTime>
#include <QFile>

#include <sodium.h>

#include <cstdio>
#include <functional>

using namespace Qt::StringLiterals;

namespace {

int listAccounts(const QStringList& words)
{
    command::Options options(u"accounts list"_s, u"Lists the accounts."_s);
    options.add(u"match"_s, u"Only names that hold this text."_s, u"TEXT"_s);
    if (const auto over = options.parse(words))
        return *over;
    DataDirectory data(options.dataLocation());
    const auto accounts = AccountAdmin(data.database()).list(options.value(u"match"_s));
    for (const ListedAccount& account : accounts) {
        const auto created = QDateTime::fromSecsSinceEpoch(account.created).toUTC();
        command::print(u"%1  %2  %3  %4 sessions%5"_s.arg(
            account.name.leftJustified(16), account.uuid, created.toString(u"yyyy-MM-dd"),
            QString::number(account.sessions), account.disabled ? u"  disabled"_s : QString()));
    }
    return command::Success;
}

int setDisabled(const QStringList& words, bool disabled)
{
    command::Options options(disabled ? u"accounts disable"_s : u"accounts enable"_s,
                             disabled
                                 ? u"Ends an account's sessions and lets nobody log in to it."_s
                                 : u"Lets a disabled account log in again."_s);
    options.addWord(u"NAME"_s, u"The account's name."_s);
    if (const auto over = options.parse(words))
        return *over;
    DataDirectory data(options.dataLocation());
    const auto done = AccountAdmin(data.database()).setDisabled(options.word(), disabled);
    if (!done)
        return command::fail(done.refusal());
    command::print(
        u"The account %1 is %2."_s.arg(options.word(), disabled ? u"disabled"_s : u"enabled"_s));
    return command::Success;
}

int listSessions(const QStringList& words)
{
    command::Options options(u"accounts sessions"_s,
                             u"Lists when an account's sessions were last used, to the hour."_s);
    options.addWord(u"NAME"_s, u"The account's name."_s);
    if (const auto over = options.parse(words))
        return *over;
    DataDirectory data(options.dataLocation());
    const auto sessions = AccountAdmin(data.database()).sessions(options.word());
    if (!sessions)
        return command::fail(sessions.refusal());
    for (const qint64 lastUsed : *sessions)
        command::print(
            QDateTime::fromSecsSinceEpoch(lastUsed).toUTC().toString(u"yyyy-MM-dd hh:mm 'UTC'"_s));
    command::print(u"The account %1 has %2 sessions."_s.arg(options.word()).arg(sessions->size()));
    return command::Success;
}

int deleteAccount(const QStringList& words)
{
    command::Options options(
        u"accounts delete"_s,
        u"Deletes an account with its sessions, its skin and its model, for good. Anybody may "
        "register its name afterwards."_s);
    options.addWord(u"NAME"_s, u"The account's name."_s);
    if (const auto over = options.parse(words))
        return *over;
    DataDirectory data(options.dataLocation());
    const auto done = AccountAdmin(data.database()).remove(options.word(), data.store());
    if (!done)
        return command::fail(done.refusal());
    command::print(u"The account %1 is deleted."_s.arg(options.word()));
    return command::Success;
}

// Sixteen letters and digits that are hard to mix up.
QString generatePassword()
{
    constexpr auto alphabet = "abcdefghjkmnpqrstuvwxyz23456789"_L1;
    QString password;
    for (int i = 0; i < 16; ++i)
        password += alphabet[qsizetype(randombytes_uniform(uint32_t(alphabet.size())))];
    return password;
}

int resetPassword(const QStringList& words)
{
    command::Options options(u"accounts reset-password"_s,
                             u"Gives an account a new password, prints it once, and ends the "
                             "account's sessions."_s);
    options.addWord(u"NAME"_s, u"The account's name."_s);
    options.addFlag(u"stdin"_s,
                    u"Read the new password from standard input, one line, instead of "
                    "making one up. (Words on the command line show in process lists.)"_s);
    if (const auto over = options.parse(words))
        return *over;
    const bool given = options.has(u"stdin"_s);
    DataDirectory data(options.dataLocation());
    Passwords passwords;
    QString password;
    if (given) {
        QFile input;
        if (!input.open(stdin, QIODevice::ReadOnly))
            return command::fail(u"cannot read standard input"_s);
        password = QString::fromUtf8(input.readLine(4096)).remove(u'\n').remove(u'\r');
    } else {
        password = generatePassword();
    }
    const auto done =
        AccountAdmin(data.database()).resetPassword(options.word(), password, passwords);
    if (!done)
        return command::fail(done.refusal());
    command::print(given
                       ? u"The account %1 has a new password."_s.arg(options.word())
                       : u"The account %1 has the new password %2"_s.arg(options.word(), password));
    return command::Success;
}

} // namespace

namespace commands {

int accounts(const QStringList& words)
{
    const QString what = words.value(0);
    const QStringList rest = words.mid(1);
    if (what == "list"_L1)
        return listAccounts(rest);
    if (what == "disable"_L1)
        return setDisabled(rest, true);
    if (what == "enable"_L1)
        return setDisabled(rest, false);
    if (what == "reset-password"_L1)
        return resetPassword(rest);
    if (what == "sessions"_L1)
        return listSessions(rest);
    if (what == "delete"_L1)
        return deleteAccount(rest);
    return command::group(u"accounts"_s, u"list|sessions|disable|enable|reset-password|delete"_s,
                          what);
}

} // namespace commands
