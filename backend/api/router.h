#pragma once

#include "backend/api/call.h"
#include "backend/api/reply.h"

#include <functional>
#include <vector>

// What an operation may have to wait for; each kind waits for itself alone.
enum class Work { Files, Health, Reading, Writing, Login, Registration };

// One operation: where it is, what it needs before its body is read, and who answers it.
struct Route
{
    using Handler = std::function<Outcome<Reply>(const Call&, const QByteArray& parameter)>;

    QByteArray method; // GET or POST
    // "/skins/*.png": the star stands for one parameter.
    QByteArray pattern;
    Handler handler;
    Work work = Work::Reading;
    bool needsSession = false;
    // The body's type and size; no type means that no body is read.
    QByteArray bodyType = {};
    qint64 bodyLimit = 0;
};

// Finds the operation of a request and turns away, before any body is read, what no operation
// would take: an unknown path or method, no session, the wrong type, too much.
class Router
{
public:
    using Authenticate = std::function<Outcome<Account>(const QByteArray& token)>;

    explicit Router(Authenticate authenticate) : m_authenticate(std::move(authenticate)) {}

    void add(Route route) { m_routes.push_back(std::move(route)); }
    const std::vector<Route>& routes() const { return m_routes; }

    struct Match
    {
        const Route* route = nullptr;
        QByteArray parameter;
    };
    // By path and method; waits for nothing.
    Outcome<Match> find(const Call& call) const;
    // What may be done there, as "GET, HEAD" or "POST"; empty when nothing is.
    QByteArray methodsAt(const QByteArray& path) const;
    // Sets call.account; looks into the database.
    std::optional<Refusal> authenticate(Call& call) const;
    static std::optional<Refusal> refusalOfBody(const Route& route, const Call& call);

private:
    Authenticate m_authenticate;
    std::vector<Route> m_routes;
};
