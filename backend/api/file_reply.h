#pragma once

#include "backend/api/reply.h"

class Store;

namespace file_reply {

// A stored file: its content, 304 when the client holds it, or 404. `how` brings the content type
// and the caching.
Outcome<Reply> make(const Call& call, const Store& store, const QByteArray& sha256,
                    const Reply& how);
Refusal none();

} // namespace file_reply
