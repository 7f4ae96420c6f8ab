#pragma once

// How long something may be waited for: without end, or throwing Busy when it takes longer than a
// client can wait.
enum class Patience { Endless, Client };
