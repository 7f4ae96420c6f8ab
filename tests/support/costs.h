#pragma once

#include <QtGlobal>

// What a piece of work costs this process. CPU time, so that a busy machine fails no test.
namespace costs {

double cpuSeconds();
// The most memory that was ever resident; it never shrinks.
qint64 peakBytes();

} // namespace costs
