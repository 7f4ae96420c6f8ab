#pragma once

#include "backend/http/engine.h"

#include <string_view>

namespace http {

struct Head
{
    size_t bytes = 0;
    bool keepsAlive = false;
    bool expectsLeave = false; // to send its body
};

// How long the head at the front of the input is. 0: it is not there yet. Negative: the status to
// refuse it with, when no more of it needs to be seen.
qsizetype headBytes(std::string_view input);
// Reads that head, and hands back the status to refuse it with, or 0. Whatever two readers could
// take for requests of different lengths is refused.
int parseHead(std::string_view input, Request& request, Head& head);

} // namespace http
