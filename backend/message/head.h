#pragma once

#include "backend/message/request.h"

#include <optional>
#include <string>

namespace server {

// Takes the head at the front of the input into the request, and out of the input. Hands back 0
// then; the status to refuse it with, which may be certain before all of it is there; or nothing
// when it wants more input. Whatever two readers could take for requests of different lengths is
// refused.
std::optional<int> takeHead(std::string& input, Request& request);

} // namespace server
