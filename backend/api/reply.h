#pragma once

#include "backend/base/outcome.h"
#include "backend/http/engine.h"

#include <QByteArray>
#include <QJsonObject>

struct Call;

using Reply = server::Reply;

namespace reply {

Reply json(const QJsonObject& object);
// {"error": ..., "reasons": [...]}; the second only when there are reasons.
Reply refused(const Refusal& refusal);
// The body with its tag, or 304 when the client holds it already.
Reply tagged(const Call& call, const QByteArray& contentType, const QByteArray& body,
             const QByteArray& etag, const QByteArray& cacheControl);
bool matches(const QByteArray& ifNoneMatch, const QByteArray& etag);

} // namespace reply
