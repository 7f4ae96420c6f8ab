#include "backend/catalogue/catalogue.h"
#include "backend/cli/command.h"
#include "backend/cli/commands.h"
#include "backend/data/data_directory.h"

#include <functional>

using namespace Qt::StringLiterals;

namespace {

using Remove = std::function<Outcome<Done>(Catalogue&, const QString& word)>;

int withdraw(const QString& what, const QString& description, const QString& word,
             const QString& wordHelp, const QStringList& words, const Remove& remove)
{
    command::Options options(QString(u"withdraw "_s + what), description);
    if (!word.isEmpty())
        options.addWord(word, wordHelp);
    if (const auto over = options.parse(words))
        return *over;
    DataDirectory data(options.dataLocation());
    Catalogue catalogue(data.database(), {});
    const auto removed = remove(catalogue, options.word());
    if (!removed)
        return command::fail(removed.refusal());
    command::print(u"Withdrew the %1%2."_s.arg(
        what, word.isEmpty() ? QString() : QString(u' ' + options.word())));
    return command::Success;
}

} // namespace

namespace commands {

int withdraw(const QStringList& words)
{
    const QString what = words.value(0);
    const QStringList rest = words.mid(1);
    if (what == "version"_L1)
        return ::withdraw(
            what, u"Takes a game version out of the manifest."_s, u"ID"_s, u"The version's id."_s,
            rest,
            [](Catalogue& catalogue, const QString& id) { return catalogue.removeVersion(id); });
    if (what == "news"_L1)
        return ::withdraw(what, u"Takes an article out of the news."_s, u"NUMBER"_s,
                          u"Its number, as \"list\" shows it."_s, rest,
                          [](Catalogue& catalogue, const QString& number) {
                              return catalogue.removeNews(number.toLongLong());
                          });
    if (what == "launcher"_L1)
        return ::withdraw(what, u"Takes a platform's launcher build out of the manifest."_s,
                          u"PLATFORM"_s, u"generic, linux or archive."_s, rest,
                          [](Catalogue& catalogue, const QString& platform) {
                              return catalogue.removeLauncher(platform);
                          });
    if (what == "runtime"_L1)
        return ::withdraw(
            what, u"Offers no Java runtime any more."_s, {}, {}, rest,
            [](Catalogue& catalogue, const QString&) { return catalogue.removeRuntime(); });
    return command::group(u"withdraw"_s, u"version|news|launcher|runtime"_s, what);
}

int list(const QStringList& words)
{
    command::Options options(u"list"_s, u"Shows what is published, as players see it."_s);
    if (const auto over = options.parse(words))
        return *over;
    DataDirectory data(options.dataLocation());
    const QStringList lines = Catalogue(data.database(), {}).describe();
    for (const QString& line : lines)
        command::print(line);
    return command::Success;
}

} // namespace commands
