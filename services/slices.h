#pragma once

#include <QObject>

#include <functional>

// Long work on the GUI thread without freezing it: `step` runs once per turn of the event loop
// until it returns false, or until `owner` is gone. A step should take a few milliseconds.
void runInSlices(QObject* owner, std::function<bool()> step);

// What a step reads, hashes or writes, here and on a worker between two looks at its stop token.
constexpr qsizetype sliceBytes = 1024 * 1024;
