#pragma once

#include <QObject>

#include <functional>

// Long work on the GUI thread without freezing it: `step` runs once per turn of the event loop
// until it returns false, or until `owner` is gone. A step should take a few milliseconds.
void runInSlices(QObject* owner, std::function<bool()> step);

// What a step hashes or writes: 6 ms at the 180 MB/s of Qt's SHA-256.
constexpr qsizetype sliceBytes = 1024 * 1024;
