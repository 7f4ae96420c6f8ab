#pragma once

#include <QByteArray>

// Compressed as a web server does it.
QByteArray gzip(const QByteArray& content);
