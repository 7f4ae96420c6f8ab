#pragma once

class Accounts;
class LoginGuard;
class RegistrationGuard;
class Router;

namespace account_api {

// /auth/register, login, validate, logout, rename.
void addRoutes(Router& router, Accounts& accounts, RegistrationGuard& registration,
               LoginGuard& guard);

} // namespace account_api
