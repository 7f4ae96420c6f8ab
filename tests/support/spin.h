#pragma once

#include <functional>

// Turns the event loop without a pause, unlike QTest's, until `over`; false when that takes more
// than two minutes.
bool spinUntil(const std::function<bool()>& over);
