#include "backend/api/router.h"

using namespace Qt::StringLiterals;

namespace {

// The text that the star stands for, or nothing when the path does not fit.
std::optional<QByteArray> parameterOf(const QByteArray& path, const QByteArray& pattern)
{
    const qsizetype star = pattern.indexOf('*');
    if (star < 0)
        return path == pattern ? std::optional(QByteArray()) : std::nullopt;
    const QByteArray before = pattern.left(star);
    const QByteArray after = pattern.mid(star + 1);
    if (path.size() <= before.size() + after.size() || !path.startsWith(before) ||
        !path.endsWith(after))
        return {};
    return path.mid(before.size(), path.size() - before.size() - after.size());
}

} // namespace

Outcome<Router::Match> Router::find(const Call& call) const
{
    for (const Route& route : m_routes) {
        if (route.method != call.method)
            continue;
        if (const auto parameter = parameterOf(call.path, route.pattern))
            return Match{&route, *parameter};
    }
    if (!methodsAt(call.path).isEmpty())
        return Refusal{405, u"This address does not take that method."_s};
    return Refusal{404, u"There is nothing at this address."_s};
}

QByteArray Router::methodsAt(const QByteArray& path) const
{
    for (const Route& route : m_routes) {
        if (parameterOf(path, route.pattern))
            return route.method == "GET" ? QByteArray("GET, HEAD") : route.method;
    }
    return {};
}

std::optional<Refusal> Router::authenticate(Call& call) const
{
    const auto account = m_authenticate(call.token);
    if (!account)
        return account.refusal();
    call.account = *account;
    return {};
}

std::optional<Refusal> Router::refusalOfBody(const Route& route, const Call& call)
{
    if (call.bodyBytes > route.bodyLimit)
        return Refusal{413, route.bodyLimit == 0
                                ? u"This address takes no body."_s
                                : u"The body is larger than %1 KiB."_s.arg(route.bodyLimit / 1024)};
    if (!route.bodyType.isEmpty() && call.contentType != route.bodyType)
        return Refusal{415,
                       u"The content type must be %1."_s.arg(QString::fromLatin1(route.bodyType))};
    return {};
}
