#pragma once

#include "backend/base/outcome.h"

#include <QByteArray>

namespace model_check {

// A block model as it is kept: compact JSON that the launcher's preview accepts. Refuses every
// other one with all the reasons that can be found.
Outcome<QByteArray> accept(const QByteArray& upload);

} // namespace model_check
