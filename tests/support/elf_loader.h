#pragma once

#include <QByteArray>

// A program that asks for the loader at this path instead of its own.
QByteArray withLoader(QByteArray program, const QByteArray& path);
