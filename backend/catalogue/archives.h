#pragma once

#include "backend/base/outcome.h"

#include <QString>

#include <functional>

// What the launcher will do with an archive is tried before it is published: an archive that is
// damaged, leads out of its directory or lacks what the launcher looks for is refused with a
// reason. Reads ZIP and .tar.gz by file name.
namespace archives {

using Progress = std::function<void(qint64 done, qint64 total)>;

// A game jar: a whole ZIP with a manifest.
Outcome<Done> checkJar(const QString& path);

// A full launcher archive: a ZIP that holds the launcher's executable at its top.
Outcome<Done> checkLauncherArchive(const QString& path);

// A Java runtime: one directory "jdk*" at the top, with an executable bin/java. A .zip is only
// checked; a .tar.gz is written again as ZIP to `zipPath`, with modes and links kept. Hands back
// the path of the ZIP: `path` itself or `zipPath`.
Outcome<QString> runtimeAsZip(const QString& path, const QString& zipPath,
                              const Progress& progress = {});

} // namespace archives
