#pragma once

#include <QLatin1StringView>

// What a deployment fixes when it builds the launcher. The values come from CMake: the project
// version, TESSELLAN_SERVER_ORIGIN, TESSELLAN_RUNTIME_ORIGIN and TESSELLAN_APP_ID (the name of the
// desktop entry, without its suffix). Constant for the whole process, readable from every thread.
// Origins carry neither a path nor a trailing slash.
namespace deployment {

extern const QLatin1StringView version;
extern const QLatin1StringView serverOrigin;
extern const QLatin1StringView runtimeOrigin;
extern const QLatin1StringView appId;

} // namespace deployment
