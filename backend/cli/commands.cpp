#include "backend/cli/commands.h"

#include "backend/cli/command.h"

#include <QHash>

using namespace Qt::StringLiterals;

namespace {

constexpr auto helpText =
    "Usage: tessellan-backend COMMAND [options]\n"
    "\n"
    "The server of the Tessellan launcher: accounts, manifest, game files.\n"
    "\n"
    "Commands:\n"
    "  serve                              Run the server.\n"
    "  publish version|news|launcher|runtime\n"
    "                                     Offer something to the players.\n"
    "  withdraw version|news|launcher|runtime\n"
    "                                     Offer it no more.\n"
    "  list                               Show what is published.\n"
    "  accounts list|sessions|disable|enable|reset-password|delete\n"
    "                                     Look after accounts.\n"
    "  looks remove                       Take a skin or model away.\n"
    "  check                              Verify everything that is stored.\n"
    "  backup                             Copy everything, while the server runs.\n"
    "\n"
    "Every command explains itself: tessellan-backend COMMAND --help\n"
    "Exit codes: 0 done, 1 failed, 2 the command line is wrong."_L1;

int dispatch(const QStringList& words)
{
    static const QHash<QString, int (*)(const QStringList&)> all{
        {u"serve"_s, &commands::serve},       {u"publish"_s, &commands::publish},
        {u"withdraw"_s, &commands::withdraw}, {u"list"_s, &commands::list},
        {u"accounts"_s, &commands::accounts}, {u"looks"_s, &commands::looks},
        {u"check"_s, &commands::check},       {u"backup"_s, &commands::backup}};
    const QString name = words.value(0);
    if (const auto found = all.constFind(name); found != all.constEnd())
        return (*found)(words.mid(1));
    if (name == "--help"_L1 || name == "help"_L1) {
        command::print(helpText);
        return command::Success;
    }
    return command::wrongUsage(name.isEmpty() ? u"A command is missing."_s
                                              : u"There is no command \"%1\"."_s.arg(name),
                               {});
}

} // namespace

namespace commands {

int run(const QStringList& words)
{
    try {
        return dispatch(words);
    } catch (const Fault& fault) {
        return command::fail(fault.text());
    } catch (const std::exception& error) {
        return command::fail(QString::fromUtf8(error.what()));
    }
}

} // namespace commands
