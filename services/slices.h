#pragma once

#include <QtGlobal>

// What is read, hashed or written at a time: little enough that whoever is asked to stop in between
// does so within some milliseconds.
constexpr qsizetype sliceBytes = 1024 * 1024;
