#include "backend/status_api.h"

#include "backend/health.h"
#include "backend/router.h"

using namespace Qt::StringLiterals;

namespace status_api {

void addRoutes(Router& router, Health& health)
{
    router.add({.method = "GET",
                .pattern = "/healthz",
                .handler =
                    [&health](const Call&, const QByteArray&) {
                        if (!health.isGood())
                            return reply::refused({503, u"The database does not answer."_s, {}, 2});
                        return reply::json({{u"status"_s, u"ok"_s}});
                    },
                .work = Work::Health});
}

} // namespace status_api
