#pragma once

#include "backend/base/outcome.h"

#include <QByteArray>

namespace skin_check {

// A skin as it is kept: decoded and encoded again, so that nothing but the picture is served on.
// Refuses what is no PNG of 64x64 or 128x128 pixels.
Outcome<QByteArray> accept(const QByteArray& upload);

} // namespace skin_check
