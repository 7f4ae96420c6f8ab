#pragma once

#include <QByteArray>
#include <QByteArrayList>

#include <optional>

// What names and links in an archive may be. Names are the bytes that the archive stores. Any
// thread.
namespace archive_names {

// Every file system that a game directory is likely to be on takes names within these limits, also
// below a directory that is deep itself.
constexpr qsizetype maxNameBytes = 1024;
constexpr qsizetype maxStepBytes = 255;
constexpr qsizetype maxSteps = 64;

// The steps of a stored name below the directory that the archive is unpacked into, none for that
// directory itself. Nothing when the name is empty, absolute or climbs.
std::optional<QByteArrayList> stepsOf(const QByteArray& name);

bool isTooLong(const QByteArray& name);

// Whether a link that stands `depth` directories deep stays inside the archive's directory.
bool staysInside(const QByteArray& linkTarget, qsizetype depth);

} // namespace archive_names
