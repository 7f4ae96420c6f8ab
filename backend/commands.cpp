#include "backend/commands.h"

#include "backend/command.h"

using namespace Qt::StringLiterals;

namespace {

constexpr auto helpText = "Usage: tessellan-backend COMMAND [options]\n"
                          "\n"
                          "The server of the Tessellan launcher: accounts, manifest, game files.\n"
                          "\n"
                          "Commands:\n"
                          "  serve                              Run the server.\n"
                          "  publish version|news|launcher|runtime\n"
                          "                                     Offer something to the players.\n"
                          "\n"
                          "Every command explains itself: tessellan-backend COMMAND --help\n"
                          "Exit codes: 0 done, 1 failed, 2 the command line is wrong."_L1;

int dispatch(const QStringList& words)
{
    const QString name = words.value(0);
    const QStringList rest = words.mid(1);
    if (name == "serve"_L1)
        return commands::serve(rest);
    if (name == "publish"_L1)
        return commands::publish(rest);
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
    }
}

} // namespace commands
