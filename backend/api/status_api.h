#pragma once

class Health;
class Router;

namespace status_api {

// /healthz: whether the server and its database answer.
void addRoutes(Router& router, Health& health);

} // namespace status_api
