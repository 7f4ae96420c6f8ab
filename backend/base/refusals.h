#pragma once

#include "backend/base/outcome.h"

namespace refusals {

// 429: "Too many failed logins. Try again in 5 minutes."
Refusal tooMany(const QString& what, int seconds);
// 401: no session, or none any more.
Refusal noSession();
// 503: too much is under way.
Refusal tooBusy();

} // namespace refusals
