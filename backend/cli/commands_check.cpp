#include "backend/cli/command.h"
#include "backend/cli/commands.h"
#include "backend/cli/progress_bar.h"
#include "backend/data/data_directory.h"
#include "backend/data/removal_lock.h"
#include "backend/data/store_lock.h"
#include "backend/upkeep/checker.h"

using namespace Qt::StringLiterals;

namespace commands {

int check(const QStringList& words)
{
    command::Options options(u"check"_s,
                             u"Verifies the database and every stored file. Exit code 1 "
                             "when something is damaged. Works while the server runs."_s);
    if (const auto over = options.parse(words))
        return *over;
    DataDirectory data(options.dataLocation());
    // So that neither the sweep nor an upload takes a file from under the check.
    const StoreLock lock(data.store(), StoreLock::Mode::Shared);
    const auto kept = RemovalLock::toKeepAll(data.store());
    Checker::Report report;
    {
        ProgressBar bar(u"Checking"_s);
        report = Checker(data.database(), data.store()).run([&bar](qint64 done, qint64 total) {
            bar.set(done, total);
        });
    }
    for (const QString& damage : std::as_const(report.damage))
        command::print(u"damaged: "_s + damage);
    if (!report.damage.isEmpty())
        return command::fail(u"%1 of what is stored is damaged"_s.arg(report.damage.size()));
    command::print(u"All is well: %1 files, %2 unused."_s.arg(report.files).arg(report.unused));
    return command::Success;
}

} // namespace commands
