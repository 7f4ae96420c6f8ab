#pragma once

#include <QLatin1StringView>

// What a deployment fixes when it builds the launcher. The values come from CMake: the project
// version, TESSELLAN_SERVER_ORIGIN and TESSELLAN_RUNTIME_ORIGIN. Constant for the whole process,
// readable from every thread. Origins carry neither a path nor a trailing slash.
namespace deployment {

extern const QLatin1StringView version;
extern const QLatin1StringView serverOrigin;
extern const QLatin1StringView runtimeOrigin;

} // namespace deployment
