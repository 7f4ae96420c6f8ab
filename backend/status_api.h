#pragma once

class Database;
class Router;

namespace status_api {

// /healthz: whether the server and its database answer.
void addRoutes(Router& router, Database& database);

} // namespace status_api
