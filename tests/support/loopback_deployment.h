#pragma once

class QString;

// Stands in for the build's deployment constants in a test program that lists
// support/loopback_deployment.cpp among its sources: the linker takes an object file's definitions
// and never looks for the library's.
namespace loopback_deployment {

// Where deployment::runtimeOrigin points from now on: "http://127.0.0.1:<port of five digits>".
void setRuntimeOrigin(const QString& origin);

} // namespace loopback_deployment
