#pragma once

#include <QString>

// Files that nobody but their owner may read. Any thread; failures are silent, as the write that
// follows fails too.
namespace private_file {

// Makes the file, empty, and the directories that are missing; closes to others what stands there.
// What is no regular file stays as it is.
void make(const QString& path);
// Closes the file to others if it stands there, and what crashed writes left beside it under its
// name and an ending.
void repair(const QString& path);

} // namespace private_file
