#pragma once

class Accounts;
class LoginGuard;
class Router;

namespace account_api {

// /auth/register, login, validate, logout, rename.
void addRoutes(Router& router, Accounts& accounts, LoginGuard& guard);

} // namespace account_api
