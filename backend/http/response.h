#pragma once

#include "backend/http/engine.h"

namespace http {

// Up to the empty line, with these headers before the reply's own.
QByteArray headOf(const Reply& reply, const QList<Header>& headers, bool keepsAlive);

} // namespace http
