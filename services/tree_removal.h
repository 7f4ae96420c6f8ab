#pragma once

#include <QByteArray>

#include <functional>

// Removes a file, a link (not what it leads to) or a directory with all that is in it, also one
// that its owner may not write to and one deeper than a path can be. False when something of it is
// left: it could not be removed, or `cancelled`, asked before each step, said so. True when nothing
// was there. Any thread.
bool removeTree(const QByteArray& path, const std::function<bool()>& cancelled = {});
