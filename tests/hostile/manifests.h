#pragma once

#include <QByteArray>

// Manifests as a hostile server sends them: all parse, and none is larger than the launcher takes.
// Every field in turn is filled with what is slow or dangerous to lay out, draw or use as a name.
namespace hostile {

// By number, so that a table can make them one at a time. The name says what is wrong.
qsizetype manifestCount();
QByteArray manifestName(qsizetype index);
QByteArray manifest(qsizetype index);

} // namespace hostile
