#pragma once

class Accounts;
class Router;

namespace account_api {

// /auth/register, login, validate, logout, rename.
void addRoutes(Router& router, Accounts& accounts);

} // namespace account_api
