#include "backend/api/status_api.h"

#include "backend/api/router.h"
#include "backend/data/health.h"

using namespace Qt::StringLiterals;

namespace status_api {

void addRoutes(Router& router, Health& health)
{
    router.add({.method = "GET",
                .pattern = "/healthz",
                .handler = [&health](const Call&, const QByteArray&) -> Outcome<Reply> {
                    if (!health.isGood())
                        return Refusal{503, u"The database does not answer."_s, {}, 2};
                    return reply::json({{u"status"_s, u"ok"_s}});
                },
                .work = Work::Health});
}

} // namespace status_api
