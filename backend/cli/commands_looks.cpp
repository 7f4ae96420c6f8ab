#include "backend/accounts/account_admin.h"
#include "backend/cli/command.h"
#include "backend/cli/commands.h"
#include "backend/data/data_directory.h"
#include "backend/looks/appearance.h"

using namespace Qt::StringLiterals;

namespace {

QString namesOfLooks()
{
    QStringList names;
    for (const Look& look : allLooks)
        names += look.name;
    return names.join(u'|');
}

int removeLooks(const QStringList& words)
{
    command::Options options(u"looks remove"_s,
                             u"Takes an account's skin and model away. It may upload others."_s);
    options.addWord(u"NAME"_s, u"The account's name."_s);
    options.add(u"only"_s, u"Only this one of them."_s, namesOfLooks());
    if (const auto over = options.parse(words))
        return *over;
    const QString only = options.value(u"only"_s);
    if (!only.isEmpty() && !namesOfLooks().split(u'|').contains(only))
        return command::wrongUsage(u"--only must be one of %1."_s.arg(namesOfLooks()),
                                   u"looks remove"_s);
    DataDirectory data(options.dataLocation());
    const auto account = AccountAdmin(data.database()).uuidOf(options.word());
    if (!account)
        return command::fail(account.refusal());
    Appearance appearance(data.database(), data.store(), {});
    for (const Look& look : allLooks) {
        if (!only.isEmpty() && only != look.name)
            continue;
        command::print(appearance.remove(look, *account)
                           ? u"The account %1 has no %2 any more."_s.arg(options.word(), look.name)
                           : u"The account %1 had no %2."_s.arg(options.word(), look.name));
    }
    return command::Success;
}

} // namespace

namespace commands {

int looks(const QStringList& words)
{
    const QString what = words.value(0);
    if (what == "remove"_L1)
        return removeLooks(words.mid(1));
    return command::group(u"looks"_s, u"remove"_s, what);
}

} // namespace commands
