#include "backend/checker.h"
#include "backend/command.h"
#include "backend/commands.h"
#include "backend/progress_bar.h"
#include "backend/site.h"
#include "backend/store_lock.h"

using namespace Qt::StringLiterals;

namespace commands {

int check(const QStringList& words)
{
    command::Options options(u"check"_s,
                             u"Verifies the database and every stored file. Exit code 1 "
                             "when something is damaged. Works while the server runs."_s);
    if (const auto over = options.parse(words))
        return *over;
    Site site(options.site());
    // So that the sweep does not take a file from under the check.
    const StoreLock lock(site.store(), StoreLock::Mode::Shared);
    Checker::Report report;
    {
        ProgressBar bar(u"Checking"_s);
        report = Checker(site.database(), site.store()).run([&bar](qint64 done, qint64 total) {
            bar.set(done, total);
        });
    }
    for (const QString& fault : std::as_const(report.faults))
        command::print(u"damaged: "_s + fault);
    if (!report.faults.isEmpty())
        return command::fail(u"%1 of what is stored is damaged"_s.arg(report.faults.size()));
    command::print(u"All is well: %1 files, %2 unused."_s.arg(report.files).arg(report.unused));
    return command::Success;
}

} // namespace commands
