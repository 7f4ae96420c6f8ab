#pragma once

#include "tests/support/zip_builder.h"

#include <QByteArray>
#include <QList>

#include <functional>

// ZIP archives that no honest packer makes, and honest ones that are easily taken for hostile. Each
// is a good archive, of a runtime or of a launcher, with something done to it.
struct HostileArchive
{
    enum class Verdict {
        Taken,   // by whoever may get it
        Refused, // by whoever may get it
        AsRuntimeOnly,
        Either // what the reading library makes of it; but everybody the same
    };

    const char* name;
    Verdict verdict;
    // `good` is the honest archive; what is added to it stands below `top`, which ends in a slash
    // or is empty.
    std::function<QByteArray(ZipBuilder good, const QByteArray& top)> make;
};

QList<HostileArchive> hostileArchives();
