#include "profiles/profile_manager.h"

#include "app/until_nul.h"

#include <QLatin1StringView>
#include <QStringList>

#include <algorithm>
#include <array>

namespace {

// Arguments that belong to the launcher and cannot be set from a profile's free text.
constexpr std::array<QLatin1StringView, 17> LOCKED_ARGS{
    // what the launcher tells the game about who plays
    QLatin1StringView("--username"),
    QLatin1StringView("--uuid"),
    QLatin1StringView("--token"),
    QLatin1StringView("--authserver"),
    // game options
    QLatin1StringView("--online-mode"),
    QLatin1StringView("--offline"),
    QLatin1StringView("--port"),
    QLatin1StringView("--server-id"),
    // which code runs
    QLatin1StringView("-jar"),
    QLatin1StringView("-cp"),
    QLatin1StringView("-classpath"),
    QLatin1StringView("--module-path"),
    QLatin1StringView("--add-modules"),
    // heap and stack
    QLatin1StringView("-Xms"),
    QLatin1StringView("-Xmx"),
    QLatin1StringView("-Xss"),
    QLatin1StringView("-XX:VMThreadStackSize"),
};

} // namespace

// Whole-key equality on purpose: the table guards the spellings with a separate value or an "=".
// A glued value (-Xmx4G) or another letter case passes through.
bool ProfileManager::isLockedArg(const QString& argument)
{
    const QString arg = untilNul(argument);
    const qsizetype equals = arg.indexOf(u'=');
    const QStringView key = equals > 0 ? QStringView(arg).left(equals) : QStringView(arg);
    return std::ranges::any_of(LOCKED_ARGS, [key](QLatin1StringView name) { return key == name; });
}

QList<QString> ProfileManager::jvmArgsFor(const LaunchProfile& p, QString* warning) const
{
    QList<QString> args{QStringLiteral("-Xms%1m").arg(p.xms), QStringLiteral("-Xmx%1m").arg(p.xmx)};
    QStringList dropped;
    // Only the space separates; tabs stay inside tokens and no quoting is understood.
    for (const QString& written : p.extraJvmArgs.split(u' ', Qt::SkipEmptyParts)) {
        // Judged by what java will see, and passed as that.
        const QString token = untilNul(written);
        if (token.isEmpty())
            continue;
        if (isLockedArg(token))
            dropped.append(token);
        else
            args.append(token);
    }
    if (warning && !dropped.isEmpty())
        *warning = QStringLiteral("Ignored locked args: ") + dropped.join(QStringLiteral(", "));
    return args;
}
