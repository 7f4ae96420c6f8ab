#pragma once

#include <QString>

// One line per event on standard error, with the time in UTC. What comes from outside is made
// harmless first, so that nobody writes lines of their own into the log.
namespace logging {

void info(const QString& text);
void error(const QString& text);

} // namespace logging
