#include "backend/catalogue/archives.h"
#include "backend/catalogue/catalogue.h"
#include "backend/catalogue/installation.h"
#include "backend/cli/command.h"
#include "backend/cli/commands.h"
#include "backend/cli/progress_bar.h"
#include "backend/data/data_directory.h"
#include "backend/data/store_lock.h"

#include <QDate>
#include <QFile>

using namespace Qt::StringLiterals;

namespace {

StoredFile storeFile(const Store& store, const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw Fault(u"cannot read %1: %2"_s.arg(path, file.errorString()));
    ProgressBar bar(u"Storing"_s);
    return store.add(file, [&bar](qint64 done, qint64 total) { bar.set(done, total); });
}

Outcome<QString> packRuntime(const QString& path, const QString& scratch)
{
    ProgressBar bar(u"Reading"_s);
    return archives::runtimeAsZip(path, scratch,
                                  [&bar](qint64 done, qint64 total) { bar.set(done, total); });
}

int publishVersion(const QStringList& words)
{
    command::Options options(u"publish version"_s,
                             u"Offers a game version. The same id again replaces its jar."_s,
                             command::Options::Directory::MadeWhenMissing);
    options.require(u"id"_s, u"The version's id, such as 0.4.2."_s, u"ID"_s);
    options.require(u"file"_s, u"The game's jar."_s, u"JAR"_s);
    options.add(u"released"_s, u"The release date as players read it. Default: today."_s, u"TEXT"_s,
                QDate::currentDate().toString(Qt::ISODate));
    if (const auto over = options.parse(words))
        return *over;

    const QString id = options.value(u"id"_s);
    if (const auto refusal = Catalogue::refusalOfVersionId(id))
        return command::fail(*refusal);
    if (const auto jar = archives::checkJar(options.value(u"file"_s)); !jar)
        return command::fail(jar.refusal());
    DataDirectory data(options.dataLocation());
    const StoreLock lock(data.store(), StoreLock::Mode::Shared);
    const StoredFile jar = storeFile(data.store(), options.value(u"file"_s));
    const auto added =
        Catalogue(data.database(), {}).addVersion(id, options.value(u"released"_s), jar);
    if (!added)
        return command::fail(added.refusal());
    command::print(u"Published version %1 (sha256 %2)."_s.arg(id, QString::fromLatin1(jar.sha256)));
    return command::Success;
}

int publishNews(const QStringList& words)
{
    command::Options options(u"publish news"_s, u"Puts an article on top of the news."_s,
                             command::Options::Directory::MadeWhenMissing);
    options.require(u"title"_s, u"The headline."_s, u"TEXT"_s);
    options.add(u"date"_s, u"The date as players read it. Default: today."_s, u"TEXT"_s,
                QDate::currentDate().toString(Qt::ISODate));
    options.add(u"body"_s, u"The article."_s, u"TEXT"_s);
    options.add(u"body-file"_s, u"A UTF-8 file that holds the article."_s, u"FILE"_s);
    if (const auto over = options.parse(words))
        return *over;
    if (options.has(u"body"_s) && options.has(u"body-file"_s))
        return command::wrongUsage(u"Give --body or --body-file, not both."_s, u"publish news"_s);

    QString body = options.value(u"body"_s);
    if (options.has(u"body-file"_s)) {
        QFile file(options.value(u"body-file"_s));
        if (!file.open(QIODevice::ReadOnly))
            return command::fail(u"cannot read %1: %2"_s.arg(file.fileName(), file.errorString()));
        body = QString::fromUtf8(file.readAll());
    }
    DataDirectory data(options.dataLocation());
    const auto added = Catalogue(data.database(), {})
                           .addNews(options.value(u"title"_s), options.value(u"date"_s), body);
    if (!added)
        return command::fail(added.refusal());
    command::print(u"Published the news \"%1\"."_s.arg(options.value(u"title"_s)));
    return command::Success;
}

// An update replaces the executable alone: what it needs must lie where players installed it.
// `name` is the archive's, for people.
Outcome<Done> checkStarts(const QString& build, const QString& archive, const QString& name)
{
    QFile file(build);
    if (!file.open(QIODevice::ReadOnly))
        throw Fault(u"cannot read %1: %2"_s.arg(build, file.errorString()));
    const auto installation = Installation::of(archive);
    if (!installation)
        return installation.refusal();
    const QStringList missing = installation->missingFor(Linkage::of(file.readAll()));
    if (missing.isEmpty())
        return Done();
    return Refusal{400, u"this build would not start where %1 is installed"_s.arg(name), missing};
}

// By the archive that was named, or else the published one.
Outcome<Done> checkStarts(const command::Options& options, Catalogue& catalogue, const Store& store)
{
    const QString build = options.value(u"file"_s);
    if (options.has(u"installed"_s))
        return checkStarts(build, options.value(u"installed"_s), options.value(u"installed"_s));
    if (const auto published = catalogue.launcher(u"archive"_s))
        return checkStarts(build, store.pathOf(*published), u"the published archive"_s);
    return Done();
}

int publishLauncher(const QStringList& words)
{
    command::Options options(u"publish launcher"_s,
                             u"Offers a launcher build; replaces the platform's older one."_s,
                             command::Options::Directory::MadeWhenMissing);
    options.require(u"file"_s, u"The executable, or the ZIP of a full archive."_s, u"FILE"_s);
    options.add(u"version"_s, u"The build's dotted version; an archive has none."_s, u"VERSION"_s);
    options.add(u"platform"_s, u"generic, linux or archive."_s, u"PLATFORM"_s, u"linux"_s);
    options.add(u"installed"_s,
                u"The archive that players have: with its libraries the build must start. "
                "Default: the full archive that is published."_s,
                u"FILE"_s);
    options.addFlag(u"force"_s, u"Publish it even so: who updates is left without a launcher."_s);
    if (const auto over = options.parse(words))
        return *over;

    const LauncherBuild build{options.value(u"platform"_s), options.value(u"version"_s)};
    if (!QStringList{u"generic"_s, u"linux"_s, u"archive"_s}.contains(build.platform))
        return command::wrongUsage(u"--platform must be generic, linux or archive."_s,
                                   u"publish launcher"_s);
    const bool isArchive = build.platform == "archive"_L1;
    if (isArchive != build.version.isEmpty())
        return command::wrongUsage(isArchive ? u"An archive has no --version."_s
                                             : u"--version is missing."_s,
                                   u"publish launcher"_s);
    if (isArchive) {
        const auto archive = archives::checkLauncherArchive(options.value(u"file"_s));
        if (!archive)
            return command::fail(archive.refusal());
    }
    DataDirectory data(options.dataLocation());
    Catalogue catalogue(data.database(), {});
    const auto starts =
        isArchive ? Outcome<Done>(Done()) : checkStarts(options, catalogue, data.store());
    if (!starts && !options.has(u"force"_s))
        return command::fail(starts.refusal());
    if (!starts)
        command::warn(starts.refusal());
    const StoreLock lock(data.store(), StoreLock::Mode::Shared);
    const StoredFile file = storeFile(data.store(), options.value(u"file"_s));
    if (file.size == 0)
        return command::fail(u"the file is empty"_s);
    const auto set = catalogue.setLauncher(build, file);
    if (!set)
        return command::fail(set.refusal());
    command::print(u"Published the launcher for %1 (sha256 %2)."_s.arg(
        build.platform, QString::fromLatin1(file.sha256)));
    return command::Success;
}

int publishRuntime(const QStringList& words)
{
    command::Options options(
        u"publish runtime"_s,
        u"Offers the Java runtime. A .zip is published as it is, a .tar.gz is packed again as ZIP."_s,
        command::Options::Directory::MadeWhenMissing);
    options.addWord(u"FILE"_s, u"A .zip or .tar.gz that holds one directory \"jdk...\"."_s);
    if (const auto over = options.parse(words))
        return *over;

    const QString path = options.word();
    const bool known = path.endsWith(".zip"_L1, Qt::CaseInsensitive) ||
                       path.endsWith(".tar.gz"_L1, Qt::CaseInsensitive) ||
                       path.endsWith(".tgz"_L1, Qt::CaseInsensitive);
    if (!known)
        return command::fail(u"the runtime must be a .zip or a .tar.gz"_s);
    DataDirectory data(options.dataLocation());
    const StoreLock lock(data.store(), StoreLock::Mode::Shared);
    const QString scratch = data.store().temporaryPath();
    const auto removeScratch = qScopeGuard([&scratch] { QFile::remove(scratch); });
    const auto zip = packRuntime(path, scratch);
    if (!zip)
        return command::fail(zip.refusal());
    const StoredFile stored = storeFile(data.store(), *zip);
    if (const auto set = Catalogue(data.database(), {}).setRuntime(stored); !set)
        return command::fail(set.refusal());
    command::print(u"Published the runtime (sha256 %1)."_s.arg(QString::fromLatin1(stored.sha256)));
    return command::Success;
}

} // namespace

namespace commands {

int publish(const QStringList& words)
{
    const QString what = words.value(0);
    const QStringList rest = words.mid(1);
    if (what == "version"_L1)
        return publishVersion(rest);
    if (what == "news"_L1)
        return publishNews(rest);
    if (what == "launcher"_L1)
        return publishLauncher(rest);
    if (what == "runtime"_L1)
        return publishRuntime(rest);
    return command::group(u"publish"_s, u"version|news|launcher|runtime"_s, what);
}

} // namespace commands
