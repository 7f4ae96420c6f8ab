#pragma once

#include <QString>

#include <functional>

class RuntimeArchive;

// The worker's part of RuntimeManager: unpacks the archive into `base`, removes it, and puts the
// runtime it brought in its place, in one go. Unpackings take turns, in this process and between
// processes: what stands under the runtime's name is always one runtime, whole. Returns the text to
// show; empty when the runtime stands. Ends soon after `cancelled` says so.
QString unpackRuntime(const RuntimeArchive& archive, const QString& base,
                      const std::function<bool()>& cancelled);
