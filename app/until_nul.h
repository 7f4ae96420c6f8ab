#pragma once

#include <QString>

// What another program sees of an argument or a path: the system's calls stop at the first NUL.
// Whoever judges such a text judges this, and passes this on. Any thread.
QString untilNul(const QString& text);
