#include "backend/status_api.h"

#include "backend/database.h"
#include "backend/log.h"
#include "backend/router.h"

using namespace Qt::StringLiterals;

namespace status_api {

void addRoutes(Router& router, Database& database)
{
    router.add({.method = "GET",
                .pattern = "/healthz",
                .handler = [&database](const Call&, const QByteArray&) {
                    try {
                        database.value(u"SELECT revision FROM catalogue"_s);
                    } catch (const Fault& fault) {
                        logging::error(fault.text());
                        return reply::refused({503, u"The database does not answer."_s});
                    }
                    return reply::json({{u"status"_s, u"ok"_s}});
                }});
}

} // namespace status_api
